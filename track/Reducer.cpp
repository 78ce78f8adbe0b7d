#include "track/Reducer.h"

#include "base/Exception.h"
#include "base/dstring.h"
#include "image/ChannelOps.h"
#include "image/Copy.h"
#include "image/DatatypeSwitch.h"
#include "image/Format.h"
#include "image/GenRect.h"
#include "image/ImageRows.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <type_traits>

namespace ReducerKernels {

using Orvane::Image;
using Orvane::ImageRows;

// Unit-range value of a sample: fixed-point maximum reads as 1. UB4 is
// scaled by the float 2^-32, like its float conversion, not divided by
// 2^32 - 1. Made once per image, outside the pixel loop.
template <class S> struct UnitScale {
    double operator()(S v) const {
        if constexpr (std::is_same_v<S, unsigned short>)
            return v / 65535.0;
        else if constexpr (std::is_same_v<S, unsigned int>)
            return v * double(2.3283064e-10f);
        else
            return v;
    }
};

// The same quotients v / 255.0, read from a table: three divisions a pixel
// dominate the 8-bit loops otherwise.
template <> struct UnitScale<unsigned char> {
    UnitScale() : table(quotients()) {}
    double operator()(unsigned char v) const { return table[v]; }

    static const double* quotients() {
        static const std::array<double, 256> q = [] {
            std::array<double, 256> t{};
            for (int v = 0; v < 256; ++v)
                t[v] = v / 255.0;
            return t;
        }();
        return q.data();
    }

    const double* table;
};

// Sample offsets of red, green and blue within a pixel.
struct RGBPositions {
    int r, g, b;
};

// Stores op(pixel) for every source pixel at the same place in `dst`.
template <class S, class Op> void _reducePixels(const Image& src, const Image& dst, Op op) {
    const Orvane::GenRect<int>& b = src.getBounds();
    const int nc = src.getFormat().getNumChannels();
    const ImageRows<const S> in(src);
    const ImageRows<float> outRows(dst);
    for (int y = 0; y < b.h; ++y) {
        const S* p = in.row(y);
        float* out = outRows.row(y);
        for (int x = 0; x < b.w; ++x, p += nc)
            out[x] = op(p);
    }
}

template <class S> void _luminance(const Image& src, const Image& dst, RGBPositions c) {
    const UnitScale<S> unit;
    _reducePixels<S>(src, dst, [&](const S* p) {
        return float(0.299 * unit(p[c.r]) + 0.587 * unit(p[c.g]) + 0.114 * unit(p[c.b]));
    });
}

template <class S> void _saturation(const Image& src, const Image& dst, RGBPositions c) {
    const UnitScale<S> unit;
    _reducePixels<S>(src, dst, [&](const S* p) {
        const double r = unit(p[c.r]), g = unit(p[c.g]), bl = unit(p[c.b]);
        return float(std::max({r, g, bl}) - std::min({r, g, bl}));
    });
}

// The channel named `letter`, else luminance: a grey pixel's colour channels
// all equal its luminance.
int colourPosition(const Orvane::Format& f, char letter) {
    int pos = f.getChannel(letter);
    if (pos < 0)
        pos = f.getChannel('l');
    if (pos < 0)
        throw IllegalArgumentException(dstring::format("no such channel \"%c\"", letter));
    return pos;
}

RGBPositions rgbPositions(const Orvane::Format& f) {
    return {colourPosition(f, 'r'), colourPosition(f, 'g'), colourPosition(f, 'b')};
}

bool hasPixels(const Image& img) {
    const Orvane::GenRect<int>& b = img.getBounds();
    return b.w > 0 && b.h > 0;
}

// Runs `kernel(Sample<S>(), src, dst, positions)` for the source's sample
// type into a fresh "L" float image. The datatype is checked before the
// channels, so a bad code reports as such.
template <class Kernel> Image reduceWith(const Image& src, Kernel kernel) {
    const Orvane::Format& f = src.getFormat();
    return Orvane::switchDatatype(f.getDatatype(), "src datatype unknown", [&](auto s) {
        const RGBPositions c = rgbPositions(f);
        Image dst(src.getBounds(), Orvane::Format::mono(Orvane::FLOAT));
        if (hasPixels(src))
            kernel(s, src, dst, c);
        return dst;
    });
}

// As reduceWith, into the caller's image.
template <class Kernel> void reduceInto(const Image& src, const Image& dst, Kernel kernel) {
    const Orvane::Format& f = src.getFormat();
    Orvane::switchDatatype(f.getDatatype(), "src datatype unknown", [&](auto s) {
        const RGBPositions c = rgbPositions(f);
        if (hasPixels(src))
            kernel(s, src, dst, c);
    });
}

// Allocating an image of an unknown datatype would fail on its sample size
// first; report the datatype instead.
void checkDatatype(const Image& src) {
    Orvane::switchDatatype(src.getFormat().getDatatype(), "src datatype unknown", [](auto) {});
}

// The reduced image spread back over an image like the source.
Image spread(const Image& src, const Image& reduced) {
    checkDatatype(src);
    Image dst(src.getBounds(), src.getFormat());
    Orvane::copy(reduced, dst);
    return dst;
}

} // namespace ReducerKernels

