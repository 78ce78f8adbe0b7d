#include "track/Correlator.h"

#include "base/Exception.h"
#include "image/DatatypeSwitch.h"
#include "track/CorrelatorKernels.h"

#include <cstddef>
#include <limits>
#include <type_traits>

using Orvane::Format;
using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::Image;

Orvane::Image Correlator::getDebugImage() {
    return Image();
}

namespace {

struct FloatPlane {
    const float* data;
    std::ptrdiff_t stride;
};

template <class T> void _copyToFloat(const Image& img, float* dst) {
    const GenRect<int>& b = img.getBounds();
    const char* row = static_cast<const char*>(img.getBuffer());
    const std::ptrdiff_t stride = img.getStride();
    for (int y = 0; y < b.h; ++y, row += stride, dst += b.w) {
        const T* src = reinterpret_cast<const T*>(row);
        for (int x = 0; x < b.w; ++x)
            dst[x] = static_cast<float>(src[x]);
    }
}

// Float images are read in place; any other datatype goes through `copy`.
FloatPlane floatPlane(const Image& img, std::vector<float>& copy) {
    if (img.getFormat().getDatatype() == Orvane::FLOAT) {
        float* p;
        img.getBuffer(p);
        return {p, img.getStride()};
    }
    const GenRect<int>& b = img.getBounds();
    copy.resize(std::size_t(b.w) * std::size_t(b.h));
    Orvane::switchDatatype(img.getFormat().getDatatype(), "NaiveCorrelator: unknown datatype",
                           [&](auto s) {
                               using T = typename decltype(s)::type;
                               _copyToFloat<T>(img, copy.data());
                           });
    return {copy.data(), std::ptrdiff_t(b.w * sizeof(float))};
}

// Integer surfaces round and saturate; they only arise from integer patterns.
template <class T> T _fromFloat(float v) {
    if constexpr (std::is_floating_point_v<T>) {
        return static_cast<T>(v);
    } else {
        constexpr float top = static_cast<float>(std::numeric_limits<T>::max());
        if (!(v > 0.0f))
            return 0;
        if (v >= top)
            return std::numeric_limits<T>::max();
        return static_cast<T>(v + 0.5f);
    }
}

template <class T> void _copyFromFloat(const float* src, const Image& img) {
    const GenRect<int>& b = img.getBounds();
    char* row = static_cast<char*>(img.getBuffer());
    const std::ptrdiff_t stride = img.getStride();
    for (int y = 0; y < b.h; ++y, row += stride, src += b.w) {
        T* dst = reinterpret_cast<T*>(row);
        for (int x = 0; x < b.w; ++x)
            dst[x] = _fromFloat<T>(src[x]);
    }
}

} // namespace

NaiveCorrelator::NaiveCorrelator(bool allowSimd)
    : simd(allowSimd && CorrelatorKernels::avx2Supported()) {}

void NaiveCorrelator::setPattern(const Image& p) {
    pattern = p;
}

void NaiveCorrelator::setSearch(const Image& s) {
    search = s;
}

void NaiveCorrelator::correlate(Image& out, float& scale) {
    const GenRect<int> pb = pattern.getBounds();
    const GenRect<int> sb = search.getBounds();
    if (sb.w < pb.w || sb.h < pb.h)
        throw IllegalArgumentException(
            "NaiveCorrelator: search bounds must be larger than pattern bounds");
    if (pattern.getFormat().getNumChannels() != 1 || search.getFormat().getNumChannels() != 1)
        throw IllegalArgumentException("NaiveCorrelator: only 1 channel supported");

    const Format format = pattern.getFormat();
    const int cw = sb.w - pb.w + 1;
    const int ch = sb.h - pb.h + 1;
    Image surface(GenRect<int>(sb.x - pb.x, sb.y - pb.y, cw, ch), format);

    const bool direct = format.getDatatype() == Orvane::FLOAT;
    float* outData;
    std::ptrdiff_t outStride;
    if (direct) {
        surface.getBuffer(outData);
        outStride = surface.getStride();
    } else {
        surfaceCopy.resize(std::size_t(cw) * std::size_t(ch));
        outData = surfaceCopy.data();
        outStride = std::ptrdiff_t(cw * sizeof(float));
    }

    if (pb.w < 1 || pb.h < 1) {
        // An empty pattern has nothing to multiply: every sum is zero.
        for (int y = 0; y < ch; ++y) {
            float* o = reinterpret_cast<float*>(reinterpret_cast<char*>(outData) + y * outStride);
            for (int x = 0; x < cw; ++x)
                o[x] = 0.0f;
        }
    } else {
        const FloatPlane p = floatPlane(pattern, patternCopy);
        const FloatPlane s = floatPlane(search, searchCopy);
        const CorrelatorKernels::Args args{p.data,   p.stride, pb.w,      pb.h, s.data,
                                           s.stride, outData,  outStride, cw,   ch};
        if (simd)
            CorrelatorKernels::correlateAvx2(args);
        else
            CorrelatorKernels::correlateScalar(args);
    }

    if (!direct)
        Orvane::switchDatatype(format.getDatatype(), "NaiveCorrelator: unknown datatype",
                               [&](auto d) {
                                   using T = typename decltype(d)::type;
                                   _copyFromFloat<T>(surfaceCopy.data(), surface);
                               });
    out = surface;
    scale = 1.0f;
}
