#include "krovel/KrInverse.h"

#include "krovel/KrLapack.h"

#include <cmath>
#include <limits>

namespace {

struct FloatLapack {
    static constexpr const char* getrfName = "sgetrf";
    static constexpr const char* getriName = "sgetri";
    static void getrf(const int* m, const int* n, float* a, const int* lda, int* ipiv, int* info) {
        sgetrf_(m, n, a, lda, ipiv, info);
    }
    static void getri(const int* n, float* a, const int* lda, const int* ipiv, float* work,
                      const int* lwork, int* info) {
        sgetri_(n, a, lda, ipiv, work, lwork, info);
    }
};

struct DoubleLapack {
    static constexpr const char* getrfName = "dgetrf";
    static constexpr const char* getriName = "dgetri";
    static void getrf(const int* m, const int* n, double* a, const int* lda, int* ipiv, int* info) {
        dgetrf_(m, n, a, lda, ipiv, info);
    }
    static void getri(const int* n, double* a, const int* lda, const int* ipiv, double* work,
                      const int* lwork, int* info) {
        dgetri_(n, a, lda, ipiv, work, lwork, info);
    }
};

// LAPACK reports a bad argument by printing from its own error routine, so
// shapes it would refuse are stopped here first.
bool square(int rows, int cols) {
    if (rows == cols)
        return true;
    KrMatrixError::err("inverse: matrix %d by %d is not square", rows, cols);
    return false;
}

template <class T> struct LapackOf;
template <> struct LapackOf<float> { using type = FloatLapack; };
template <> struct LapackOf<double> { using type = DoubleLapack; };

} // namespace

template <class T> const KrGenMatrix<T>& KrInverter<T>::invert(const KrGenMatrix<T>& a) {
    using Lapack = typename LapackOf<T>::type;
    const int m = a.rows();
    const int n = a.cols();
    result.resize(m, n, KrGenMatrix<T>::ColumnMajor);
    result.set(a);
    if (!square(m, n) || n <= 0)
        return result;
    pivots.resize(n);
    int info = 0;
    Lapack::getrf(&m, &n, result.data(), &m, pivots.data(), &info);
    if (info < 0)
        KrMatrixError::err("%s", Lapack::getrfName);
    else if (info > 0)
        KrMatrixError::err("inverse: singular matrix");

    // The optimal workspace depends on the size alone, so it is asked for
    // once per size; a workspace query never touches the matrix.
    if (queried != n) {
        T size = 0;
        int query = -1;
        Lapack::getri(&n, result.data(), &m, pivots.data(), &size, &query, &info);
        // Both precisions share the double form's text.
        if (info < 0)
            KrMatrixError::err("dgetri workspace query");
        lwork = int(size);
        work.resize(lwork > 1 ? lwork : 1);
        queried = n;
    }
    Lapack::getri(&n, result.data(), &m, pivots.data(), work.data(), &lwork, &info);
    if (info < 0)
        KrMatrixError::err("%s", Lapack::getriName);
    else if (info > 0)
        KrMatrixError::err("inverse: singular matrix");
    return result;
}

template class KrInverter<float>;
template class KrInverter<double>;

namespace {

template <class T> KrGenMatrix<T> invert(const KrGenMatrix<T>& a) {
    KrInverter<T> inverter;
    return inverter.invert(a);
}

} // namespace

KrGenMatrix<float> inverse(const KrGenMatrix<float>& a) {
    return invert(a);
}

KrGenMatrix<double> inverse(const KrGenMatrix<double>& a) {
    return invert(a);
}

double determinant(const KrGenMatrix<double>& a) {
    const int m = a.rows();
    const int n = a.cols();
    if (!square(m, n))
        return std::numeric_limits<double>::quiet_NaN();
    if (n <= 0)
        return 1.0;
    KrGenMatrix<double> r = a.copy(KrGenMatrix<double>::ColumnMajor);
    KrGenVector<int> pivots(n, 0);
    int info = 0;
    dgetrf_(&m, &n, r.data(), &m, pivots.data(), &info);
    if (info < 0)
        KrMatrixError::err("dgetrf");
    else if (info > 0)
        KrMatrixError::err("inverse: singular matrix");

    double det = 1.0;
    const double* diagonal = r.data();
    for (int i = 0; i < n; ++i, diagonal += n + 1) {
        // The 1-based pivot is compared with the 0-based index deliberately:
        // the sign this gives is part of the contract.
        if (pivots(i) != i)
            det = -det;
        det *= *diagonal;
    }
    return det;
}
