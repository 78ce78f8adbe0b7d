#include "krovel/AffineProblem.h"

#include "image/Convert.h"
#include "image/DatatypeSwitch.h"
#include "image/Format.h"
#include "image/ImageRows.h"
#include "image/Xform.h"
#include "image/XformBicubic.h"
#include "image/XformBilinear.h"
#include "krovel/AffineWarp.h"
#include "krovel/KrLMSolver.h"
#include "krovel/KrMatrixError.h"
#include "krovel/KrRange.h"
#include "krovel/KrVectorKernels.h"

#include <cmath>
#include <cstdint>
#include <cstring>

namespace Krovel {

template <class T, class D> void _flattenImage(const Orvane::Image& img, KrGenVector<D>& v) {
    const Orvane::GenRect<int>& b = img.getBounds();
    const int w = b.w > 0 ? b.w : 0;
    const int h = b.h > 0 ? b.h : 0;
    const int rowCount = img.getFormat().getNumChannels() * w;
    v.resize(rowCount * h);
    if (rowCount == 0 || h == 0)
        return;
    const Orvane::ImageRows<const T> rows(img);
    D* out = v.data();
    const int step = v.stride();
    for (int y = 0; y < h; ++y) {
        const T* p = rows.row(y);
        if (step == 1) {
            for (int i = 0; i < rowCount; ++i)
                out[i] = static_cast<D>(p[i]);
            out += rowCount;
        } else {
            for (int i = 0; i < rowCount; ++i, out += step)
                *out = static_cast<D>(p[i]);
        }
    }
}

template void _flattenImage<unsigned char, float>(const Orvane::Image&, KrGenVector<float>&);
template void _flattenImage<unsigned short, float>(const Orvane::Image&, KrGenVector<float>&);
template void _flattenImage<unsigned int, float>(const Orvane::Image&, KrGenVector<float>&);
template void _flattenImage<float, float>(const Orvane::Image&, KrGenVector<float>&);
template void _flattenImage<double, float>(const Orvane::Image&, KrGenVector<float>&);

} // namespace Krovel

void flattenImage(const Orvane::Image& img, KrGenVector<float>& v) {
    Orvane::switchDatatype(img.getFormat().getDatatype(), "image datatype unknown", [&](auto s) {
        using T = typename decltype(s)::type;
        Krovel::_flattenImage<T, float>(img, v);
    });
}

template <class T> void unbias(KrGenVector<T>& v) {
    const int n = v.length();
    T* p = v.data();
    const int step = v.stride();
    // Two passes in double: the deviations of a flat vector are exactly zero,
    // so it is reported rather than scaled by the inverse of a rounding error.
    double sum = 0;
    double squares = 0;
    if (step == 1) {
        for (int i = 0; i < n; ++i)
            sum += p[i];
        const double mean = sum / n;
        for (int i = 0; i < n; ++i) {
            const double d = p[i] - mean;
            squares += d * d;
        }
    } else {
        for (int i = 0; i < n; ++i)
            sum += p[ptrdiff_t(i) * step];
        const double mean = sum / n;
        for (int i = 0; i < n; ++i) {
            const double d = p[ptrdiff_t(i) * step] - mean;
            squares += d * d;
        }
    }
    const double mean = sum / n;
    const double sigma = std::sqrt(squares / n);
    if (!std::isfinite(1 / sigma)) {
        KrMatrixError::err("divide by zero");
        return;
    }
    if (step == 1) {
        for (int i = 0; i < n; ++i)
            p[i] = static_cast<T>((p[i] - mean) / sigma);
    } else {
        for (int i = 0; i < n; ++i, p += step)
            *p = static_cast<T>((*p - mean) / sigma);
    }
}

template void unbias(KrGenVector<float>&);
template void unbias(KrGenVector<double>&);

namespace {

// The pixels of a float image without row padding, as a vector over its buffer.
KrGenVector<float> wrapPixels(const Orvane::Image& img) {
    const Orvane::GenRect<int>& b = img.getBounds();
    float* pixels;
    img.getBuffer(pixels);
    return KrGenVector<float>(pixels, img.getFormat().getNumChannels() * b.w * b.h, false);
}

const float kStep = 0.001f;
const int kCoarsePixels = 325;

// The warp goes straight into its destination when the general warp would
// do nothing else: a FLOAT search image with pixels. Anything else takes the
// general path and its errors.
bool warpsDirectly(const Orvane::Image& search) {
    const Orvane::GenRect<int>& sb = search.getBounds();
    return search.getFormat().getDatatype() == Orvane::FLOAT && sb.w >= 1 && sb.h >= 1;
}

} // namespace

