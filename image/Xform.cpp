#include "image/Xform.h"

#include "base/Exception.h"
#include "image/Convert.h"
#include "image/DatatypeSwitch.h"
#include "image/ImageRows.h"
#include "image/Kernel.h"
#include "krovel/vec/vec2.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace Orvane {

namespace {

// The walk over one run. Destination sample j has its centre at
// dstX + j + 0.5; the inverse of the run's map takes that to the source
// position s, and p = s - srcX - 0.5 is s in source sample indices (centres
// on integers). The Gaussian is centred on p and stretched so that its zero
// crossing at 1.5 falls `stretch` source samples away; it weighs the source
// samples strictly inside that span, renormalised over those that exist. At
// unit stretch a p on a sample centre picks that sample alone, so identity
// maps and whole-pixel shifts copy exactly, and a symmetric set of weights
// reproduces a linear ramp.

// At the widest stretch of 16 the span covers at most 2 * 16 + 3 samples.
constexpr int maxTaps = 40;
// filt_gaussian's zero crossing, in kernel units.
constexpr double kernelZero = 1.5;

struct RunMap {
    // s = (a o + b) / (c o + d): the adjugate of m, which is its inverse up
    // to a factor that the homogeneous division cancels. A singular m gives
    // non-finite positions, which cover no source samples.
    double a, b, c, d;
    double stretch;
    // Affine runs (c == 0) step linearly: p = p0 + j dp, no division.
    bool affine;
    double p0, dp;
    double dstCentre, srcCentre;

    RunMap(const mat2& m, int dstX, int srcX)
        : a(m(1, 1)), b(-m(0, 1)), c(-m(1, 0)), d(m(0, 0)), dstCentre(dstX + 0.5),
          srcCentre(srcX + 0.5) {
        // The magnitude, so a mirrored minification is filtered like any
        // other; a NaN ratio reads as no minification.
        double st = std::fabs(m(1, 1) / m(0, 0));
        stretch = st >= 1.0 ? std::min(st, 16.0) : 1.0;
        affine = c == 0.0;
        p0 = (a * dstCentre + b) / d - srcCentre;
        dp = a / d;
    }

    double position(int j) const {
        if (affine)
            return p0 + j * dp;
        double o = dstCentre + j;
        return (a * o + b) / (c * o + d) - srcCentre;
    }

    // Whether p lies close enough to the run for any sample to count. False
    // for NaN, and it keeps the integer conversions below in range.
    bool reaches(double p, int srcWidth) const {
        return p > -stretch - 1.0 && p < srcWidth + stretch;
    }
    // The candidate taps; the kernel itself decides which of them count.
    int firstTap(double p) const { return std::max(0, int(floorInt(p - stretch))); }
    int lastTap(double p, int srcWidth) const {
        return std::min(srcWidth - 1, int(floorInt(p + stretch)) + 1);
    }

    // floor() without the library call, for values already known in range.
    static int64_t floorInt(double v) {
        int64_t t = int64_t(v);
        return t > v ? t - 1 : t;
    }
};

// The accumulator: 32 bits, as fixed point wants it, wherever
// sample x weight x taps fits (255 and 65535 times 254 times 35 do); UB4
// samples would overflow it, so they accumulate in 64 bits.
template <class T> using FixAcc = std::conditional_t<(sizeof(T) < 4), int32_t, int64_t>;

// The source as it is when premultiplying changes nothing (no alpha, or
// already premultiplied), else converted to `premult`.
Image premultiplied(const Image& img, const Format& premult) {
    return img.getFormat().isPremult() ? img : convert(img, premult);
}

// round(lo - param) and round(hi + param) - that, checked to fit an image.
bool outputRange(double lo, double hi, double param, int& start, int& size) {
    const double limit = 1073741824.0;
    double a = std::round(lo - param);
    double b = std::round(hi + param);
    if (!(a > -limit && a < limit && b > -limit && b < limit))
        return false;
    start = int(a);
    size = std::max(0, int(b) - start);
    return true;
}

} // namespace

