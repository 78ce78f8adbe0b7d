#include "image/Xform.h"

#include "base/Exception.h"
#include "image/Convert.h"
#include "image/DatatypeSwitch.h"
#include "image/ImageRows.h"
#include "image/Kernel.h"
#include "image/Rescaler.h"
#include "image/XformRun.h"
#include "krovel/vec/vec2.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace Orvane {

namespace {

using XformRun::kernelZero;
using XformRun::maxTaps;
using XformRun::RunMap;

// The accumulator: 32 bits, as fixed point wants it, wherever
// sample x weight x taps fits (255 and 65535 times 254 times 35 do); UB4
// samples would overflow it, so they accumulate in 64 bits.
template <class T> using FixAcc = std::conditional_t<(sizeof(T) < 4), int32_t, int64_t>;

// The source as it is when premultiplying changes nothing (no alpha, or
// already premultiplied), else converted to `premult`.
Image premultiplied(const Image& img, const Format& premult) {
    return img.getFormat().isPremult() ? img : convert(img, premult);
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
    int index[maxTaps];
    double weight[maxTaps];
    for (int j = 0; j < dstWidth; ++j) {
        T* out = reinterpret_cast<T*>(dst + int64_t(j) * dstStep);
        const int n = XformRun::floatTaps(run, j, srcWidth, index, weight);
        for (int ch = 0; ch < nc; ++ch) {
            double acc = 0.0;
            for (int t = 0; t < n; ++t)
                acc += double(reinterpret_cast<const T*>(src + int64_t(index[t]) * srcStep)[ch]) *
                       weight[t];
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
    int start, size;
    if (!XformRun::passRange(b, m, param, horizontal, start, size))
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
    // The same samples, from weights worked out once per pass.
    Rescaler rescaler(sx, sy);
    if (rescaler.supports(img))
        return rescaler.apply(img);
    mat3 m = scaling2D(vec2(sx, sy));
    return xform(img, m, 0.0);
}

} // namespace Orvane
