#include "image/XformBicubic.h"

#include "base/Exception.h"
#include "image/DatatypeSwitch.h"
#include "image/XformFloor.h"

#include <immintrin.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <type_traits>

namespace Orvane {

namespace {

// One axis of a sample position: the pixel at or left of it (clamped into
// the source) and the fraction beyond it.
struct Cell {
    int64_t index;
    float frac;
};

// The bilinear warp's border rule: a position left of the first pixel
// centre or right of the last takes that pixel whole (fraction 0), so
// beyond the edge the edge pixel repeats. Positions far outside, and NaN,
// saturate before the integer conversion and clamp like any other.
inline Cell resolve(float s, int origin, int64_t last) {
    int64_t i;
    const float fl = saturatingFloor(s, i);
    i -= origin;
    Cell cell{i, s - fl};
    if (cell.index < 0 || cell.index >= last) {
        cell.index = cell.index < 0 ? 0 : last;
        cell.frac = 0.0f;
    }
    return cell;
}

// The two kernels, as the four weights of taps i - 1 .. i + 2 at fraction t
// in Horner form. The vector loop repeats these operations in this order.

// Cubic convolution, a = -0.5. At t = 0 the weights are exactly (0, 1, 0,
// 0), so pixel centres copy unchanged.
struct Keys {
    static void weights(float t, float (&w)[4]) {
        w[0] = ((-0.5f * t + 1.0f) * t - 0.5f) * t;
        w[1] = (1.5f * t - 2.5f) * t * t + 1.0f;
        w[2] = ((-1.5f * t + 2.0f) * t + 0.5f) * t;
        w[3] = (0.5f * t - 0.5f) * t * t;
    }
};

// The cubic B-spline, applied to prefiltered coefficients.
struct BSpline {
    static void weights(float t, float (&w)[4]) {
        const float u = 1.0f - t;
        w[0] = u * u * u * (1.0f / 6);
        w[1] = (0.5f * t - 1.0f) * t * t + 2.0f / 3;
        w[2] = ((-0.5f * t + 0.5f) * t + 0.5f) * t + 1.0f / 6;
        w[3] = t * t * t * (1.0f / 6);
    }
};

inline int64_t clampTap(int64_t i, int64_t last) {
    return i < 0 ? 0 : (i > last ? last : i);
}

template <class S, class K> struct CubicWarp {
    const unsigned char* src;
    GenRect<int> sb;
    int64_t srcStride;
    int nc;
    float a, b, c, d, e, f;
    int64_t lastCol, lastRow;

    CubicWarp(const unsigned char* src, const GenRect<int>& sb, int64_t srcStride, int nc,
              const float (&m)[6])
        : src(src), sb(sb), srcStride(srcStride), nc(nc), a(m[0]), b(m[1]), c(m[2]), d(m[3]),
          e(m[4]), f(m[5]), lastCol(sb.w - 1), lastRow(sb.h - 1) {}

    // Pixels x0 to x1 - 1 of row y into out (nc floats each). Positions are
    // formed as the bilinear warp forms them, so both sample the same spot.
    void pixels(int y, int x0, int x1, float* out) const {
        const float cy = static_cast<float>(y) + 0.5f;
        const float bcy = b * cy;
        const float ecy = e * cy;
        for (int x = x0; x < x1; ++x, out += nc) {
            const float cx = static_cast<float>(x) + 0.5f;
            const Cell cellX = resolve(a * cx + bcy + c - 0.5f, sb.x, lastCol);
            const Cell cellY = resolve(d * cx + ecy + f - 0.5f, sb.y, lastRow);
            float wx[4], wy[4];
            K::weights(cellX.frac, wx);
            K::weights(cellY.frac, wy);
            int64_t col[4];
            const S* rows[4];
            for (int j = 0; j < 4; ++j) {
                col[j] = clampTap(cellX.index + j - 1, lastCol) * nc;
                rows[j] = reinterpret_cast<const S*>(src + clampTap(cellY.index + j - 1, lastRow) *
                                                               srcStride);
            }
            for (int k = 0; k < nc; ++k) {
                // Down each column of taps, then across in pairs: the order
                // the vector loop's horizontal adds give.
                decltype(wy[0] * rows[0][0]) down[4];
                for (int i = 0; i < 4; ++i) {
                    down[i] = wy[0] * rows[0][col[i] + k];
                    for (int j = 1; j < 4; ++j)
                        down[i] += wy[j] * rows[j][col[i] + k];
                }
                out[k] = static_cast<float>((wx[0] * down[0] + wx[1] * down[1]) +
                                            (wx[2] * down[2] + wx[3] * down[3]));
            }
        }
    }
};

#define TAVRIX_AVX2 __attribute__((target("avx2")))

bool avx2Present() {
    static const bool present = [] {
        __builtin_cpu_init();
        return __builtin_cpu_supports("avx2") != 0;
    }();
    return present;
}

// The vector loop takes one-channel float sources whose rows are whole
// floats apart and whose offsets, and the positions around them, fit 32-bit
// lanes; anything else stays on the plain loop.
bool bicubicAvx2Takes(const GenRect<int>& sb, int64_t srcStride, int nc, const GenRect<int>& db) {
    const int64_t limit = int64_t(1) << 29;
    return avx2Present() && nc == 1 && db.w >= 8 && srcStride % int64_t(sizeof(float)) == 0 &&
           srcStride > 0 && srcStride / int64_t(sizeof(float)) * sb.h < limit &&
           std::abs(int64_t(sb.x)) < limit && std::abs(int64_t(sb.y)) < limit &&
           std::abs(int64_t(db.x)) < limit && std::abs(int64_t(db.x) + db.w) < limit;
}

// resolve() on eight positions inside ±1e9.
TAVRIX_AVX2 inline __m256i resolve8(__m256 s, int origin, int last, __m256& frac) {
    const __m256i t = _mm256_cvttps_epi32(s);
    const __m256 truncated = _mm256_cvtepi32_ps(t);
    const __m256 above = _mm256_cmp_ps(truncated, s, _CMP_GT_OQ);
    const __m256 fl = _mm256_sub_ps(truncated, _mm256_and_ps(above, _mm256_set1_ps(1.0f)));
    // The mask is -1 where the truncation was above: adding it steps down.
    __m256i i = _mm256_add_epi32(t, _mm256_castps_si256(above));
    i = _mm256_sub_epi32(i, _mm256_set1_epi32(origin));
    const __m256i lastV = _mm256_set1_epi32(last);
    const __m256i outside = _mm256_or_si256(_mm256_cmpgt_epi32(_mm256_setzero_si256(), i),
                                            _mm256_cmpgt_epi32(i, _mm256_set1_epi32(last - 1)));
    frac = _mm256_andnot_ps(_mm256_castsi256_ps(outside), _mm256_sub_ps(s, fl));
    return _mm256_min_epi32(_mm256_max_epi32(i, _mm256_setzero_si256()), lastV);
}

TAVRIX_AVX2 inline __m256 mul(__m256 a, __m256 b) {
    return _mm256_mul_ps(a, b);
}
TAVRIX_AVX2 inline __m256 add(__m256 a, __m256 b) {
    return _mm256_add_ps(a, b);
}
TAVRIX_AVX2 inline __m256 broadcast(float v) {
    return _mm256_set1_ps(v);
}

TAVRIX_AVX2 inline void weights8(Keys /*kernel*/, __m256 t, __m256 (&w)[4]) {
    w[0] = mul(add(mul(add(mul(broadcast(-0.5f), t), broadcast(1.0f)), t), broadcast(-0.5f)), t);
    w[1] = add(mul(mul(add(mul(broadcast(1.5f), t), broadcast(-2.5f)), t), t), broadcast(1.0f));
    w[2] = mul(add(mul(add(mul(broadcast(-1.5f), t), broadcast(2.0f)), t), broadcast(0.5f)), t);
    w[3] = mul(mul(add(mul(broadcast(0.5f), t), broadcast(-0.5f)), t), t);
}

TAVRIX_AVX2 inline void weights8(BSpline /*kernel*/, __m256 t, __m256 (&w)[4]) {
    const __m256 u = _mm256_sub_ps(broadcast(1.0f), t);
    const __m256 sixth = broadcast(1.0f / 6);
    w[0] = mul(mul(mul(u, u), u), sixth);
    w[1] = add(mul(mul(add(mul(broadcast(0.5f), t), broadcast(-1.0f)), t), t), broadcast(2.0f / 3));
    w[2] = add(mul(add(mul(add(mul(broadcast(-0.5f), t), broadcast(0.5f)), t), broadcast(0.5f)), t),
               sixth);
    w[3] = mul(mul(mul(t, t), t), sixth);
}

// The four clamped taps around index i, each scaled by `step`.
TAVRIX_AVX2 inline void taps8(__m256i i, int last, int step, __m256i (&tap)[4]) {
    const __m256i zero = _mm256_setzero_si256(), lastV = _mm256_set1_epi32(last);
    const __m256i stepV = _mm256_set1_epi32(step);
    for (int j = 0; j < 4; ++j) {
        const __m256i moved = _mm256_add_epi32(i, _mm256_set1_epi32(j - 1));
        tap[j] = _mm256_mullo_epi32(_mm256_min_epi32(_mm256_max_epi32(moved, zero), lastV), stepV);
    }
}

// Lanes whose four taps along an axis all lie inside 0 .. last.
TAVRIX_AVX2 inline __m256i inner8(__m256i i, int last) {
    return _mm256_and_si256(_mm256_cmpgt_epi32(i, _mm256_setzero_si256()),
                            _mm256_cmpgt_epi32(_mm256_set1_epi32(last - 1), i));
}

// value = (wx0 s0 + wx1 s1) + (wx2 s2 + wx3 s3), with s_i the column sums
// down the four rows, for eight pixels whose taps may repeat the edge.
TAVRIX_AVX2 inline __m256 gatheredBlock(const float* base, int rowFloats, int64_t lastCol,
                                        int64_t lastRow, __m256i ix, __m256i iy,
                                        const __m256 (&wx)[4], const __m256 (&wy)[4]) {
    __m256i col[4], row[4];
    taps8(ix, int(lastCol), 1, col);
    taps8(iy, int(lastRow), rowFloats, row);
    __m256 down[4];
    for (int i = 0; i < 4; ++i) {
        down[i] = mul(wy[0], _mm256_i32gather_ps(base, _mm256_add_epi32(row[0], col[i]), 4));
        for (int j = 1; j < 4; ++j)
            down[i] =
                add(down[i],
                    mul(wy[j], _mm256_i32gather_ps(base, _mm256_add_epi32(row[j], col[i]), 4)));
    }
    return add(add(mul(wx[0], down[0]), mul(wx[1], down[1])),
               add(mul(wx[2], down[2]), mul(wx[3], down[3])));
}

// The same for eight pixels whose 4 x 4 taps lie inside the source: each
// tap row is four floats in a row, so one load takes it where the gathers
// took one float a lane. The weights are turned to four per pixel first.
TAVRIX_AVX2 inline __m256 loadedBlock(const float* base, int rowFloats, __m256i ix, __m256i iy,
                                      const __m256 (&wx)[4], const __m256 (&wy)[4]) {
    alignas(32) int first[8];
    const __m256i corner =
        _mm256_add_epi32(_mm256_mullo_epi32(_mm256_sub_epi32(iy, _mm256_set1_epi32(1)),
                                            _mm256_set1_epi32(rowFloats)),
                         _mm256_sub_epi32(ix, _mm256_set1_epi32(1)));
    _mm256_store_si256(reinterpret_cast<__m256i*>(first), corner);
    __m128 result[2];
    for (int half = 0; half < 2; ++half) {
        __m128 x[4], y[4];
        for (int i = 0; i < 4; ++i) {
            x[i] = half ? _mm256_extractf128_ps(wx[i], 1) : _mm256_castps256_ps128(wx[i]);
            y[i] = half ? _mm256_extractf128_ps(wy[i], 1) : _mm256_castps256_ps128(wy[i]);
        }
        _MM_TRANSPOSE4_PS(x[0], x[1], x[2], x[3]);
        _MM_TRANSPOSE4_PS(y[0], y[1], y[2], y[3]);
        __m128 product[4];
        for (int p = 0; p < 4; ++p) {
            const float* t = base + first[4 * half + p];
            const __m128 v = y[p];
            __m128 down = _mm_mul_ps(_mm_shuffle_ps(v, v, 0x00), _mm_loadu_ps(t));
            down = _mm_add_ps(down,
                              _mm_mul_ps(_mm_shuffle_ps(v, v, 0x55), _mm_loadu_ps(t + rowFloats)));
            down = _mm_add_ps(
                down, _mm_mul_ps(_mm_shuffle_ps(v, v, 0xaa), _mm_loadu_ps(t + 2 * rowFloats)));
            down = _mm_add_ps(
                down, _mm_mul_ps(_mm_shuffle_ps(v, v, 0xff), _mm_loadu_ps(t + 3 * rowFloats)));
            product[p] = _mm_mul_ps(x[p], down);
        }
        result[half] =
            _mm_hadd_ps(_mm_hadd_ps(product[0], product[1]), _mm_hadd_ps(product[2], product[3]));
    }
    return _mm256_set_m128(result[1], result[0]);
}

// Eight pixels a step, each lane doing the plain loop's float operations in
// the same order, so every sample comes out the same to the bit. A block
// with a position beyond ±1e9 (or NaN) goes through the plain loop.
template <class K>
TAVRIX_AVX2 void cubicRowAvx2(const CubicWarp<float, K>& w, int y, int x0, int x1, float* out) {
    const float cy = static_cast<float>(y) + 0.5f;
    const __m256 bcy = _mm256_set1_ps(w.b * cy);
    const __m256 ecy = _mm256_set1_ps(w.e * cy);
    const __m256 a = _mm256_set1_ps(w.a), c = _mm256_set1_ps(w.c);
    const __m256 d = _mm256_set1_ps(w.d), f = _mm256_set1_ps(w.f);
    const __m256 half = _mm256_set1_ps(0.5f);
    const __m256 low = _mm256_set1_ps(-1e9f), high = _mm256_set1_ps(1e9f);
    const __m256i lanes = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    const int rowFloats = int(w.srcStride / int64_t(sizeof(float)));
    const float* base = reinterpret_cast<const float*>(w.src);
    // The last block ends at x1, overlapping the one before: its pixels come
    // out the same either time.
    for (int x = x0; x < x1; x += 8, out += 8) {
        if (x + 8 > x1) {
            out -= x + 8 - x1;
            x = x1 - 8;
        }
        const __m256 cx =
            _mm256_add_ps(_mm256_cvtepi32_ps(_mm256_add_epi32(_mm256_set1_epi32(x), lanes)), half);
        const __m256 sx =
            _mm256_sub_ps(_mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(a, cx), bcy), c), half);
        const __m256 sy =
            _mm256_sub_ps(_mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(d, cx), ecy), f), half);
        const __m256 inside = _mm256_and_ps(
            _mm256_and_ps(_mm256_cmp_ps(sx, low, _CMP_GT_OQ), _mm256_cmp_ps(sx, high, _CMP_LT_OQ)),
            _mm256_and_ps(_mm256_cmp_ps(sy, low, _CMP_GT_OQ), _mm256_cmp_ps(sy, high, _CMP_LT_OQ)));
        if (_mm256_movemask_ps(inside) != 0xff) {
            w.pixels(y, x, x + 8, out);
            continue;
        }
        __m256 fx, fy;
        const __m256i ix = resolve8(sx, w.sb.x, int(w.lastCol), fx);
        const __m256i iy = resolve8(sy, w.sb.y, int(w.lastRow), fy);
        __m256 wx[4], wy[4];
        weights8(K(), fx, wx);
        weights8(K(), fy, wy);
        const __m256i interior =
            _mm256_and_si256(inner8(ix, int(w.lastCol)), inner8(iy, int(w.lastRow)));
        if (_mm256_movemask_epi8(interior) == -1)
            _mm256_storeu_ps(out, loadedBlock(base, rowFloats, ix, iy, wx, wy));
        else
            _mm256_storeu_ps(out,
                             gatheredBlock(base, rowFloats, w.lastCol, w.lastRow, ix, iy, wx, wy));
    }
}

