#include "image/XformBilinear.h"

#include "base/Exception.h"
#include "image/DatatypeSwitch.h"
#include "image/XformFloor.h"

#include <immintrin.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <type_traits>

namespace Orvane {

namespace {

// One axis of a sample position, resolved to the left (or upper) pixel of
// the pair to blend, the fraction towards the right one and the step to it.
struct Tap {
    int64_t index;
    float frac;
};

// floor(s) relative to the source origin, then clamped so the pair never
// leaves the source: left of it the first pixel (fraction 0), right of it
// the last (fraction 1). Positions far outside, and NaN, saturate before
// the integer conversion so they clamp like any other outside position.
inline Tap resolve(float s, int origin, int64_t lastPair) {
    int64_t i;
    const float fl = saturatingFloor(s, i);
    i -= origin;
    Tap t{i, i >= 0 ? s - fl : 0.0f};
    if (t.index < 0)
        t.index = 0;
    if (t.index > lastPair) {
        t.index = lastPair;
        t.frac = 1.0f;
    }
    return t;
}

// The warp's setup and its per-pixel arithmetic, shared by the plain loop and
// the vector one, which hands back the blocks it cannot take.
template <class S> struct RowWarp {
    const unsigned char* src = nullptr;
    GenRect<int> sb;
    int64_t srcStride = 0;
    int nc = 1;
    float a = 0, b = 0, c = 0, d = 0, e = 0, f = 0;
    // A source one pixel wide or high blends the pixel with itself.
    int64_t lastCol = 0, lastRow = 0, colStep = 0, rowStep = 0;

    RowWarp() = default;
    RowWarp(const unsigned char* src, const GenRect<int>& sb, int64_t srcStride, int nc,
            const float (&m)[6])
        : src(src), sb(sb), srcStride(srcStride), nc(nc), a(m[0]), b(m[1]), c(m[2]), d(m[3]),
          e(m[4]), f(m[5]), lastCol(sb.w >= 2 ? sb.w - 2 : 0), lastRow(sb.h >= 2 ? sb.h - 2 : 0),
          colStep(sb.w >= 2 ? nc : 0), rowStep(sb.h >= 2 ? srcStride : 0) {}

    // Pixels x0 to x1 - 1 of row y into out (nc floats each). The products
    // that depend on the row only are formed once; the sums keep their order.
    void pixels(int y, int x0, int x1, float* out) const {
        const float cy = static_cast<float>(y) + 0.5f;
        const float bcy = b * cy;
        const float ecy = e * cy;
        for (int x = x0; x < x1; ++x, out += nc) {
            const float cx = static_cast<float>(x) + 0.5f;
            const float sx = a * cx + bcy + c - 0.5f;
            const float sy = d * cx + ecy + f - 0.5f;
            const Tap tx = resolve(sx, sb.x, lastCol);
            const Tap ty = resolve(sy, sb.y, lastRow);
            const float fx = tx.frac, gx = 1.0f - tx.frac;
            const float fy = ty.frac, gy = 1.0f - ty.frac;
            const unsigned char* row0 = src + ty.index * srcStride;
            const S* p00 = reinterpret_cast<const S*>(row0) + tx.index * nc;
            const S* p10 = p00 + colStep;
            const S* p01 = reinterpret_cast<const S*>(row0 + rowStep) + tx.index * nc;
            const S* p11 = p01 + colStep;
            for (int k = 0; k < nc; ++k)
                out[k] = static_cast<float>(p11[k] * fx * fy + p01[k] * gx * fy + p10[k] * fx * gy +
                                            p00[k] * gx * gy);
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

// The vector loop takes one-channel float sources of at least 2 by 2 pixels
// whose rows are whole floats apart and whose offsets, and the positions
// around them, fit 32-bit lanes; anything else stays on the plain loop.
bool bilinearAvx2Takes(const GenRect<int>& sb, int64_t srcStride, int nc, const GenRect<int>& db) {
    const int64_t limit = int64_t(1) << 29;
    return avx2Present() && nc == 1 && sb.w >= 2 && sb.h >= 2 && db.w >= 8 &&
           srcStride % int64_t(sizeof(float)) == 0 && srcStride > 0 &&
           srcStride / int64_t(sizeof(float)) * sb.h < limit && std::abs(int64_t(sb.x)) < limit &&
           std::abs(int64_t(sb.y)) < limit && std::abs(int64_t(db.x)) < limit &&
           std::abs(int64_t(db.x) + db.w) < limit;
}

// resolve() on eight positions at once, for positions inside ±1e9: the
// floor by truncation and compare, then the clamps. Returns the indices and
// sets the fractions.
TAVRIX_AVX2 inline __m256i resolve8(__m256 s, int origin, int lastPair, __m256& frac) {
    const __m256i t = _mm256_cvttps_epi32(s);
    const __m256 truncated = _mm256_cvtepi32_ps(t);
    const __m256 above = _mm256_cmp_ps(truncated, s, _CMP_GT_OQ);
    const __m256 fl = _mm256_sub_ps(truncated, _mm256_and_ps(above, _mm256_set1_ps(1.0f)));
    // The mask is -1 where the truncation was above: adding it steps down.
    __m256i i = _mm256_add_epi32(t, _mm256_castps_si256(above));
    i = _mm256_sub_epi32(i, _mm256_set1_epi32(origin));
    const __m256i negative = _mm256_cmpgt_epi32(_mm256_setzero_si256(), i);
    frac = _mm256_andnot_ps(_mm256_castsi256_ps(negative), _mm256_sub_ps(s, fl));
    i = _mm256_max_epi32(i, _mm256_setzero_si256());
    const __m256i last = _mm256_set1_epi32(lastPair);
    const __m256i beyond = _mm256_cmpgt_epi32(i, last);
    frac = _mm256_blendv_ps(frac, _mm256_set1_ps(1.0f), _mm256_castsi256_ps(beyond));
    return _mm256_min_epi32(i, last);
}

// Whether a source is large enough for window8: nine columns and three rows.
bool windowFits(const GenRect<int>& sb) {
    return sb.w >= 9 && sb.h >= 3;
}

// The four neighbours of eight resolved positions without gathers, where
// their taps span at most eight columns and two rows, as under a warp near a
// translation: three rows of nine pixels are loaded and the lanes picked by
// permutes, which costs a fraction of four gathers. The window is pulled in
// from the last column and row so that it never leaves the source, which
// must pass windowFits; the samples are the same pixels the gathers would
// read. False when the taps spread wider, for the caller to gather.
TAVRIX_AVX2 inline bool window8(const float* base, int rowFloats, const GenRect<int>& sb,
                                __m256i ix, __m256i iy, __m256& p00, __m256& p10, __m256& p01,
                                __m256& p11) {
    // The positions are affine in the lane, so the taps are monotonic in it
    // and their extremes sit in the first and last lanes.
    const int ixFirst = _mm256_cvtsi256_si32(ix), ixLast = _mm256_extract_epi32(ix, 7);
    const int iyFirst = _mm256_cvtsi256_si32(iy), iyLast = _mm256_extract_epi32(iy, 7);
    const int left = ixFirst < ixLast ? ixFirst : ixLast;
    const int top = iyFirst < iyLast ? iyFirst : iyLast;
    if (std::abs(ixLast - ixFirst) > 7 || std::abs(iyLast - iyFirst) > 1)
        return false;
    const int x0 = left < sb.w - 9 ? left : sb.w - 9;
    const int y0 = top < sb.h - 3 ? top : sb.h - 3;
    const float* r0 = base + ptrdiff_t(y0) * rowFloats + x0;
    const float* r1 = r0 + rowFloats;
    const float* r2 = r1 + rowFloats;
    const __m256i lane = _mm256_sub_epi32(ix, _mm256_set1_epi32(x0));
    const __m256 lower = _mm256_castsi256_ps(_mm256_cmpgt_epi32(iy, _mm256_set1_epi32(y0)));
    const __m256 a0 = _mm256_permutevar8x32_ps(_mm256_loadu_ps(r0), lane);
    const __m256 b0 = _mm256_permutevar8x32_ps(_mm256_loadu_ps(r0 + 1), lane);
    const __m256 a1 = _mm256_permutevar8x32_ps(_mm256_loadu_ps(r1), lane);
    const __m256 b1 = _mm256_permutevar8x32_ps(_mm256_loadu_ps(r1 + 1), lane);
    const __m256 a2 = _mm256_permutevar8x32_ps(_mm256_loadu_ps(r2), lane);
    const __m256 b2 = _mm256_permutevar8x32_ps(_mm256_loadu_ps(r2 + 1), lane);
    p00 = _mm256_blendv_ps(a0, a1, lower);
    p10 = _mm256_blendv_ps(b0, b1, lower);
    p01 = _mm256_blendv_ps(a1, a2, lower);
    p11 = _mm256_blendv_ps(b1, b2, lower);
    return true;
}

// The four neighbours of eight taps: from a row window where the source and
// the taps allow it, else by gathers.
TAVRIX_AVX2 inline void fetch8(const float* base, int rowFloats, __m256i rowStep, bool windowed,
                               const GenRect<int>& sb, __m256i ix, __m256i iy, __m256& p00,
                               __m256& p10, __m256& p01, __m256& p11) {
    if (windowed && window8(base, rowFloats, sb, ix, iy, p00, p10, p01, p11))
        return;
    const __m256i i00 = _mm256_add_epi32(_mm256_mullo_epi32(iy, rowStep), ix);
    const __m256i i01 = _mm256_add_epi32(i00, rowStep);
    p00 = _mm256_i32gather_ps(base, i00, 4);
    p10 = _mm256_i32gather_ps(base + 1, i00, 4);
    p01 = _mm256_i32gather_ps(base, i01, 4);
    p11 = _mm256_i32gather_ps(base + 1, i01, 4);
}

// Eight pixels a step, each lane doing the plain loop's float operations in
// the same order, so every sample comes out the same to the bit. A block
// with a position beyond ±1e9 (or NaN) goes through the plain loop. Rows
// are at least eight pixels long.
TAVRIX_AVX2 void bilinearRowAvx2(const RowWarp<float>& w, int y, int x0, int x1, float* out) {
    const float cy = static_cast<float>(y) + 0.5f;
    const __m256 bcy = _mm256_set1_ps(w.b * cy);
    const __m256 ecy = _mm256_set1_ps(w.e * cy);
    const __m256 a = _mm256_set1_ps(w.a), c = _mm256_set1_ps(w.c);
    const __m256 d = _mm256_set1_ps(w.d), f = _mm256_set1_ps(w.f);
    const __m256 half = _mm256_set1_ps(0.5f), one = _mm256_set1_ps(1.0f);
    const __m256 low = _mm256_set1_ps(-1e9f), high = _mm256_set1_ps(1e9f);
    const __m256i lanes = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    const int rowFloats = int(w.srcStride / int64_t(sizeof(float)));
    const __m256i rowStep = _mm256_set1_epi32(rowFloats);
    const float* base = reinterpret_cast<const float*>(w.src);
    const bool windowed = windowFits(w.sb);
    // The last block ends at x1, overlapping the one before: its pixels come
    // out the same either time, so no pixel is left to the plain loop.
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
        const __m256 gx = _mm256_sub_ps(one, fx), gy = _mm256_sub_ps(one, fy);
        __m256 p00, p10, p01, p11;
        fetch8(base, rowFloats, rowStep, windowed, w.sb, ix, iy, p00, p10, p01, p11);
        __m256 v = _mm256_mul_ps(_mm256_mul_ps(p11, fx), fy);
        v = _mm256_add_ps(v, _mm256_mul_ps(_mm256_mul_ps(p01, gx), fy));
        v = _mm256_add_ps(v, _mm256_mul_ps(_mm256_mul_ps(p10, fx), gy));
        v = _mm256_add_ps(v, _mm256_mul_ps(_mm256_mul_ps(p00, gx), gy));
        _mm256_storeu_ps(out, v);
    }
}

// The most warps one pass over the grid carries.
const int kWarpGroup = 8;

// One warp's eight positions of a block, resolved: the column and row of
// each lane's upper-left sample and the fractions. False when a position
// lies beyond ±1e9 or is NaN, for the plain loop to take.
TAVRIX_AVX2 inline bool taps8(const RowWarp<float>& w, __m256 cx, float cy, __m256i& ix,
                              __m256i& iy, __m256& fx, __m256& fy) {
    const __m256 half = _mm256_set1_ps(0.5f);
    const __m256 low = _mm256_set1_ps(-1e9f), high = _mm256_set1_ps(1e9f);
    const __m256 bcy = _mm256_set1_ps(w.b * cy), ecy = _mm256_set1_ps(w.e * cy);
    const __m256 sx =
        _mm256_sub_ps(_mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(_mm256_set1_ps(w.a), cx), bcy),
                                    _mm256_set1_ps(w.c)),
                      half);
    const __m256 sy =
        _mm256_sub_ps(_mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(_mm256_set1_ps(w.d), cx), ecy),
                                    _mm256_set1_ps(w.f)),
                      half);
    const __m256 inside = _mm256_and_ps(
        _mm256_and_ps(_mm256_cmp_ps(sx, low, _CMP_GT_OQ), _mm256_cmp_ps(sx, high, _CMP_LT_OQ)),
        _mm256_and_ps(_mm256_cmp_ps(sy, low, _CMP_GT_OQ), _mm256_cmp_ps(sy, high, _CMP_LT_OQ)));
    if (_mm256_movemask_ps(inside) != 0xff)
        return false;
    ix = resolve8(sx, w.sb.x, int(w.lastCol), fx);
    iy = resolve8(sy, w.sb.y, int(w.lastRow), fy);
    return true;
}