int AffineProblem::xlength() const {
    return (useTranslation ? 2 : 0) + (useRotation ? 1 : 0) + (useScale ? 1 : 0) +
           (useStretch ? 2 : 0);
}

void AffineProblem::pack(KrGenVector<float>& v, const AffineTransform& t) const {
    v.resize(xlength());
    int i = 0;
    if (useTranslation) {
        v(i++) = t.tx;
        v(i++) = t.ty;
    }
    if (useRotation)
        v(i++) = t.ro;
    if (useScale)
        v(i++) = t.sc;
    if (useStretch) {
        v(i++) = t.st0;
        v(i++) = t.st1;
    }
}

void AffineProblem::unpack(const KrGenVector<float>& v, AffineTransform& t) const {
    int i = 0;
    if (useTranslation) {
        t.tx = v(i++);
        t.ty = v(i++);
    }
    if (useRotation)
        t.ro = v(i++);
    if (useScale)
        t.sc = v(i++);
    if (useStretch) {
        t.st0 = v(i++);
        t.st1 = v(i++);
    }
}

KrGenVector<float> AffineProblem::initState() const {
    KrGenVector<float> v;
    pack(v, xform);
    return v;
}

AffineTransform AffineProblem::getTrust() const {
    const Orvane::GenRect<int>& b = pattern.getBounds();
    const float r = 1 / std::sqrt(float(b.w * b.h));
    return AffineTransform(0.5f, 0.5f, r, r, r, r);
}

void AffineProblem::getMatrix(KrGenMatrix<float>& m) const {
    xform.getMatrix(m);
}

void AffineProblem::getMatrix(KrGenMatrix<double>& m) const {
    xform.getMatrix(m);
}

void AffineProblem::getMatrix(const KrGenVector<float>& v, KrGenMatrix<float>& m) const {
    AffineTransform t = xform;
    unpack(v, t);
    t.getMatrix(m);
}

void AffineProblem::getMatrix(const KrGenVector<float>& v, KrGenMatrix<double>& m) const {
    AffineTransform t = xform;
    unpack(v, t);
    t.getMatrix(m);
}

void AffineProblem::project(const KrGenVector<float>& v, Orvane::Image& src,
                            Orvane::Image& dst) const {
    float elements[6];
    KrGenMatrix<float> m(elements, 2, 3, KrGenMatrix<float>::RowMajor);
    getMatrix(v, m);
    // The second point is the centre, the first the anchor.
    if (interpolation == Orvane::Interpolation::Bilinear) {
        Orvane::xform_bilinear<float>(src, dst, m, centre, anchor);
        return;
    }
    float full[6];
    Orvane::centredMatrix(m, centre, anchor, full);
    const KrGenMatrix<float> composed(full, 2, 3, KrGenMatrix<float>::RowMajor);
    if (interpolation == Orvane::Interpolation::Bicubic)
        Orvane::xform_bicubic(src, dst, composed);
    else
        Orvane::xform_bspline(src, dst, composed);
}

void AffineProblem::warpMatrix(const KrGenVector<float>& v, float (&full)[6]) const {
    float elements[6];
    KrGenMatrix<float> m(elements, 2, 3, KrGenMatrix<float>::RowMajor);
    getMatrix(v, m);
    // The second point is the centre, the first the anchor, as in project.
    Orvane::centredMatrix(m, centre, anchor, full);
}

void AffineProblem::warpRows(const float (&full)[6], float* out) const {
    const Orvane::GenRect<int>& pb = pattern.getBounds();
    const int nc = search.getFormat().getNumChannels();
    // The spline samples its coefficients, fitted to the search image in setX.
    const Orvane::Image& from =
        interpolation == Orvane::Interpolation::BSpline ? fitted.get() : search;
    const auto* src = static_cast<const unsigned char*>(from.getBuffer());
    auto* dst = reinterpret_cast<unsigned char*>(out);
    const int64_t dstStride = int64_t(pb.w) * nc * int64_t(sizeof(float));
    const Orvane::GenRect<int>& sb = from.getBounds();
    switch (interpolation) {
    case Orvane::Interpolation::Bilinear:
        Orvane::_bilinearRows<float>(src, sb, from.getStride(), nc, pb, dst, dstStride, full);
        break;
    case Orvane::Interpolation::Bicubic:
        Orvane::_bicubicRows<float>(src, sb, from.getStride(), nc, pb, dst, dstStride, full);
        break;
    case Orvane::Interpolation::BSpline:
        Orvane::_bsplineRows(src, sb, from.getStride(), nc, pb, dst, dstStride, full);
        break;
    }
}

