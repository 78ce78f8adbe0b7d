#include "krovel/KrSvd.h"

#include "krovel/KrLapack.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

template <class T> double KrSvd<T>::magnitude() const {
    if (S.length() <= 0)
        return 0;
    double largest = S(0);
    for (int i = 1; i < S.length(); ++i)
        largest = std::max(largest, double(S(i)));
    return largest;
}

template class KrSvd<float>;
template class KrSvd<double>;

namespace {

void gesvd(const int* m, const int* n, float* a, float* s, float* u, float* vt, float* work,
           const int* lwork, int* info) {
    const char jobu = 'S', jobvt = 'A';
    sgesvd_(&jobu, &jobvt, m, n, a, m, s, u, m, vt, n, work, lwork, info, 1, 1);
}

void gesvd(const int* m, const int* n, double* a, double* s, double* u, double* vt, double* work,
           const int* lwork, int* info) {
    const char jobu = 'S', jobvt = 'A';
    dgesvd_(&jobu, &jobvt, m, n, a, m, s, u, m, vt, n, work, lwork, info, 1, 1);
}

template <class T> const char* badParameter();
template <> const char* badParameter<float>() {
    return "sgesvd: bad parameter %d";
}
template <> const char* badParameter<double>() {
    return "dgesvd: bad parameter %d";
}

// LAPACK writes contiguous results, and a caller may still hold the previous
// ones: reuse storage only when it is private, contiguous and of the shape.
template <class T>
void prepare(KrGenMatrix<T>& m, int rows, int cols, typename KrGenMatrix<T>::Layout l) {
    if (m.refCount() > 1)
        m = KrGenMatrix<T>(rows, cols, l);
    else
        m.resize(rows, cols, l);
    m = T(0);
}

template <class T> void prepare(KrGenVector<T>& v, int n) {
    if (v.refCount() > 1 || v.stride() != 1)
        v = KrGenVector<T>(n, T(0));
    else
        v.resize(n);
    v = T(0);
}

// Column-major and contiguous, as the copy made for LAPACK is.
template <class T> void checkFinite(const KrGenMatrix<T>& c) {
    const T* p = c.data();
    const int count = c.rows() * c.cols();
    for (int i = 0; i < count; ++i) {
        if (std::isnan(p[i]))
            throw IllegalArgumentException("NaN");
        if (std::isinf(p[i]))
            throw IllegalArgumentException("infinite number");
    }
}

} // namespace

namespace Krovel {

template <class T> bool _svdCall(KrSvd<T>& svd, const KrGenMatrix<T>& a) {
    using Matrix = KrGenMatrix<T>;
    const int m = a.rows() > 0 ? a.rows() : 0;
    const int n = a.cols() > 0 ? a.cols() : 0;
    Matrix c = a.copy(Matrix::ColumnMajor);
    prepare(svd.U, m, n, Matrix::ColumnMajor);
    prepare(svd.V, n, n, Matrix::RowMajor);
    prepare(svd.S, n);
    prepare(svd.solution, n);
    svd.spare.resize(0);
    checkFinite(c);

    // LAPACK refuses empty shapes (leading dimensions must be at least 1);
    // an empty matrix has no singular values to find.
    if (m == 0 || n == 0) {
        svd.ok = true;
        return true;
    }
    const int lwork = std::max(10 * std::max(m, n), 2 * m * n);
    KrGenVector<T> work(lwork, T(0));
    int info = 0;
    gesvd(&m, &n, c.data(), svd.S.data(), svd.U.data(), svd.V.data(), work.data(), &lwork, &info);
    svd.ok = info == 0;
    if (info < 0)
        throw Exception(dstring::format(badParameter<T>(), -info));
    return svd.ok;
}

template <class T> bool _svdCall(KrSvd<T>& svd, const KrGenMatrix<T>& a, const KrGenVector<T>& b) {
    const int m = a.rows() > 0 ? a.rows() : 0;
    if (b.length() != m)
        KrMatrixError::err("KrVector length mismatch %d != %d", m, b.length());
    svd.rhs = b.copy();
    if (!_svdCall(svd, a))
        return false;

    const int n = svd.S.length();
    // Past a reported mismatch (a handler is installed) the common part is used.
    const int rows = std::min(m, svd.rhs.length());
    const double threshold = svd.magnitude() * svd.cutoff;
    KrGenVector<T> w(n, T(0));
    const T* rhs = svd.rhs.data();
    for (int i = 0; i < n; ++i) {
        const double s = svd.S(i);
        if (!(s > threshold))
            continue;
        const T* u = svd.U.data() + ptrdiff_t(i) * svd.U.colStride();
        double dot = 0;
        for (int k = 0; k < rows; ++k)
            dot += double(u[k]) * rhs[k];
        w(i) = T(dot / s);
    }
    // V is row-major: row j holds component j of every right singular vector.
    for (int j = 0; j < n; ++j) {
        const T* v = svd.V.data() + ptrdiff_t(j) * n;
        double x = 0;
        for (int i = 0; i < n; ++i)
            x += double(v[i]) * w.data()[i];
        svd.solution(j) = T(x);
    }
    return svd.ok;
}

template bool _svdCall(KrSvd<float>&, const KrGenMatrix<float>&);
template bool _svdCall(KrSvd<double>&, const KrGenMatrix<double>&);
template bool _svdCall(KrSvd<float>&, const KrGenMatrix<float>&, const KrGenVector<float>&);
template bool _svdCall(KrSvd<double>&, const KrGenMatrix<double>&, const KrGenVector<double>&);

} // namespace Krovel
