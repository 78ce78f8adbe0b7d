#include "track/Correlator.h"

#include "base/Exception.h"
#include "image/DatatypeSwitch.h"
#include "image/ImageRows.h"
#include "track/CorrelatorKernels.h"

#include <cstddef>
#include <limits>
#include <type_traits>

using Orvane::Format;
using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::Image;
using Orvane::ImageRows;

Orvane::Image Correlator::getDebugImage() {
    return Image();
}

namespace {

template <class T> void _copyToFloat(const Image& img, float* dst) {
    const GenRect<int>& b = img.getBounds();
    const ImageRows<const T> rows(img);
    for (int y = 0; y < b.h; ++y, dst += b.w) {
        const T* src = rows.row(y);
        for (int x = 0; x < b.w; ++x)
            dst[x] = static_cast<float>(src[x]);
    }
}

// A one-channel float image over `plane`, rows without padding.
Image floatImage(const GenRect<int>& bounds, std::vector<float>& plane) {
    return Image(bounds, Format::mono(Orvane::FLOAT), plane.data());
}

// Float images are read in place; any other datatype goes through `copy`.
Image floatPlane(const Image& img, std::vector<float>& copy) {
    if (img.getFormat().getDatatype() == Orvane::FLOAT)
        return img;
    const GenRect<int>& b = img.getBounds();
    copy.resize(std::size_t(b.w) * std::size_t(b.h));
    Orvane::switchDatatype(img.getFormat().getDatatype(), "NaiveCorrelator: unknown datatype",
                           [&](auto s) {
                               using T = typename decltype(s)::type;
                               _copyToFloat<T>(img, copy.data());
                           });
    return floatImage(b, copy);
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
    const ImageRows<T> rows(img);
    for (int y = 0; y < b.h; ++y, src += b.w) {
        T* dst = rows.row(y);
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
    const Image& surface =
        surfaceStore.shape(GenRect<int>(sb.x - pb.x, sb.y - pb.y, cw, ch), format);

    const bool direct = format.getDatatype() == Orvane::FLOAT;
    if (!direct)
        surfaceCopy.resize(std::size_t(cw) * std::size_t(ch));
    const Image outPlane = direct ? surface : floatImage(GenRect<int>(0, 0, cw, ch), surfaceCopy);
    const ImageRows<float> outRows(outPlane);

    if (pb.w < 1 || pb.h < 1) {
        // An empty pattern has nothing to multiply: every sum is zero.
        for (int y = 0; y < ch; ++y) {
            float* o = outRows.row(y);
            for (int x = 0; x < cw; ++x)
                o[x] = 0.0f;
        }
    } else {
        const Image p = floatPlane(pattern, patternCopy);
        const Image s = floatPlane(search, searchCopy);
        const CorrelatorKernels::Args args{ImageRows<const float>(p), ImageRows<const float>(s),
                                           outRows};
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