template <class T>
void fixmap(const unsigned char* src, int srcStep, int srcX, int srcWidth, unsigned char* dst,
            int dstStep, int dstX, int dstWidth, int nc, const mat2& m) {
    using Acc = FixAcc<T>;
    const RunMap run(m, dstX, srcX);
    const kernel<int>& kern = getIntKern();
    const int64_t one = getFixOne();
    // Kernel positions are 16.16 like everything else; one table step is
    // 1 << (16 - bits) of them.
    const int shift = 16 - kern.bits;
    const int64_t half = shift > 0 ? int64_t(1) << (shift - 1) : 0;
    const int64_t zero = int64_t(kernelZero * one);
    const int64_t kstep = std::llround(kernelZero / run.stretch * one);
    const int centre = -kern.first;
    const Acc maxT = std::numeric_limits<T>::max();

    int64_t offset[maxTaps];
    int32_t weight[maxTaps];
    for (int j = 0; j < dstWidth; ++j) {
        T* out = reinterpret_cast<T*>(dst + int64_t(j) * dstStep);
        const double p = run.position(j);
        int n = 0;
        int32_t sum = 0;
        if (run.reaches(p, srcWidth)) {
            const int64_t pf = RunMap::floorInt(p * one + 0.5);
            const int last = run.lastTap(p, srcWidth);
            for (int i = run.firstTap(p); i <= last; ++i) {
                const int64_t d = i * one - pf;
                // The table is symmetric, so the distance alone picks the
                // entry and mirrored taps get identical weights.
                const int64_t k = ((d < 0 ? -d : d) * kstep) >> 16;
                if (k >= zero)
                    continue;
                const int32_t w = kern.table[centre + ((k + half) >> shift)];
                offset[n] = int64_t(i) * srcStep;
                weight[n++] = w;
                sum += w;
            }
        }
        if (sum == 0)
            sum = 1;
        for (int ch = 0; ch < nc; ++ch) {
            Acc acc = 0;
            for (int t = 0; t < n; ++t)
                acc += Acc(reinterpret_cast<const T*>(src + offset[t])[ch]) * weight[t];
            Acc v = (acc + sum / 2) / sum;
            out[ch] = T(std::min(std::max(v, Acc(0)), maxT));
        }
    }
}

template <class T>
void floatmap(const unsigned char* src, int srcStep, int srcX, int srcWidth, unsigned char* dst,
              int dstStep, int dstX, int dstWidth, int nc, const mat2& m) {
    const RunMap run(m, dstX, srcX);
    const kernel<float>& kern = getFloatKern();
    const double kscale = kernelZero / run.stretch;
    const double steps = double(1 << kern.bits);
    const int centre = -kern.first;

    int64_t offset[maxTaps];
    double weight[maxTaps];
    for (int j = 0; j < dstWidth; ++j) {
        T* out = reinterpret_cast<T*>(dst + int64_t(j) * dstStep);
        const double p = run.position(j);
        int n = 0;
        double sum = 0.0;
        if (run.reaches(p, srcWidth)) {
            const int last = run.lastTap(p, srcWidth);
            for (int i = run.firstTap(p); i <= last; ++i) {
                const double k = std::fabs(i - p) * kscale;
                if (k >= kernelZero)
                    continue;
                const double w = kern.table[centre + int(k * steps + 0.5)];
                offset[n] = int64_t(i) * srcStep;
                weight[n++] = w;
                sum += w;
            }
        }
        // Normalised once per sample rather than once per channel; a lone
        // tap then weighs exactly 1 and copies its sample unchanged.
        if (sum != 0.0) {
            for (int t = 0; t < n; ++t)
                weight[t] /= sum;
        }
        for (int ch = 0; ch < nc; ++ch) {
            double acc = 0.0;
            for (int t = 0; t < n; ++t)
                acc += double(reinterpret_cast<const T*>(src + offset[t])[ch]) * weight[t];
            out[ch] = T(acc);
        }
    }
}

template void fixmap<unsigned char>(const unsigned char*, int, int, int, unsigned char*, int, int,
                                    int, int, const mat2&);
template void fixmap<unsigned short>(const unsigned char*, int, int, int, unsigned char*, int, int,
                                     int, int, const mat2&);
template void fixmap<unsigned int>(const unsigned char*, int, int, int, unsigned char*, int, int,
                                   int, int, const mat2&);
template void floatmap<float>(const unsigned char*, int, int, int, unsigned char*, int, int, int,
                              int, const mat2&);
template void floatmap<double>(const unsigned char*, int, int, int, unsigned char*, int, int, int,
                               int, const mat2&);

void map(const unsigned char* src, int srcStep, int srcX, int srcWidth, unsigned char* dst,
         int dstStep, int dstX, int dstWidth, int nc, const mat2& m, const Format& f) {
    const int datatype = f.getDatatype();
    if (datatype < UB1 || datatype > DOUBLE)
        return;
    switchDatatype(datatype, "src datatype unknown", [&](auto s) {
        using T = typename decltype(s)::type;
        if constexpr (std::is_integral<T>::value)
            fixmap<T>(src, srcStep, srcX, srcWidth, dst, dstStep, dstX, dstWidth, nc, m);
        else
            floatmap<T>(src, srcStep, srcX, srcWidth, dst, dstStep, dstX, dstWidth, nc, m);
    });
}