// The rows of any cubic warp: the vector loop where it applies, else the plain.
template <class S, class K>
void cubicRows(const unsigned char* src, const GenRect<int>& sb, int64_t srcStride, int nc,
               const GenRect<int>& db, unsigned char* dst, int64_t dstStride, const float (&m)[6]) {
    const CubicWarp<S, K> warp(src, sb, srcStride, nc, m);
    bool vector = false;
    if constexpr (std::is_same<S, float>::value)
        vector = bicubicAvx2Takes(sb, srcStride, nc, db);
    for (int y = db.y; y < db.y + db.h; ++y, dst += dstStride) {
        float* out = reinterpret_cast<float*>(dst);
        if constexpr (std::is_same<S, float>::value) {
            if (vector) {
                cubicRowAvx2(warp, y, db.x, db.x + db.w, out);
                continue;
            }
        }
        warp.pixels(y, db.x, db.x + db.w, out);
    }
}

// The Thomas factors of the spline's system along one axis of n pixels:
// c[i-1] + 4 c[i] + c[i+1] = 6 s[i], with c[-1] = c[0] and c[n] = c[n-1]
// (the edge repeats), so the ends have 5 on the diagonal. factor[i] is the
// reciprocal of the eliminated diagonal; the system is diagonally dominant,
// so the recursion is stable in float.
void thomasFactors(int n, std::vector<float>& factor) {
    factor.resize(size_t(n));
    double previous = 0;
    for (int i = 0; i < n; ++i) {
        const double diagonal = n == 1 ? 6.0 : (i == 0 || i == n - 1 ? 5.0 : 4.0);
        previous = 1.0 / (diagonal - previous);
        factor[size_t(i)] = float(previous);
    }
}