// Row y of up to kWarpGroup warps, block by block as bilinearRowAvx2 walks
// it and with its arithmetic, so every sample is the same to the bit. Warps
// a small step apart mostly blend the same four pixels with other
// fractions: a block gathers again only when its pixels differ from the
// last warp's, and the gathers are the bulk of the cost.
TAVRIX_AVX2 void bilinearRowGroupAvx2(const RowWarp<float>* w, int count, int y, int x0, int x1,
                                      float* const* out) {
    const float cy = static_cast<float>(y) + 0.5f;
    const __m256 half = _mm256_set1_ps(0.5f), one = _mm256_set1_ps(1.0f);
    const __m256i lanes = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    const int rowFloats = int(w[0].srcStride / int64_t(sizeof(float)));
    const __m256i rowStep = _mm256_set1_epi32(rowFloats);
    const float* base = reinterpret_cast<const float*>(w[0].src);
    const bool windowed = windowFits(w[0].sb);
    for (int x = x0; x < x1; x += 8) {
        if (x + 8 > x1)
            x = x1 - 8;
        const __m256 cx =
            _mm256_add_ps(_mm256_cvtepi32_ps(_mm256_add_epi32(_mm256_set1_epi32(x), lanes)), half);
        bool loaded = false;
        __m256i heldX = _mm256_setzero_si256(), heldY = _mm256_setzero_si256();
        __m256 p00 = half, p10 = half, p01 = half, p11 = half;
        for (int k = 0; k < count; ++k) {
            float* o = out[k] + (x - x0);
            __m256i ix, iy;
            __m256 fx, fy;
            if (!taps8(w[k], cx, cy, ix, iy, fx, fy)) {
                w[k].pixels(y, x, x + 8, o);
                continue;
            }
            const __m256i same =
                _mm256_and_si256(_mm256_cmpeq_epi32(ix, heldX), _mm256_cmpeq_epi32(iy, heldY));
            if (!loaded || _mm256_movemask_epi8(same) != -1) {
                fetch8(base, rowFloats, rowStep, windowed, w[k].sb, ix, iy, p00, p10, p01, p11);
                heldX = ix;
                heldY = iy;
                loaded = true;
            }
            const __m256 gx = _mm256_sub_ps(one, fx), gy = _mm256_sub_ps(one, fy);
            __m256 v = _mm256_mul_ps(_mm256_mul_ps(p11, fx), fy);
            v = _mm256_add_ps(v, _mm256_mul_ps(_mm256_mul_ps(p01, gx), fy));
            v = _mm256_add_ps(v, _mm256_mul_ps(_mm256_mul_ps(p10, fx), gy));
            v = _mm256_add_ps(v, _mm256_mul_ps(_mm256_mul_ps(p00, gx), gy));
            _mm256_storeu_ps(o, v);
        }
    }
}