void AffineProblem::projectNormalised(const KrGenVector<float>& v, float* out, int count) const {
    float full[6];
    warpMatrix(v, full);
    warpRows(full, out);
    KrGenVector<float> pixels(out, count, false);
    unbias(pixels);
}

void AffineProblem::projectFast(const KrGenVector<float>& v, float* out, int count) const {
    float full[6];
    warpMatrix(v, full);
    warpRows(full, out);
    double mean, sigma;
    if (Krovel::_moments(out, count, mean, sigma)) {
        Krovel::_normalise(out, count, mean, sigma);
        return;
    }
    KrGenVector<float> pixels(out, count, false);
    unbias(pixels);
}

// The shared trial warps are bilinear; the other interpolants, and the
// reference, warp each trial on its own and normalise in two passes, in
// setX as in evalDy, so that base and trials round alike.
bool AffineProblem::fastPath() const {
    return !referencePath && interpolation == Orvane::Interpolation::Bilinear;
}

void AffineProblem::setX(const KrGenVector<float>& v) {
    // A private copy: a solver that sees its trial vector unshared reuses it.
    if (x.length() != v.length() || x.refCount() != 1)
        x = KrGenVector<float>(v.length());
    x.set(v);
    projected.allocate(pattern.getBounds(), search.getFormat());
    const Orvane::GenRect<int>& b = projected.getBounds();
    if (warpsDirectly(search) && b.w > 0 && b.h > 0) {
        if (interpolation == Orvane::Interpolation::BSpline && fittedTo != search) {
            fitted.fit(search);
            fittedTo = search;
        }
        float* pixels;
        projected.getBuffer(pixels);
        const int count = search.getFormat().getNumChannels() * b.w * b.h;
        if (!fastPath())
            projectNormalised(x, pixels, count);
        else
            projectFast(x, pixels, count);
        return;
    }
    project(x, search, projected);
    projected = Orvane::convertToDatatype(projected, Orvane::FLOAT);
    KrGenVector<float> pixels = wrapPixels(projected);
    unbias(pixels);
}

void AffineProblem::evalY(KrGenVector<float>& y) {
    flattenImage(projected, y);
}

void AffineProblem::evalDy(KrGenMatrix<float>& dy) {
    const int n = xlength();
    const KrGenVector<float> current = wrapPixels(projected);
    const int count = current.length();
    const float* base = current.data();
    baseX.resize(x.length());
    baseX.set(x);
    basePixels.resize(count);
    basePixels.set(current);
    baseHeld = true;
    const bool direct = warpsDirectly(search) && count > 0;
    if (direct && fastPath()) {
        // Column-major whatever the caller's layout: each column is then one
        // contiguous run, for the difference pass here and the solver's sums.
        dy.resize(count, n, KrGenMatrix<float>::ColumnMajor);
        differencesFast(dy, base, count);
        return;
    }
    dy.resize(count, n, KrGenMatrix<float>::AnyLayout);
    const ptrdiff_t rowStep = dy.rowStride();

    trialX.resize(x.length());
    if (direct)
        trialY.resize(count);
    for (int j = 0; j < n; ++j) {
        trialX.set(x);
        trialX(j) += kStep;
        if (direct) {
            projectNormalised(trialX, trialY.data(), count);
        } else {
            trial.allocate(pattern.getBounds(), search.getFormat());
            project(trialX, search, trial);
            flattenImage(Orvane::convertToDatatype(trial, Orvane::FLOAT), trialY);
            unbias(trialY);
        }
        const float* moved = trialY.data();
        float* column = dy.data() + ptrdiff_t(j) * dy.colStride();
        for (int i = 0; i < count; ++i)
            column[i * rowStep] = (moved[i] - base[i]) / kStep;
    }
}