// The fit along x, into `out`. The recursion carries from pixel to pixel,
// so a row alone waits on every step; eight rows side by side keep the
// arithmetic busy.
template <class S>
void fitRows(const unsigned char* in, int64_t inStride, unsigned char* out, int64_t outStride,
             int w, int h, int nc, const std::vector<float>& factor) {
    constexpr int kBlock = 8;
    for (int y0 = 0; y0 < h; y0 += kBlock) {
        const int rows = std::min(kBlock, h - y0);
        const S* src[kBlock];
        float* dst[kBlock];
        for (int r = 0; r < rows; ++r) {
            src[r] = reinterpret_cast<const S*>(in + (y0 + r) * inStride);
            dst[r] = reinterpret_cast<float*>(out + (y0 + r) * outStride);
        }
        for (int i = 0, j = 0; i < w; ++i) {
            const float f = factor[size_t(i)];
            for (int k = 0; k < nc; ++k, ++j)
                for (int r = 0; r < rows; ++r)
                    dst[r][j] =
                        (6.0f * static_cast<float>(src[r][j]) - (i > 0 ? dst[r][j - nc] : 0.0f)) *
                        f;
        }
        for (int i = w - 2, j = (w - 1) * nc - 1; i >= 0; --i) {
            const float f = factor[size_t(i)];
            for (int k = 0; k < nc; ++k, --j)
                for (int r = 0; r < rows; ++r)
                    dst[r][j] -= f * dst[r][j + nc];
        }
    }
}