template <class D> void warp(const Image& src, const Image& dst, const KrGenMatrix<D>& m) {
    float* dstBuffer;
    dst.getBuffer(dstBuffer);
    switchDatatype(src.getFormat().getDatatype(), "src datatype unknown", [&](auto s) {
        using S = typename decltype(s)::type;
        if constexpr (std::is_floating_point<S>::value)
            _xform_bilinear<S, D>(src, dst, m, dstBuffer);
        else
            throw IllegalArgumentException("xform_bilinear only supports float and double");
    });
}

} // namespace

template <class S>
void _bilinearRows(const unsigned char* src, const GenRect<int>& sb, int64_t srcStride, int nc,
                   const GenRect<int>& db, unsigned char* dst, int64_t dstStride,
                   const float (&m)[6]) {
    const RowWarp<S> warp(src, sb, srcStride, nc, m);
    bool vector = false;
    if constexpr (std::is_same<S, float>::value)
        vector = bilinearAvx2Takes(sb, srcStride, nc, db);
    for (int y = db.y; y < db.y + db.h; ++y, dst += dstStride) {
        float* out = reinterpret_cast<float*>(dst);
        if constexpr (std::is_same<S, float>::value) {
            if (vector) {
                bilinearRowAvx2(warp, y, db.x, db.x + db.w, out);
                continue;
            }
        }
        warp.pixels(y, db.x, db.x + db.w, out);
    }
}

