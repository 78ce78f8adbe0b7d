#pragma once

#include "image/GenRect.h"
#include "image/Image.h"
#include "image/Rescaler.h"
#include "image/XformBicubic.h"
#include "krovel/AffineTransform.h"
#include "krovel/KrGenMatrix.h"
#include "krovel/KrGenVector.h"
#include "krovel/KrLMProblem.h"
#include "krovel/KrLMSolver.h"

#include <memory>

/// Copies the samples of `img` into `v` as floats, row by row with the
/// channels interleaved as stored, skipping each row's padding; `v` is
/// resized to channels × width × height. The values are cast, not rescaled:
/// a UB1 sample 255 becomes 255.0f. An unknown datatype throws
/// IllegalArgumentException "image datatype unknown".
void flattenImage(const Orvane::Image& img, KrGenVector<float>& v);

/// Normalises `v` in place to zero mean and unit variance, writing through
/// its storage (into an image buffer when `v` wraps one). Sums are taken in
/// double. A flat or empty vector, whose 1/σ is not finite, reports "divide
/// by zero" through KrMatrixError::err and is left unchanged.
template <class T> void unbias(KrGenVector<T>& v);

namespace Krovel {

/// flattenImage for a known sample type T, written into a D vector.
template <class T, class D> void _flattenImage(const Orvane::Image& img, KrGenVector<D>& v);

} // namespace Krovel

/// The affine refinement: finds the transform under which the search image,
/// warped into the pattern's frame, best matches the pattern in normalised
/// intensity (zero mean, unit variance), by Levenberg–Marquardt.
///
/// The warp samples `search` at centre + M · (p − anchor) for each pattern
/// pixel p, with M the matrix of the transform (AffineTransform). So the
/// result maps offsets from the anchor in the pattern to offsets from the
/// centre in the search image: a positive tx means the feature lies further
/// right in the search image, and sc > 1 means it appears larger there.
///
/// Use: set the images, the anchor and centre, the free parameters and a
/// starting transform; `execute`; read `getXform`, `getTranslation`,
/// `getLinear` and `getQuality`. The search image must be FLOAT (the warp
/// writes float pixels in the search image's format) with the pattern's
/// channel count; the pattern may be of any datatype.
///
/// A problem keeps its working storage (the half-size problem and its
/// images, the solver, the vectors and matrices) from one `execute` to the
/// next, so a driver that holds one problem per track and executes it again
/// with images of the same sizes allocates nothing in the solve. The
/// results do not depend on what an earlier `execute` left behind.
class AffineProblem : public KrLMProblem {
public:
    /// All four parameter groups free, coarse to fine on, identity start.
    AffineProblem() = default;
    ~AffineProblem() override = default;

    AffineProblem(const AffineProblem&) = delete;
    AffineProblem& operator=(const AffineProblem&) = delete;

    /// Shares `v` as the current parameters and warps the search image into
    /// `projected` under them, normalised in place.
    void setX(const KrGenVector<float>& v) override;
    /// The normalised projected image, flattened.
    void evalY(KrGenVector<float>& y) override;
    /// The Jacobian by forward differences of 0.001 in every parameter.
    void evalDy(KrGenMatrix<float>& dy) override;
    /// Solves from the current transform, first at half resolution when
    /// coarse to fine is on and the pattern has at least 325 pixels. Solver
    /// errors ("nan", "inverse: singular matrix") propagate; the transform
    /// then keeps its value from before the call or from the half-size step.
    virtual void execute();

    /// The reference patch; its bounds fix the size of the output.
    void setPattern(const Orvane::Image& img) { pattern = img; }
    const Orvane::Image& getPattern() const { return pattern; }
    /// The image that is warped.
    void setSearch(const Orvane::Image& img) { search = img; }
    const Orvane::Image& getSearch() const { return search; }
    /// The search image at the current parameters, float and normalised.
    /// Its store is reused by later calls: copy it to keep its pixels.
    const Orvane::Image& getProjected() const { return projected; }

    /// The point of the pattern that the transform turns about.
    void setAnchor(const Orvane::GenPoint<float>& p) { anchor = p; }
    const Orvane::GenPoint<float>& getAnchor() const { return anchor; }
    /// Where the anchor lands in the search image before translation.
    void setCentre(const Orvane::GenPoint<float>& p) { centre = p; }
    const Orvane::GenPoint<float>& getCentre() const { return centre; }

    /// Which parameters are free: tx and ty, ro, sc, st0 and st1.
    void setUseTranslation(bool on) { useTranslation = on; }
    void setUseRotation(bool on) { useRotation = on; }
    void setUseScale(bool on) { useScale = on; }
    void setUseStretch(bool on) { useStretch = on; }
    bool getUseTranslation() const { return useTranslation; }
    bool getUseRotation() const { return useRotation; }
    bool getUseScale() const { return useScale; }
    bool getUseStretch() const { return useStretch; }
    /// Solve first on images halved, repeatedly, below 325 pattern pixels.
    void setCoarseToFine(bool on) { coarseToFine = on; }
    bool getCoarseToFine() const { return coarseToFine; }

    /// How the warps of the full-size solve sample the search image.
    /// Bilinear, the default, shifts the solution on fine texture by an error
    /// that follows the sub-pixel phase. BSpline lessens that error several
    /// times over; it fits the search image once per `execute` (or when setX
    /// meets a new search image) and costs more per warp. Bicubic is sharper
    /// than bilinear but errs as much. The half-size solves that give the
    /// start stay bilinear.
    void setInterpolation(Orvane::Interpolation how) { interpolation = how; }
    Orvane::Interpolation getInterpolation() const { return interpolation; }