// The fit along y, over whole rows at a time so the loops run along memory.
void fitColumns(unsigned char* buffer, int64_t stride, int count, int h,
                const std::vector<float>& factor) {
    auto row = [&](int y) { return reinterpret_cast<float*>(buffer + y * stride); };
    for (int y = 0; y < h; ++y) {
        float* r = row(y);
        const float* above = y > 0 ? row(y - 1) : nullptr;
        const float f = factor[size_t(y)];
        for (int i = 0; i < count; ++i)
            r[i] = (6.0f * r[i] - (above ? above[i] : 0.0f)) * f;
    }
    for (int y = h - 2; y >= 0; --y) {
        float* r = row(y);
        const float* below = row(y + 1);
        const float f = factor[size_t(y)];
        for (int i = 0; i < count; ++i)
            r[i] -= f * below[i];
    }
}

template <class K, class D>
void cubicImage(Image src, const Image& dst, const KrGenMatrix<D>& m, float* dstBuffer) {
    const float elements[6] = {static_cast<float>(m(0, 0)), static_cast<float>(m(0, 1)),
                               static_cast<float>(m(0, 2)), static_cast<float>(m(1, 0)),
                               static_cast<float>(m(1, 1)), static_cast<float>(m(1, 2))};
    const int nc = src.getFormat().getNumChannels();
    if (nc != dst.getFormat().getNumChannels())
        throw IllegalArgumentException("nc == dstfmt.getNumChannels()");

    const GenRect<int>& sb = src.getBounds();
    const GenRect<int>& db = dst.getBounds();
    const int dstStride = dst.getStride();
    unsigned char* dstRow = reinterpret_cast<unsigned char*>(dstBuffer);
    if (db.w < 1 || db.h < 1)
        return;
    if (sb.w < 1 || sb.h < 1) {
        for (int y = 0; y < db.h; ++y, dstRow += dstStride) {
            float* out = reinterpret_cast<float*>(dstRow);
            for (int k = 0; k < db.w * nc; ++k)
                out[k] = 0.0f;
        }
        return;
    }
    if constexpr (std::is_same<K, BSpline>::value) {
        BSplineCoefficients fitted;
        src = fitted.fit(src);
    }
    switchDatatype(src.getFormat().getDatatype(), "src datatype unknown", [&](auto s) {
        using S = typename decltype(s)::type;
        if constexpr (std::is_floating_point<S>::value)
            cubicRows<S, K>(static_cast<const unsigned char*>(src.getBuffer()), sb, src.getStride(),
                            nc, db, dstRow, dstStride, elements);
    });
}

