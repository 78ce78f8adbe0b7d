#include "image/Rotate.h"

#include "image/DatatypeSwitch.h"

#include <cstdint>
#include <cstring>
#include <type_traits>

namespace Orvane {

namespace {

// Samples move as unsigned words of their own size, so floating-point
// samples keep every bit, NaN payloads included.
template <class T>
using Word =
    std::conditional_t<sizeof(T) == 1, uint8_t,
                       std::conditional_t<sizeof(T) == 2, uint16_t,
                                          std::conditional_t<sizeof(T) == 4, uint32_t, uint64_t>>>;

// Walks the source row by row and writes each pixel where `place` puts it,
// (column, row) counted from the destination's corner.
template <class W, class Place> void _movePixels(const Image& src, const Image& dst, Place place) {
    const GenRect<int>& b = src.getBounds();
    const int nc = src.getFormat().getNumChannels();
    const int64_t srcStride = src.getStride();
    const int64_t dstStride = dst.getStride();
    const unsigned char* srcBase = static_cast<const unsigned char*>(src.getBuffer());
    unsigned char* dstBase = static_cast<unsigned char*>(dst.getBuffer());
    for (int r = 0; r < b.h; ++r) {
        const W* in = reinterpret_cast<const W*>(srcBase + r * srcStride);
        for (int c = 0; c < b.w; ++c, in += nc) {
            const GenPoint<int> to = place(c, r);
            W* out = reinterpret_cast<W*>(dstBase + to.y * dstStride) + int64_t(to.x) * nc;
            for (int k = 0; k < nc; ++k)
                out[k] = in[k];
        }
    }
}

template <class Place> Image movePixels(const Image& img, const GenRect<int>& bounds, Place place) {
    const Format& f = img.getFormat();
    Image out(bounds, f);
    if (img.getBounds().isEmpty())
        return out;
    switchDatatype(f.getDatatype(), "src datatype unknown", [&](auto s) {
        using T = typename decltype(s)::type;
        _movePixels<Word<T>>(img, out, place);
    });
    return out;
}

} // namespace

void copypixels(const unsigned char* src, int srcStride, unsigned char* dst, int dstStride,
                int bytesPerRow, int rows) {
    if (bytesPerRow <= 0)
        return;
    for (int r = 0; r < rows; ++r)
        std::memmove(dst + int64_t(r) * dstStride, src + int64_t(r) * srcStride, bytesPerRow);
}

Image rotateCW(Image img) {
    const GenRect<int> b = img.getBounds();
    return movePixels(img, GenRect<int>(-b.y, b.x, b.h, b.w),
                      [h = b.h](int c, int r) { return GenPoint<int>(h - 1 - r, c); });
}

Image rotateCCW(Image img) {
    const GenRect<int> b = img.getBounds();
    return movePixels(img, GenRect<int>(b.y + b.h, -(b.x + b.w), b.h, b.w),
                      [w = b.w](int c, int r) { return GenPoint<int>(r, w - 1 - c); });
}

Image flipVertical(Image img) {
    const GenRect<int> b = img.getBounds();
    Image out(b, img.getFormat());
    if (b.isEmpty())
        return out;
    // Whole rows keep their order within, so they move in one piece each.
    const int stride = img.getStride();
    const int outStride = out.getStride();
    const unsigned char* last =
        static_cast<const unsigned char*>(img.getBuffer()) + int64_t(b.h - 1) * stride;
    copypixels(last, -stride, static_cast<unsigned char*>(out.getBuffer()), outStride,
               int(img.getFormat().getBytesPerPixel()) * b.w, b.h);
    return out;
}

Image flipHorizontal(Image img) {
    const GenRect<int> b = img.getBounds();
    return movePixels(img, b, [w = b.w](int c, int r) { return GenPoint<int>(w - 1 - c, r); });
}

} // namespace Orvane
