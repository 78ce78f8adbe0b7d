#pragma once

#include "krovel/KrGenMatrix.h"

/// The inverse of a square matrix by LU factorisation (LAPACK getrf and
/// getri), as a new column-major matrix. A singular matrix reports
/// "inverse: singular matrix", a non-square one "inverse: matrix %d by %d is
/// not square", through KrMatrixError::err; with a handler installed the
/// partially computed matrix is returned.
KrGenMatrix<float> inverse(const KrGenMatrix<float>& a);
KrGenMatrix<double> inverse(const KrGenMatrix<double>& a);

/// The determinant from an LU factorisation (dgetrf). A singular matrix is an
/// error ("inverse: singular matrix"), not a zero determinant. The sign flips
/// once for every pivot entry, counted from 1 as LAPACK returns it, that
/// differs from its index counted from 0: so the identity of size n comes out
/// as (-1)^n times (-1)^n = 1, and [[3]] as -3. A 0 by 0 matrix gives 1.
double determinant(const KrGenMatrix<double>& a);
