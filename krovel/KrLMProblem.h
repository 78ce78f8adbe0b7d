#pragma once

#include "krovel/KrGenMatrix.h"
#include "krovel/KrGenVector.h"

/// A least-squares problem for KrLMSolver: a map from nx parameters `x` to
/// ny outputs `y`, with its Jacobian. The solver tells the problem its
/// parameters with `setX` and then asks for outputs and derivatives at them;
/// the problem holds no reference to the solver.
class KrLMProblem {
public:
    virtual ~KrLMProblem() = default;

    /// Makes `x` the current parameters. The problem may keep a handle on
    /// `x` (sharing its storage) or copy it; the solver does not change the
    /// elements of a vector it has handed over until it calls `setX` again.
    virtual void setX(const KrGenVector<float>& x) = 0;

    /// Writes the outputs at the current parameters into `y`, resizing it to
    /// ny. `y` may be made to share storage of the problem's own; the solver
    /// copies it where it needs privacy.
    virtual void evalY(KrGenVector<float>& y) = 0;

    /// Writes the Jacobian at the current parameters into `dy`, ny rows by nx
    /// columns: dy(i, j) is the change of y[i] per unit change of x[j].
    virtual void evalDy(KrGenMatrix<float>& dy) = 0;
};
