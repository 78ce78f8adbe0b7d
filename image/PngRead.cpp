#include "image/PngRead.h"

#include "image/Format.h"
#include "image/GenRect.h"

#include <png.h>

#include <csetjmp>
#include <cstring>
#include <new>

namespace Orvane {

namespace {

// libpng reads through this cursor instead of a FILE, so the bytes the chunk
// check has already read are not read again.
struct Source {
    const unsigned char* data;
    size_t size;
    size_t at;
};

void readBytes(png_structp png, png_bytep out, png_size_t n) {
    auto* source = static_cast<Source*>(png_get_io_ptr(png));
    if (source->size - source->at < n)
        png_error(png, "short read");
    std::memcpy(out, source->data + source->at, n);
    source->at += n;
}

// Faults unwind to the setjmp in decode(); neither errors nor warnings may
// reach standard error.
void onError(png_structp png, png_const_charp) {
    png_longjmp(png, 1);
}

void onWarning(png_structp, png_const_charp) {}

// The channel layouts the plain path covers, by PNG colour type; null for a
// palette or an unknown type.
const char* layoutOf(int colorType) {
    switch (colorType) {
    case PNG_COLOR_TYPE_GRAY:
        return "l";
    case PNG_COLOR_TYPE_GRAY_ALPHA:
        return "la";
    case PNG_COLOR_TYPE_RGB:
        return "rgb";
    case PNG_COLOR_TYPE_RGB_ALPHA:
        return "rgba";
    default:
        return nullptr;
    }
}

// Owns the decoder's state so that every way out frees it.
struct Decoder {
    png_structp png = nullptr;
    png_infop info = nullptr;
    ~Decoder() { png_destroy_read_struct(&png, info ? &info : nullptr, nullptr); }
};

// The layout and depth the header gives, when the plain path covers them.
struct Header {
    int width = 0;
    int height = 0;
    const char* layout = nullptr;
    int depth = 0;
};

// libpng reports faults by longjmp back to the setjmp in the function that
// called it, so the two functions that call libpng hold nothing with a
// destructor; the image is made between them.
bool readHeader(Decoder& d, Source& source, Header& h) {
    if (setjmp(png_jmpbuf(d.png)))
        return false;
    png_set_read_fn(d.png, &source, readBytes);
    // Every chunk's CRC has been checked on these very bytes already.
    png_set_crc_action(d.png, PNG_CRC_QUIET_USE, PNG_CRC_QUIET_USE);
    png_read_info(d.png, d.info);
    const png_uint_32 width = png_get_image_width(d.png, d.info);
    const png_uint_32 height = png_get_image_height(d.png, d.info);
    h.depth = png_get_bit_depth(d.png, d.info);
    h.layout = layoutOf(png_get_color_type(d.png, d.info));
    // Transparency and significant bits change samples in ways the general
    // reader has rules of its own for; those files go that way.
    if (!h.layout || (h.depth != 8 && h.depth != 16) ||
        png_get_interlace_type(d.png, d.info) != PNG_INTERLACE_NONE ||
        png_get_valid(d.png, d.info, PNG_INFO_tRNS | PNG_INFO_sBIT) != 0 ||
        width > 0x7fffffffu / 8 || height > 0x7fffffffu)
        return false;
    h.width = int(width);
    h.height = int(height);
    if (h.depth == 16)
        png_set_swap(d.png);
    png_read_update_info(d.png, d.info);
    return true;
}

bool readRows(Decoder& d, unsigned char* const row, const int stride, const int height) {
    if (setjmp(png_jmpbuf(d.png)))
        return false;
    for (int y = 0; y < height; ++y)
        png_read_row(d.png, row + size_t(y) * size_t(stride), nullptr);
    png_read_end(d.png, nullptr);
    return true;
}

} // namespace

bool decodePlainPng(const unsigned char* file, size_t size, Image& out) {
    Decoder d;
    d.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, onError, onWarning);
    if (!d.png)
        return false;
    d.info = png_create_info_struct(d.png);
    if (!d.info)
        return false;
    Source source{file, size, 0};
    Header h;
    if (!readHeader(d, source, h))
        return false;
    Image img;
    try {
        img = Image(GenRect<int>(0, 0, h.width, h.height),
                    Format(h.layout, h.depth == 8 ? UB1 : UB2, false));
    } catch (const std::bad_alloc&) {
        return false;
    }
    if (!readRows(d, static_cast<unsigned char*>(img.getBuffer()), img.getStride(), h.height))
        return false;
    out = img;
    return true;
}

} // namespace Orvane