template void _bilinearRows<float>(const unsigned char*, const GenRect<int>&, int64_t, int,
                                   const GenRect<int>&, unsigned char*, int64_t,
                                   const float (&)[6]);
template void _bilinearRows<double>(const unsigned char*, const GenRect<int>&, int64_t, int,
                                    const GenRect<int>&, unsigned char*, int64_t,
                                    const float (&)[6]);

template <class S>
void _bilinearRowsMany(const unsigned char* src, const GenRect<int>& sb, int64_t srcStride, int nc,
                       const GenRect<int>& db, int count, const float (*m)[6], float* const* dst) {
    const int64_t rowFloats = int64_t(db.w) * nc;
    bool vector = false;
    if constexpr (std::is_same<S, float>::value)
        vector = bilinearAvx2Takes(sb, srcStride, nc, db);
    if (!vector) {
        for (int k = 0; k < count; ++k)
            _bilinearRows<S>(src, sb, srcStride, nc, db, reinterpret_cast<unsigned char*>(dst[k]),
                             rowFloats * int64_t(sizeof(float)), m[k]);
        return;
    }
    for (int k0 = 0; k0 < count; k0 += kWarpGroup) {
        const int group = count - k0 < kWarpGroup ? count - k0 : kWarpGroup;
        RowWarp<float> warps[kWarpGroup];
        for (int k = 0; k < group; ++k)
            warps[k] = RowWarp<float>(src, sb, srcStride, nc, m[k0 + k]);
        float* rows[kWarpGroup];
        for (int k = 0; k < group; ++k)
            rows[k] = dst[k0 + k];
        for (int y = db.y; y < db.y + db.h; ++y) {
            bilinearRowGroupAvx2(warps, group, y, db.x, db.x + db.w, rows);
            for (int k = 0; k < group; ++k)
                rows[k] += rowFloats;
        }
    }
}

