#pragma once

#include "krovel/KrGenMatrix.h"

/// The inverse of a square matrix by LU factorisation (LAPACK getrf and
/// getri), as a new column-major matrix. A singular matrix reports
/// "inverse: singular matrix", a non-square one "inverse: matrix %d by %d is
/// not square", through KrMatrixError::err; with a handler installed the
/// partially computed matrix is returned.
KrGenMatrix<float> inverse(const KrGenMatrix<float>& a);
KrGenMatrix<double> inverse(const KrGenMatrix<double>& a);

/// inverse() with its storage kept from call to call: the factor, the
/// pivots and the LAPACK workspace, whose size is asked for once per matrix
/// size. For a square matrix of a size seen before, `invert` allocates
/// nothing of its own (LAPACK's internal buffers are its business). T is
/// float or double.
template <class T> class KrInverter {
public:
    /// The inverse of `a`, computed as inverse() computes it, in a
    /// column-major matrix held here until the next call. Errors as inverse().
    const KrGenMatrix<T>& invert(const KrGenMatrix<T>& a);

private:
    KrGenMatrix<T> result;
    KrGenVector<int> pivots;
    KrGenVector<T> work;
    int queried = -1;
    int lwork = 0;
};

extern template class KrInverter<float>;
extern template class KrInverter<double>;

/// The determinant from an LU factorisation (dgetrf). A singular matrix is an
/// error ("inverse: singular matrix"), not a zero determinant. The sign flips
/// once for every pivot entry, counted from 1 as LAPACK returns it, that
/// differs from its index counted from 0: so the identity of size n comes out
/// as (-1)^n times (-1)^n = 1, and [[3]] as -3. A 0 by 0 matrix gives 1.
double determinant(const KrGenMatrix<double>& a);
