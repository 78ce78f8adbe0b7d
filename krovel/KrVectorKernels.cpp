#include "krovel/KrVectorKernels.h"

#include <cmath>

namespace Krovel {

template <class T> T _vector_sum(const T* p, int n) {
    T sum = 0;
    for (int i = 0; i < n; ++i)
        sum += p[i];
    return sum;
}

template <class T> T _vector_sum(const T* p, int n, int stride) {
    if (stride == 1)
        return _vector_sum(p, n);
    T sum = 0;
    for (int i = 0; i < n; ++i, p += stride)
        sum += *p;
    return sum;
}

template <class T> T _vector_norm2(const T* p, int n) {
    T sum = 0;
    for (int i = 0; i < n; ++i)
        sum += p[i] * p[i];
    return sum;
}

template <class T> T _vector_norm2(const T* p, int n, int stride) {
    if (stride == 1)
        return _vector_norm2(p, n);
    T sum = 0;
    for (int i = 0; i < n; ++i, p += stride)
        sum += *p * *p;
    return sum;
}

template <class T> T _vector_sum_2(const T* p, int n) {
    if (n == 4)
        return p[0] + p[1] + p[2] + p[3];
    if (n == 8)
        return p[0] + p[1] + p[2] + p[3] + p[4] + p[5] + p[6] + p[7];
    if (n < 8)
        return _vector_sum(p, n);
    const int half = n / 2;
    return _vector_sum_2(p, half) + _vector_sum_2(p + half, n - half);
}

template <class T> T _vector_norm2_2(const T* p, int n) {
    if (n == 4)
        return p[0] * p[0] + p[1] * p[1] + p[2] * p[2] + p[3] * p[3];
    if (n == 8)
        return p[0] * p[0] + p[1] * p[1] + p[2] * p[2] + p[3] * p[3] + p[4] * p[4] + p[5] * p[5] +
               p[6] * p[6] + p[7] * p[7];
    if (n < 8)
        return _vector_norm2(p, n);
    const int half = n / 2;
    return _vector_norm2_2(p, half) + _vector_norm2_2(p + half, n - half);
}

template float _vector_sum(const float*, int);
template double _vector_sum(const double*, int);
template float _vector_sum(const float*, int, int);
template double _vector_sum(const double*, int, int);
template float _vector_norm2(const float*, int);
template double _vector_norm2(const double*, int);
template float _vector_norm2(const float*, int, int);
template double _vector_norm2(const double*, int, int);
template float _vector_sum_2(const float*, int);
template double _vector_sum_2(const double*, int);
template float _vector_norm2_2(const float*, int);
template double _vector_norm2_2(const double*, int);

} // namespace Krovel

double covariance(const KrGenVector<float>& a, const KrGenVector<float>& b) {
    const int n = a.length();
    if (b.length() != n)
        KrMatrixError::err("KrVector length mismatch %d != %d", n, b.length());
    // Past a reported mismatch (a handler is installed) the common part is used.
    const int m = n < b.length() ? n : b.length();
    const float* p = a.data();
    const float* q = b.data();
    const int ps = a.stride();
    const int qs = b.stride();
    double sa = 0, sb = 0, sab = 0;
    if (ps == 1 && qs == 1) {
        for (int i = 0; i < m; ++i) {
            sa += p[i];
            sb += q[i];
            sab += double(p[i]) * q[i];
        }
    } else {
        for (int i = 0; i < m; ++i, p += ps, q += qs) {
            sa += *p;
            sb += *q;
            sab += double(*p) * *q;
        }
    }
    return sab / n - (sa / n) * (sb / n);
}

namespace {

template <class T> bool finiteLine(const T* p, int n, int stride) {
    if (stride == 1) {
        for (int i = 0; i < n; ++i)
            if (!std::isfinite(p[i]))
                return false;
        return true;
    }
    for (int i = 0; i < n; ++i, p += stride)
        if (!std::isfinite(*p))
            return false;
    return true;
}

template <class T> bool finiteMatrix(const KrGenMatrix<T>& m) {
    const T* p = m.data();
    // Walk along whichever dimension is contiguous.
    if (m.rowStride() == 1 && m.colStride() != 1) {
        for (int c = 0; c < m.cols(); ++c, p += m.colStride())
            if (!finiteLine(p, m.rows(), 1))
                return false;
        return true;
    }
    for (int r = 0; r < m.rows(); ++r, p += m.rowStride())
        if (!finiteLine(p, m.cols(), m.colStride()))
            return false;
    return true;
}

} // namespace

bool finite(const KrGenMatrix<double>& m) {
    return finiteMatrix(m);
}
bool finite(const KrGenVector<double>& v) {
    return finiteLine(v.data(), v.length(), v.stride());
}
bool finite(const KrGenMatrix<float>& m) {
    return finiteMatrix(m);
}
bool finite(const KrGenVector<float>& v) {
    return finiteLine(v.data(), v.length(), v.stride());
}