template void _bilinearRowsMany<float>(const unsigned char*, const GenRect<int>&, int64_t, int,
                                       const GenRect<int>&, int, const float (*)[6], float* const*);
template void _bilinearRowsMany<double>(const unsigned char*, const GenRect<int>&, int64_t, int,
                                        const GenRect<int>&, int, const float (*)[6],
                                        float* const*);

template <class S, class D>
void _xform_bilinear(const Image& src, const Image& dst, const KrGenMatrix<D>& m,
                     float* dstBuffer) {
    const float elements[6] = {static_cast<float>(m(0, 0)), static_cast<float>(m(0, 1)),
                               static_cast<float>(m(0, 2)), static_cast<float>(m(1, 0)),
                               static_cast<float>(m(1, 1)), static_cast<float>(m(1, 2))};

    const Format& dstfmt = dst.getFormat();
    const int nc = src.getFormat().getNumChannels();
    if (nc != dstfmt.getNumChannels())
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
    _bilinearRows<S>(static_cast<const unsigned char*>(src.getBuffer()), sb, src.getStride(), nc,
                     db, dstRow, dstStride, elements);
}

template void _xform_bilinear<float, float>(const Image&, const Image&, const KrGenMatrix<float>&,
                                            float*);
template void _xform_bilinear<double, float>(const Image&, const Image&, const KrGenMatrix<float>&,
                                             float*);
template void _xform_bilinear<float, double>(const Image&, const Image&, const KrGenMatrix<double>&,
                                             float*);
template void _xform_bilinear<double, double>(const Image&, const Image&,
                                              const KrGenMatrix<double>&, float*);

void xform_bilinear(Image src, Image dst, const KrGenMatrix<float>& m) {
    warp(src, dst, m);
}

void xform_bilinear(Image src, Image dst, const KrGenMatrix<double>& m) {
    warp(src, dst, m);
}

} // namespace Orvane