namespace {

// What both passes share: the output range along the pass's axis from the
// mapped corners (widened by `param`), the source made premultiplied, and
// the output image over that range.
struct Pass {
    Format format;
    Image src;
    Image out;
};

Pass beginPass(const Image& img, const mat3& m, double param, bool horizontal,
               const char* rangeError) {
    const GenRect<int> b = img.getBounds();
    const vec2 corners[4] = {m * vec2(b.x, b.y), m * vec2(b.x + b.w, b.y), m * vec2(b.x, b.y + b.h),
                             m * vec2(b.x + b.w, b.y + b.h)};
    double lo = horizontal ? corners[0].x : corners[0].y, hi = lo;
    for (const vec2& c : corners) {
        lo = std::min(lo, horizontal ? c.x : c.y);
        hi = std::max(hi, horizontal ? c.x : c.y);
    }
    int start, size;
    if (!outputRange(lo, hi, param, start, size))
        throw IllegalArgumentException(rangeError);

    Format f = img.getFormat();
    f.setPremult(true);
    const GenRect<int> bounds =
        horizontal ? GenRect<int>(start, b.y, size, b.h) : GenRect<int>(b.x, start, b.w, size);
    return {f, premultiplied(img, f), Image(bounds, f)};
}

} // namespace

Image hxform(Image img, const mat3& m, double param) {
    const GenRect<int> b = img.getBounds();
    Pass p = beginPass(img, m, param, true, "hxform: output range out of bounds");
    const GenRect<int> ob = p.out.getBounds();
    if (b.h < 1 || ob.w < 1)
        return p.out;

    const int bpp = p.format.getBytesPerPixel();
    const int nc = p.format.getNumChannels();
    // Bytes, whatever the datatype: the map reads and writes the samples.
    const auto srcRows = ImageRows<const unsigned char>::bytes(p.src);
    const auto outRows = ImageRows<unsigned char>::bytes(p.out);
    for (int r = b.y; r < b.y + b.h; ++r) {
        const mat2 row(vec2(m(0, 0), m(2, 0)), vec2(m(0, 1) * r + m(0, 2), m(2, 1) * r + m(2, 2)));
        map(srcRows.row(r - b.y), bpp, b.x, b.w, outRows.row(r - b.y), bpp, ob.x, ob.w, nc, row,
            p.format);
    }
    return p.out;
}

Image vxform(Image img, const mat3& m, double param) {
    const GenRect<int> b = img.getBounds();
    Pass p = beginPass(img, m, param, false, "vxform: output range out of bounds");
    const GenRect<int> ob = p.out.getBounds();
    if (b.w < 1 || ob.h < 1)
        return p.out;

    const int bpp = p.format.getBytesPerPixel();
    const int nc = p.format.getNumChannels();
    const int srcStride = p.src.getStride();
    const int outStride = p.out.getStride();
    // A source without rows has no buffer to step along; its columns read
    // nothing and come out as zeros.
    const unsigned char* srcBase = static_cast<const unsigned char*>(p.src.getBuffer());
    unsigned char* outCol = static_cast<unsigned char*>(p.out.getBuffer());
    for (int c = b.x; c < b.x + b.w; ++c, outCol += bpp) {
        const unsigned char* srcCol = b.h > 0 ? srcBase + int64_t(c - b.x) * bpp : srcBase;
        const mat2 col(vec2(m(1, 1), m(2, 1)), vec2(m(1, 0) * c + m(1, 2), m(2, 0) * c + m(2, 2)));
        map(srcCol, srcStride, b.y, b.h, outCol, outStride, ob.y, ob.h, nc, col, p.format);
    }
    return p.out;
}

Image xform(Image img, mat3& m, double param) {
    if (m(0, 0) * m(1, 1) - m(0, 1) * m(1, 0) == 0.0)
        throw IllegalArgumentException("xform: singular matrix");
    if (std::fabs(m(0, 1)) > std::fabs(m(0, 0)))
        m = m.swapCols(0, 1);

    mat3 h = identity2D();
    h(0, 0) = m(0, 0);
    h(0, 1) = m(0, 1);
    h(0, 2) = m(0, 2);
    img = hxform(img, h, param);

    // V H = m: the vertical pass undoes the shear the horizontal one added.
    const double f = m(1, 0) / m(0, 0);
    mat3 v = identity2D();
    v(1, 0) = f;
    v(1, 1) = m(1, 1) - f * m(0, 1);
    v(1, 2) = m(1, 2) - f * m(0, 2);
    return vxform(img, v, param);
}

Image scale(Image img, double sx, double sy) {
    mat3 m = scaling2D(vec2(sx, sy));
    return xform(img, m, 0.0);
}

} // namespace Orvane
