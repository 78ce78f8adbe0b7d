#include "image/Fill.h"

#include "image/Format.h"
#include "image/ImageRows.h"

#include <cstdint>
#include <cstring>
#include <memory>

namespace Orvane {

void fill(const Image& img, const Color& c) {
    _fill(img, img.getBounds(), c, false);
}

void fill(const Image& img, const GenRect<int>& r, const Color& c) {
    _fill(img, r, c, false);
}

void clear(const Image& img, const Color& c) {
    _fill(img, img.getBounds(), c, true);
}

void clear(const Image& img) {
    _fill(img, img.getBounds(), Color(0, 0, 0, 0), true);
}

void _fill(const Image& img, const GenRect<int>& rect, const Color& c, bool replace) {
    if (!replace && c.alpha == 0)
        return;
    const Format& f = img.getFormat();
    std::unique_ptr<unsigned char[]> pixel(f.getPixel(c));
    const GenRect<int> region = rect & img.getBounds();

    if (!region.isEmpty()) {
        const int bytes = f.getNumChannels();
        const size_t rowBytes = static_cast<size_t>(region.w) * bytes;
        // Fills write bytes whatever the datatype; the view's rows are the
        // region's rows of the image.
        const Image area = img.clip(region);
        const auto rows = ImageRows<unsigned char>::bytes(area);

        if (!replace && c.alpha < 255) {
            const unsigned int keep = 255u - c.alpha;
            for (int y = 0; y < region.h; ++y) {
                unsigned char* p = rows.row(y);
                for (int x = 0; x < region.w; ++x, p += bytes) {
                    for (int k = 0; k < bytes; ++k) {
                        const unsigned int t = p[k] * keep;
                        p[k] = static_cast<unsigned char>(((((t + 128) >> 8) + t + 128) >> 8) +
                                                          pixel[k]);
                    }
                }
            }
        } else if (bytes > 0) {
            // Build the first row once, then copy it to the others.
            unsigned char* first = rows.row(0);
            for (int x = 0; x < region.w; ++x)
                std::memcpy(first + static_cast<size_t>(x) * bytes, pixel.get(), bytes);
            for (int y = 1; y < region.h; ++y)
                std::memcpy(rows.row(y), first, rowBytes);
        }
    }

    pixel.reset();
    img.changed(region);
}

void _fillChannel(const Image& img, const GenRect<int>& r, void* value, int, int channelLetter) {
    const Format& f = img.getFormat();
    const int pos = f.getChannel(static_cast<char>(channelLetter));
    if (pos < 0)
        return;
    const GenRect<int> region = r & img.getBounds();
    const unsigned int sampleBytes = f.getChannelBytes();
    const unsigned int pixelBytes = f.getBytesPerPixel();
    if (!region.isEmpty()) {
        const Image area = img.clip(region);
        const auto rows = ImageRows<unsigned char>::bytes(area);
        for (int y = 0; y < region.h; ++y) {
            // The position is a byte offset here, not scaled by the sample
            // size; it still stays inside the pixel.
            unsigned char* p = rows.row(y) + pos;
            for (int x = 0; x < region.w; ++x, p += pixelBytes)
                std::memcpy(p, value, sampleBytes);
        }
    }
    img.changed(region);
}

} // namespace Orvane
