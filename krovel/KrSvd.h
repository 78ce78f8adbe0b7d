#pragma once

#include "krovel/KrGenMatrix.h"
#include "krovel/KrGenVector.h"

#include <limits>

/// A singular value decomposition a = U·diag(S)·Vᵀ of an m by n matrix, and
/// a truncated least-squares solve, through LAPACK gesvd (T = float or
/// double). Filled by Krovel::_svdCall; callers read the fields directly.
template <class T> class KrSvd {
public:
    /// `cutoff` is relative to the largest singular value: smaller values
    /// are dropped from a solve. The default drops only values that are zero
    /// to the precision of T.
    explicit KrSvd(float cutoff = std::numeric_limits<T>::epsilon()) : cutoff(cutoff) {}

    /// The largest singular value, 0 when there are none.
    double magnitude() const;

    /// Private copy of the right-hand side of the last solve.
    KrGenVector<T> rhs;
    /// m by n, column-major: the left singular vectors. Only the first
    /// min(m, n) columns are meaningful; the rest are 0.
    KrGenMatrix<T> U;
    /// n by n, row-major over LAPACK's column-major Vᵀ, so V(r, c) is the
    /// r-th component of the c-th right singular vector.
    KrGenMatrix<T> V;
    /// The n singular values, descending; only the first min(m, n) are
    /// meaningful, the rest are 0.
    KrGenVector<T> S;
    /// The least-squares solution of the last solve, n elements.
    KrGenVector<T> solution;
    /// Emptied by every decomposition.
    KrGenVector<T> spare;
    /// Relative threshold for small singular values in a solve.
    float cutoff;
    /// True when the last LAPACK call succeeded.
    bool ok = false;
};

namespace Krovel {

/// Decomposes `a` into `svd`; returns `svd.ok`. A NaN element throws
/// IllegalArgumentException "NaN" and an infinite one "infinite number",
/// before LAPACK is called; a LAPACK argument error throws Exception
/// "sgesvd: bad parameter %d" / "dgesvd: ...". These bypass the matrix error
/// handler. No convergence throws nothing and leaves `ok` false. Results
/// are written into fresh storage whenever the previous results are shared,
/// so handles taken from an earlier call keep their values.
template <class T> bool _svdCall(KrSvd<T>& svd, const KrGenMatrix<T>& a);

/// Decomposes `a` and solves a·x ≈ b in the least-squares sense into
/// `svd.solution`, ignoring singular values at or below cutoff × magnitude.
/// b must have a.rows() elements ("KrVector length mismatch %d != %d",
/// through KrMatrixError::err). Returns `svd.ok`; without it nothing is solved.
template <class T> bool _svdCall(KrSvd<T>& svd, const KrGenMatrix<T>& a, const KrGenVector<T>& b);

} // namespace Krovel

extern template class KrSvd<float>;
extern template class KrSvd<double>;