template <class K, class D>
void warp(const Image& src, const Image& dst, const KrGenMatrix<D>& m, const char* unsupported) {
    float* dstBuffer;
    dst.getBuffer(dstBuffer);
    switchDatatype(src.getFormat().getDatatype(), "src datatype unknown", [&](auto s) {
        using S = typename decltype(s)::type;
        if constexpr (!std::is_floating_point<S>::value)
            throw IllegalArgumentException(unsupported);
    });
    cubicImage<K, D>(src, dst, m, dstBuffer);
}

const char* const kBicubicOnly = "xform_bicubic only supports float and double";
const char* const kBSplineOnly = "xform_bspline only supports float and double";

} // namespace

template <class S>
void _bicubicRows(const unsigned char* src, const GenRect<int>& sb, int64_t srcStride, int nc,
                  const GenRect<int>& db, unsigned char* dst, int64_t dstStride,
                  const float (&m)[6]) {
    cubicRows<S, Keys>(src, sb, srcStride, nc, db, dst, dstStride, m);
}

template void _bicubicRows<float>(const unsigned char*, const GenRect<int>&, int64_t, int,
                                  const GenRect<int>&, unsigned char*, int64_t, const float (&)[6]);
template void _bicubicRows<double>(const unsigned char*, const GenRect<int>&, int64_t, int,
                                   const GenRect<int>&, unsigned char*, int64_t,
                                   const float (&)[6]);

