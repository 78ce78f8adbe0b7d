#pragma once

#include "krovel/KrGenMatrix.h"
#include "krovel/KrGenVector.h"
#include "krovel/KrLMProblem.h"

#include <cstdint>
#include <vector>

class KrMatchmove;

/// The fit of one frame's homography for KrLMSolver.
///
/// The eight parameters are the first eight elements of H in column-major
/// order, H(0,0), H(1,0), H(2,0), H(0,1), H(1,1), H(2,1), H(0,2), H(1,2), with
/// H(2, 2) fixed at 1. The outputs are, for each active track, its base point
/// carried by H and multiplied by its weight in the frame, (w·x, w·y); the
/// goal holds the observed positions weighted alike, so the solver minimises
/// Σ w²·|observed − projected|².
class KrMatchmoveProblem : public KrLMProblem {
public:
    /// The tracks present in `frame` and in the base frame (both weights
    /// above 0), in track order. `m` is not owned, must outlive the problem
    /// and must have set up its base points (KrMatchmove::solve does). A null
    /// `m` throws NullPointerException, a frame outside the tracks or base
    /// points not set up throw IllegalArgumentException.
    KrMatchmoveProblem(KrMatchmove* m, int frame);
    ~KrMatchmoveProblem() override = default;

    KrMatchmoveProblem(const KrMatchmoveProblem&) = delete;
    KrMatchmoveProblem& operator=(const KrMatchmoveProblem&) = delete;

    /// Shares `x` (8 parameters), rebuilds H from it and projects.
    void setX(const KrGenVector<float>& x) override;
    /// Makes `y` share the outputs at the current parameters.
    void evalY(KrGenVector<float>& y) override;
    /// Forward differences with a fixed step of 0.0001 in every parameter,
    /// (2 × active count) by 8. The differences are taken in double, so the
    /// step is not lost to the rounding of pixel-sized outputs.
    void evalDy(KrGenMatrix<float>& dy) override;

    /// The observed positions, weighted: (w·x, w·y) per active track.
    KrGenVector<float> getGoal() const;
    /// `out` (resized to 2 × active count) = the active tracks' base points
    /// carried by `H` (3 by 3, read whole), each multiplied by its weight.
    void project(const KrGenMatrix<float>& H, KrGenVector<float>& out) const;

    /// Weights an active count by 2 matrix of points into the output layout.
    /// Another shape reports through KrMatrixError.
    void yToVector(const KrGenMatrix<float>& pts, KrGenVector<float>& v) const;
    /// The inverse of yToVector: `pts` is resized to active count by 2. A
    /// vector of another length reports through KrMatrixError.
    void yToMatrix(const KrGenVector<float>& v, KrGenMatrix<float>& pts) const;

    /// Copies the eight parameters out of `H` (3 by 3, any layout); H(2, 2)
    /// is not read, so `H` must already be scaled to make it 1.
    static void xToVector(const KrGenMatrix<float>& H, KrGenVector<float>& v);
    /// Resizes `H` to 3 by 3 column-major, copies the eight parameters in and
    /// sets H(2, 2) = 1.
    static void xToMatrix(const KrGenVector<float>& v, KrGenMatrix<float>& H);

    int getActiveCount() const { return activeCount; }
    /// Indices into the matchmove's tracks, in track order.
    const KrGenVector<int>& getActiveTracks() const { return activeTracks; }
    int getFrame() const { return frame; }
    /// The homography of the current parameters.
    const KrGenMatrix<float>& getH() const { return H; }

private:
    // Projects the active base points under the column-major `h`, weighted,
    // into `out` (2 × active count doubles).
    void projectInto(const double* h, double* out) const;

    KrGenVector<float> x;
    KrGenVector<float> y;
    KrGenMatrix<float> H;
    // The solver this problem belongs to; kept for callers that walk back.
    [[maybe_unused]] KrMatchmove* owner = nullptr;
    int32_t activeCount = 0;
    KrGenVector<int> activeTracks;
    int32_t frame = 0;

    // Per active track, gathered once: base point (X, Y) and frame weight,
    // then the observed position. Contiguous, so projection is one loop.
    std::vector<double> bases;
    std::vector<double> weights;
    std::vector<double> observed;
    // The outputs at x before rounding, and one trial of evalDy.
    std::vector<double> current;
    std::vector<double> trial;
};
