#pragma once

#include "krovel/KrGenMatrix.h"
#include "krovel/KrGenVector.h"
#include "krovel/KrInverse.h"
#include "krovel/KrLMProblem.h"

#include <cstdint>

/// A single-precision Levenberg–Marquardt solver: moves the state `x` of a
/// KrLMProblem so that its outputs approach a goal vector.
///
/// Use: construct, `setProblem`, `setGoal`, `setState`, optionally
/// `setTrust`, then `solve` and read `getState`. The solver shares the
/// storage of the vectors it is given, so the caller's state vector holds the
/// best accepted state when `solve` returns. The problem is not owned.
///
/// Each iteration damps the diagonal of the normal matrix multiplicatively
/// (by 1 + λ), and λ shrinks tenfold after every trial, accepted or not. The
/// solve ends when the iteration limit is reached or after `stallLimit`
/// consecutive trials whose relative gain is at most `tolerance`; that last
/// trial is discarded even when it improved the error.
class KrLMSolver {
public:
    KrLMSolver() = default;
    virtual ~KrLMSolver() = default;

    KrLMSolver(const KrLMSolver&) = delete;
    KrLMSolver& operator=(const KrLMSolver&) = delete;

    /// The problem to solve; not owned, and it must outlive every `solve`.
    void setProblem(KrLMProblem* p) { problem = p; }

    /// Shares the storage of `x0` as the state (no copy) and takes nx from
    /// its length. Accepted steps are written into that storage.
    void setState(const KrGenVector<float>& x0);

    /// Shares the storage of `g` as the target outputs and takes ny from its
    /// length.
    void setGoal(const KrGenVector<float>& g);

    /// Shares the storage of `t`: the size of a unit step in each parameter.
    /// With a trust vector, steps are bounded to unit length before scaling
    /// by it. `t` has nx elements, or none for raw, unbounded steps.
    void setTrust(const KrGenVector<float>& t) { trust.reference(t); }

    /// The current, best accepted state.
    KrGenVector<float>& getState() { return x; }
    const KrGenVector<float>& getState() const { return x; }

    /// The Euclidean distance of `v` from the goal over the length of `v`
    /// (not checked against the goal's length up front: a shorter goal is
    /// reported by its index check).
    float computeEpsilon(const KrGenVector<float>& v) const;

    /// Runs the iteration from the current state. Afterwards the problem may
    /// still hold the last rejected trial: call `setX(getState())` on it
    /// before reading its outputs at the solution.
    ///
    /// A non-finite entry of the normal matrix or of its damped diagonal
    /// throws Exception "nan"; a singular normal matrix reports "inverse:
    /// singular matrix" through KrMatrixError. In either case the state
    /// holds the last accepted value. Without a problem it throws
    /// NullPointerException "KrLMSolver::solve: no problem".
    void solve();

    /// The trials the last `solve` made: 0 when it ended before the first.
    int getIterations() const { return iterations; }

private:
    /// Sizes the scratch for this solve's parameter count.
    void sizeScratch();
    /// The damped step from the current Jacobian and outputs into `step`;
    /// false when the Jacobian, outputs or trust are too short to read.
    /// The sums are recomputed only when `sumsFresh` is false, which it
    /// then becomes.
    bool dampedStep(float lambda, bool& sumsFresh);

    KrLMProblem* problem = nullptr;
    KrGenVector<float> x;
    KrGenVector<float> goal;
    KrGenVector<float> y;
    KrGenVector<float> trust;
    KrGenMatrix<float> dy;
    int32_t nx = 0;
    int32_t ny = 0;
    int iterations = 0;

    // Scratch kept from solve to solve, so that repeated solves of one size
    // allocate nothing. Every element is rewritten before it is read.
    KrGenMatrix<float> normal;
    KrGenVector<double> sums;
    KrGenVector<float> g;
    KrGenVector<float> gradientSums;
    KrGenVector<float> step;
    KrGenVector<float> trialX;
    KrGenVector<float> trialY;
    // Systems of more than eight parameters, and singular ones, are solved
    // (or reported) by LAPACK; smaller ones in place.
    KrInverter<float> inverter;
    mutable KrGenVector<float> difference;

protected:
    // Every solver runs with these values; there are no setters. They are
    // protected so that a specialised solver (or a test) can pin them.

    /// Consecutive insignificant trials that end the solve.
    int32_t stallLimit = 6;
    /// Bound on the iteration counter, which starts at 1: at most
    /// iterationLimit - 1 trials, and none below 2.
    int32_t iterationLimit = 75;
    /// Not read by `solve`.
    float spareTolerance = 0.001f;
    /// Relative gain (ε − εₜ) / (|ε| + 1) above which a trial is significant.
    float tolerance = 0.01f;
    /// After a rejected trial that leaves λ below 0.05, restart the stall count.
    bool resetStallOnSmallDamping = false;
};