    /// Computes every warp and normalisation the straightforward way: each
    /// trial warp on its own, normalised in two passes. It gives the default
    /// path's results to float rounding at several times the cost; tests and
    /// benchmarks use it as the yardstick. Off by default.
    void setReferencePath(bool on) { referencePath = on; }
    bool getReferencePath() const { return referencePath; }

    /// The starting transform before `execute`, the result after.
    void setXform(const AffineTransform& t) { xform = t; }
    const AffineTransform& getXform() const { return xform; }

    /// The number of free parameters, 0 to 6.
    int xlength() const;
    /// Resizes `v` to xlength() and fills it with the free parameters of `t`
    /// in the order tx, ty, ro, sc, st0, st1.
    void pack(KrGenVector<float>& v, const AffineTransform& t) const;
    /// The inverse of pack: writes the free parameters from `v` into `t`,
    /// leaving the others. A short `v` reports "KrVector index %d out of
    /// range %d".
    void unpack(const KrGenVector<float>& v, AffineTransform& t) const;
    /// The packed transform, in a new vector.
    KrGenVector<float> initState() const;
    /// The size of a unit solver step: half a pixel for the translation,
    /// 1/√(pattern pixels) for the other parameters.
    AffineTransform getTrust() const;

    /// The matrix of the transform (AffineTransform::getMatrix).
    void getMatrix(KrGenMatrix<float>& m) const;
    void getMatrix(KrGenMatrix<double>& m) const;
    /// The matrix of the transform with `v` unpacked over it.
    void getMatrix(const KrGenVector<float>& v, KrGenMatrix<float>& m) const;
    void getMatrix(const KrGenVector<float>& v, KrGenMatrix<double>& m) const;

    /// Warps `src` into `dst` (FLOAT, already allocated) under the transform
    /// with `v` unpacked over it, about the centre and the anchor.
    void project(const KrGenVector<float>& v, Orvane::Image& src, Orvane::Image& dst) const;

    /// After `execute`: the translation column of the result matrix.
    Orvane::GenPoint<float> getTranslation() const { return {resultTx, resultTy}; }
    float getResultTx() const { return resultTx; }
    float getResultTy() const { return resultTy; }
    /// After `execute`: the left 2 by 2 of the result matrix (a view).
    const KrGenMatrix<float>& getLinear() const { return linear; }
    /// After `execute`: the correlation coefficient of the warped search
    /// image with the pattern, 1 for a perfect match.
    float getQuality() const { return quality; }
    /// After `execute`: the solver's trials at full size, and those of the
    /// half-size solves before it (0 when none ran).
    int getIterations() const { return iterations; }
    int getHalfSizeIterations() const { return halfIterations; }

private:
    // The warp's matrix about centre and anchor with `v` unpacked over the
    // transform, and the warp under it into `out` (rows without padding) for
    // a FLOAT search image.
    void warpMatrix(const KrGenVector<float>& v, float (&full)[6]) const;
    void warpRows(const float (&full)[6], float* out) const;
    // The warp and normalisation of setX, written straight into `out` (count
    // floats): plainly, with the two-pass `unbias`, and fast, with one-pass
    // moments that agree with it to rounding.
    void projectNormalised(const KrGenVector<float>& v, float* out, int count) const;
    void projectFast(const KrGenVector<float>& v, float* out, int count) const;
    // evalDy for a FLOAT search image: all trial warps first, then each
    // column normalised and differenced in one pass.
    void differencesFast(KrGenMatrix<float>& dy, const float* base, int count);
    bool fastPath() const;
    // Step 1 of execute: the half-size solve and the start it gives.
    void solveHalfSize();
    // setX for the solver's final state: the solve mostly ends on the base
    // of its last Jacobian, whose normalised warp is then copied back.
    void settle(const KrGenVector<float>& v);
    Orvane::Image pattern;
    Orvane::Image search;
    Orvane::Image projected;
    // The trial warp of evalDy for a search image that is not FLOAT, kept so
    // that it is allocated once per problem rather than once per parameter
    // and iteration.
    Orvane::Image trial;
    // The spline's coefficients, and the search image they were fitted to.
    Orvane::BSplineCoefficients fitted;
    Orvane::Image fittedTo;
    Orvane::GenPoint<float> anchor;
    Orvane::GenPoint<float> centre;
    bool useTranslation = true;
    bool useRotation = true;
    bool useScale = true;
    bool useStretch = true;
    bool coarseToFine = true;
    Orvane::Interpolation interpolation = Orvane::Interpolation::Bilinear;
    bool referencePath = false;
    AffineTransform xform;
    KrGenVector<float> x;
    float resultTx = 0;
    float resultTy = 0;
    KrGenMatrix<float> linear;
    float quality = 0;

    // Reused by evalDy across parameters and iterations; trialY holds every
    // trial warp of one Jacobian, one after another.
    KrGenVector<float> trialX;
    KrGenVector<float> trialY;
    // The state and normalised warp at the last Jacobian of this execute.
    bool baseHeld = false;
    KrGenVector<float> baseX;
    KrGenVector<float> basePixels;

    // Kept from execute to execute; see the class comment.
    std::unique_ptr<AffineProblem> half;
    Orvane::Rescaler halvePattern{0.5, 0.5};
    Orvane::Rescaler halveSearch{0.5, 0.5};
    KrLMSolver solver;
    KrGenVector<float> goal;
    KrGenVector<float> state;
    KrGenVector<float> trust;
    KrGenVector<float> output;
    KrGenMatrix<float> result;
    int iterations = 0;
    int halfIterations = 0;
};