void _bsplineRows(const unsigned char* coefficients, const GenRect<int>& sb, int64_t srcStride,
                  int nc, const GenRect<int>& db, unsigned char* dst, int64_t dstStride,
                  const float (&m)[6]) {
    cubicRows<float, BSpline>(coefficients, sb, srcStride, nc, db, dst, dstStride, m);
}

const Image& BSplineCoefficients::fit(const Image& src) {
    const GenRect<int>& b = src.getBounds();
    const Format& f = src.getFormat();
    const int nc = f.getNumChannels();
    coefficients.allocate(b, f.withDatatype(FLOAT));
    thomasFactors(b.w, rowFactors);
    thomasFactors(b.h, columnFactors);
    auto* out = static_cast<unsigned char*>(coefficients.getBuffer());
    const int64_t outStride = coefficients.getStride();
    switchDatatype(f.getDatatype(), "src datatype unknown", [&](auto s) {
        using S = typename decltype(s)::type;
        if constexpr (std::is_floating_point<S>::value) {
            fitRows<S>(static_cast<const unsigned char*>(src.getBuffer()), src.getStride(), out,
                       outStride, b.w, b.h, nc, rowFactors);
        } else {
            throw IllegalArgumentException(kBSplineOnly);
        }
    });
    fitColumns(out, outStride, b.w * nc, b.h, columnFactors);
    return coefficients;
}

void xform_bicubic(Image src, Image dst, const KrGenMatrix<float>& m) {
    warp<Keys>(src, dst, m, kBicubicOnly);
}

void xform_bicubic(Image src, Image dst, const KrGenMatrix<double>& m) {
    warp<Keys>(src, dst, m, kBicubicOnly);
}

void xform_bspline(Image src, Image dst, const KrGenMatrix<float>& m) {
    warp<BSpline>(src, dst, m, kBSplineOnly);
}

void xform_bspline(Image src, Image dst, const KrGenMatrix<double>& m) {
    warp<BSpline>(src, dst, m, kBSplineOnly);
}

} // namespace Orvane