void AffineProblem::differencesFast(KrGenMatrix<float>& dy, const float* base, int count) {
    const int n = xlength();
    const ptrdiff_t rowStep = dy.rowStride();
    trialX.resize(x.length());
    trialY.resize(count * n);
    // At most six parameters, so the matrices and row pointers fit the stack.
    float matrices[6][6];
    float* outputs[6];
    for (int j = 0; j < n; ++j) {
        trialX.set(x);
        trialX(j) += kStep;
        warpMatrix(trialX, matrices[j]);
        outputs[j] = trialY.data() + ptrdiff_t(j) * count;
    }
    Orvane::_bilinearRowsMany<float>(static_cast<const unsigned char*>(search.getBuffer()),
                                     search.getBounds(), search.getStride(),
                                     search.getFormat().getNumChannels(), pattern.getBounds(), n,
                                     matrices, outputs);
    for (int j = 0; j < n; ++j) {
        float* moved = trialY.data() + ptrdiff_t(j) * count;
        float* column = dy.data() + ptrdiff_t(j) * dy.colStride();
        double mean, sigma;
        if (Krovel::_moments(moved, count, mean, sigma)) {
            Krovel::_normalisedDifference(moved, count, mean, sigma, base, kStep, column, rowStep);
            continue;
        }
        KrGenVector<float> pixels(moved, count, false);
        unbias(pixels);
        for (int i = 0; i < count; ++i)
            column[i * rowStep] = (moved[i] - base[i]) / kStep;
    }
}

void AffineProblem::settle(const KrGenVector<float>& v) {
    const int n = v.length();
    bool same = baseHeld && baseX.length() == n && x.length() == n;
    // Compared bit for bit, which is certain to give the warp setX would.
    for (int i = 0; same && i < n; ++i) {
        const float a = v(i), b = baseX(i);
        uint32_t ab, bb;
        std::memcpy(&ab, &a, sizeof ab);
        std::memcpy(&bb, &b, sizeof bb);
        same = ab == bb;
    }
    if (!same) {
        setX(v);
        return;
    }
    x.set(v);
    wrapPixels(projected).set(basePixels);
}

void AffineProblem::solveHalfSize() {
    if (!half)
        half.reset(new AffineProblem());
    half->xform = xform;
    half->pattern = halvePattern.supports(pattern) ? halvePattern.apply(pattern)
                                                   : Orvane::scale(pattern, 0.5, 0.5);
    half->search =
        halveSearch.supports(search) ? halveSearch.apply(search) : Orvane::scale(search, 0.5, 0.5);
    half->anchor = Orvane::GenPoint<float>(anchor.x * 0.5f, anchor.y * 0.5f);
    half->centre = Orvane::GenPoint<float>(centre.x * 0.5f, centre.y * 0.5f);
    half->useTranslation = useTranslation;
    half->useRotation = useRotation;
    half->useScale = useScale;
    half->useStretch = useStretch;
    half->coarseToFine = true;
    half->referencePath = referencePath;
    half->execute();
    halfIterations = half->iterations + half->halfIterations;
    // The translation comes back in half-size pixels and is kept as it is:
    // the full-size solve starts from half the offset and finishes it.
    xform.tx = float(2.0 * half->xform.tx * 0.5);
    xform.ty = float(2.0 * half->xform.ty * 0.5);
    xform.ro = half->xform.ro;
    xform.sc = half->xform.sc;
    xform.st0 = half->xform.st0;
    xform.st1 = half->xform.st1;
}

void AffineProblem::execute() {
    const Orvane::GenRect<int> bounds = pattern.getBounds();
    iterations = 0;
    halfIterations = 0;
    // The search pixels may have changed under the same store.
    fittedTo = Orvane::Image();
    baseHeld = false;
    if (coarseToFine && bounds.w * bounds.h >= kCoarsePixels)
        solveHalfSize();

    projected.allocate(bounds, pattern.getFormat());
    solver.setProblem(this);

    flattenImage(pattern, goal);
    unbias(goal);
    solver.setGoal(goal);
    pack(state, xform);
    solver.setState(state);
    pack(trust, getTrust());
    solver.setTrust(trust);
    solver.solve();
    iterations = solver.getIterations();

    settle(solver.getState());
    unpack(x, xform);

    // A caller may hold the last result's linear part: it keeps its values.
    if (result.refCount() > 2)
        result = KrGenMatrix<float>();
    xform.getMatrix(result);
    resultTx = result(0, 2);
    resultTy = result(1, 2);
    if (linear.data() != result.data())
        linear = result(KrAll(), KrRange(0, 1));

    evalY(output);
    quality = float(covariance(output, goal));
}