bool Reducer::reduceInto(const Orvane::Image&, const Orvane::Image&) const {
    return false;
}

ChannelReducer::ChannelReducer(char channel) : channel(channel) {
    // Validates the letter the way every format lookup will.
    Orvane::Format().getChannel(channel);
}

Orvane::Image ChannelReducer::reduce(const Orvane::Image& src) const {
    const int pos = ReducerKernels::colourPosition(src.getFormat(), channel);
    Orvane::Image dst = Orvane::extractChannel(src, pos, Orvane::FLOAT);
    // Same bytes, one float channel; only the name changes to the one the
    // matcher expects.
    dst.setFormat(Orvane::Format::mono(Orvane::FLOAT));
    return dst;
}

bool ChannelReducer::reduceInto(const Orvane::Image& src, const Orvane::Image& dst) const {
    Orvane::copyChannel(src, dst, ReducerKernels::colourPosition(src.getFormat(), channel), 0);
    return true;
}

Orvane::Image ChannelReducer::visualize(const Orvane::Image& src) const {
    ReducerKernels::checkDatatype(src);
    const int pos = ReducerKernels::colourPosition(src.getFormat(), channel);
    Orvane::Image dst(src.getBounds(), src.getFormat());
    // Zero bytes are zero in every datatype, so rows are cleared directly;
    // the colour fill handles UB1 only.
    const Orvane::GenRect<int>& b = dst.getBounds();
    if (b.w > 0 && b.h > 0) {
        const auto rows = Orvane::ImageRows<unsigned char>::bytes(dst);
        const std::size_t rowBytes = std::size_t(b.w) * dst.getFormat().getBytesPerPixel();
        for (int y = 0; y < b.h; ++y)
            std::memset(rows.row(y), 0, rowBytes);
    }
    // Straight from the source: a round trip through float could lose a step.
    Orvane::copyChannel(src, dst, pos, pos);
    return dst;
}

Orvane::Image LuminanceReducer::reduce(const Orvane::Image& src) const {
    if (src.getFormat().getNumChannels() == 1)
        return src;
    return ReducerKernels::reduceWith(
        src, [](auto s, const Orvane::Image& from, const Orvane::Image& to, auto c) {
            ReducerKernels::_luminance<typename decltype(s)::type>(from, to, c);
        });
}

bool LuminanceReducer::reduceInto(const Orvane::Image& src, const Orvane::Image& dst) const {
    if (src.getFormat().getNumChannels() == 1)
        return false;
    ReducerKernels::reduceInto(
        src, dst, [](auto s, const Orvane::Image& from, const Orvane::Image& to, auto c) {
            ReducerKernels::_luminance<typename decltype(s)::type>(from, to, c);
        });
    return true;
}

Orvane::Image LuminanceReducer::visualize(const Orvane::Image& src) const {
    return ReducerKernels::spread(src, reduce(src));
}

Orvane::Image SaturationReducer::reduce(const Orvane::Image& src) const {
    return ReducerKernels::reduceWith(
        src, [](auto s, const Orvane::Image& from, const Orvane::Image& to, auto c) {
            ReducerKernels::_saturation<typename decltype(s)::type>(from, to, c);
        });
}

bool SaturationReducer::reduceInto(const Orvane::Image& src, const Orvane::Image& dst) const {
    ReducerKernels::reduceInto(
        src, dst, [](auto s, const Orvane::Image& from, const Orvane::Image& to, auto c) {
            ReducerKernels::_saturation<typename decltype(s)::type>(from, to, c);
        });
    return true;
}

Orvane::Image SaturationReducer::visualize(const Orvane::Image& src) const {
    return ReducerKernels::spread(src, reduce(src));
}

PCAReducer* PCAReducer::setupPCA(const Orvane::Image& pattern) {
    return new PCAReducer(pattern);
}

Orvane::Image PCAReducer::reduce(const Orvane::Image& src) const {
    return pca.reduce(src);
}

Orvane::Image PCAReducer::visualize(const Orvane::Image& src) const {
    return pca.visualize(src);
}
