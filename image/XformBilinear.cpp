#include "image/XformBilinear.h"

#include "base/Exception.h"
#include "image/DatatypeSwitch.h"

#include <cmath>
#include <cstdint>
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
    float fl;
    int64_t i;
    if (s > -1e9f && s < 1e9f) {
        // floor() by truncation, without the library call: below 2^23 the
        // truncated value is exact in float, above it s is whole already.
        i = static_cast<int64_t>(s);
        fl = static_cast<float>(i);
        if (fl > s) {
            fl -= 1.0f;
            --i;
        }
    } else {
        fl = std::floor(s);
        if (!(fl > -1e9f))
            i = -1000000000;
        else if (fl > 1e9f)
            i = 1000000000;
        else
            i = static_cast<int64_t>(fl);
    }
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
    const float a = m[0], b = m[1], c = m[2];
    const float d = m[3], e = m[4], f = m[5];
    // A source one pixel wide or high blends the pixel with itself.
    const int64_t lastCol = sb.w >= 2 ? sb.w - 2 : 0;
    const int64_t lastRow = sb.h >= 2 ? sb.h - 2 : 0;
    const int64_t colStep = sb.w >= 2 ? nc : 0;
    const int64_t rowStep = sb.h >= 2 ? srcStride : 0;

    for (int y = db.y; y < db.y + db.h; ++y, dst += dstStride) {
        // The matrix products that depend on the row only, so each pixel
        // costs two multiplies; the sums keep their order.
        const float cy = static_cast<float>(y) + 0.5f;
        const float bcy = b * cy;
        const float ecy = e * cy;
        float* out = reinterpret_cast<float*>(dst);
        for (int x = db.x; x < db.x + db.w; ++x, out += nc) {
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
}

template void _bilinearRows<float>(const unsigned char*, const GenRect<int>&, int64_t, int,
                                   const GenRect<int>&, unsigned char*, int64_t,
                                   const float (&)[6]);
template void _bilinearRows<double>(const unsigned char*, const GenRect<int>&, int64_t, int,
                                    const GenRect<int>&, unsigned char*, int64_t,
                                    const float (&)[6]);

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
