#include "krovel/KrVectorKernels.h"

#include <immintrin.h>

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

namespace {

#define TAVRIX_AVX2 __attribute__((target("avx2")))

bool avx2Present() {
    static const bool present = [] {
        __builtin_cpu_init();
        return __builtin_cpu_supports("avx2") != 0;
    }();
    return present;
}

// Four lanes of sums over offsets from the first value, added pairwise at
// the end. The offsets keep a large mean from swamping the spread, and a flat
// run sums to exactly zero. The AVX2 twin does the same operations per
// lane, so both give the same bits.
__attribute__((always_inline)) inline void momentSums(const float* p, int n, double& sum,
                                                      double& squares) {
    const double origin = p[0];
    double s[4] = {0, 0, 0, 0};
    double q[4] = {0, 0, 0, 0};
    int i = 0;
    for (; i + 4 <= n; i += 4) {
        for (int k = 0; k < 4; ++k) {
            const double d = double(p[i + k]) - origin;
            s[k] += d;
            q[k] += d * d;
        }
    }
    for (int k = 0; i < n; ++i, ++k) {
        const double d = double(p[i]) - origin;
        s[k] += d;
        q[k] += d * d;
    }
    sum = (s[0] + s[1]) + (s[2] + s[3]);
    squares = (q[0] + q[1]) + (q[2] + q[3]);
}

// momentSums with each lane of a vector one of its four running sums.
TAVRIX_AVX2 void momentSumsAvx2(const float* p, int n, double& sum, double& squares) {
    const double origin = p[0];
    const __m256d o = _mm256_set1_pd(origin);
    __m256d s = _mm256_setzero_pd(), q = _mm256_setzero_pd();
    int i = 0;
    for (; i + 4 <= n; i += 4) {
        const __m256d d = _mm256_sub_pd(_mm256_cvtps_pd(_mm_loadu_ps(p + i)), o);
        s = _mm256_add_pd(s, d);
        q = _mm256_add_pd(q, _mm256_mul_pd(d, d));
    }
    alignas(32) double sl[4], ql[4];
    _mm256_store_pd(sl, s);
    _mm256_store_pd(ql, q);
    for (int k = 0; i < n; ++i, ++k) {
        const double d = double(p[i]) - origin;
        sl[k] += d;
        ql[k] += d * d;
    }
    sum = (sl[0] + sl[1]) + (sl[2] + sl[3]);
    squares = (ql[0] + ql[1]) + (ql[2] + ql[3]);
}

__attribute__((always_inline)) inline void normalisedDifference(const float* p, int n, double mean,
                                                                double sigma, const float* base,
                                                                float step, float* out) {
    for (int i = 0; i < n; ++i)
        out[i] = (static_cast<float>((p[i] - mean) / sigma) - base[i]) / step;
}

TAVRIX_AVX2 void normalisedDifferenceAvx2(const float* p, int n, double mean, double sigma,
                                          const float* base, float step, float* out) {
    normalisedDifference(p, n, mean, sigma, base, step, out);
}

__attribute__((always_inline)) inline void normalise(float* p, int n, double mean, double sigma) {
    for (int i = 0; i < n; ++i)
        p[i] = static_cast<float>((p[i] - mean) / sigma);
}

TAVRIX_AVX2 void normaliseAvx2(float* p, int n, double mean, double sigma) {
    normalise(p, n, mean, sigma);
}

} // namespace

bool _moments(const float* p, int n, double& mean, double& sigma) {
    if (n < 1)
        return false;
    double sum, squares;
    if (avx2Present())
        momentSumsAvx2(p, n, sum, squares);
    else
        momentSums(p, n, sum, squares);
    const double offset = sum / n;
    const double meanSquare = squares / n;
    const double variance = meanSquare - offset * offset;
    // Cancellation costs the one-pass variance about one double rounding of
    // the mean square; below 1e-8 of it that would reach float rounding.
    if (!(variance > 1e-8 * meanSquare))
        return false;
    mean = double(p[0]) + offset;
    sigma = std::sqrt(variance);
    return true;
}

void _normalise(float* p, int n, double mean, double sigma) {
    if (avx2Present())
        normaliseAvx2(p, n, mean, sigma);
    else
        normalise(p, n, mean, sigma);
}

void _normalisedDifference(const float* p, int n, double mean, double sigma, const float* base,
                           float step, float* out, ptrdiff_t outStride) {
    if (outStride != 1) {
        for (int i = 0; i < n; ++i)
            out[i * outStride] = (static_cast<float>((p[i] - mean) / sigma) - base[i]) / step;
    } else if (avx2Present()) {
        normalisedDifferenceAvx2(p, n, mean, sigma, base, step, out);
    } else {
        normalisedDifference(p, n, mean, sigma, base, step, out);
    }
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
