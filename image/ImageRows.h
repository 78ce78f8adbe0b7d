#pragma once

#include "base/Exception.h"
#include "image/Image.h"

#include <cstddef>
#include <type_traits>

namespace Orvane {

/// Typed rows of an image: row(y) is the first sample of row y as a T*, with
/// row 0 at bounds.y; T is const-qualified for reading. Stride is in bytes,
/// so one row step serves every datatype, and a view walks its parent's
/// rows through its own bounds.
///
/// What it checks, and what that costs:
/// - once, on construction, that the image's datatype holds T, through the
///   typed Image::getBuffer (IllegalArgumentException "wrong datatype float;
///   image is Format(...)"; an empty handle throws NullPointerException
///   "Image::getBuffer");
/// - on every row(y), that 0 <= y < height (BadIndexException
///   "ImageRows::row"): one unsigned compare and a branch that is never
///   taken, against a loop over the row's samples, so it stays in release
///   builds. Columns are not checked.
///
/// It is a pointer, not a handle: like the buffer getBuffer() returns, it
/// does not keep the store alive, so the image must outlive it.
template <class T> class ImageRows {
public:
    using Sample = std::remove_const_t<T>;

    explicit ImageRows(const Image& img) : ImageRows(img, typedFirst(img)) {}

    /// The rows as raw bytes whatever the datatype, for code that moves or
    /// clears bytes without reading them as samples. Rows are still checked.
    static ImageRows bytes(const Image& img) {
        static_assert(std::is_same_v<Sample, unsigned char>, "bytes() yields unsigned char rows");
        return ImageRows(img, static_cast<T*>(img.getBuffer()));
    }

    T* row(int y) const {
        if (static_cast<unsigned>(y) >= static_cast<unsigned>(rows))
            outside();
        return reinterpret_cast<T*>(first + std::ptrdiff_t(y) * stride);
    }

    /// Rows in the image; 0 when its bounds are empty or inverted.
    int height() const { return rows; }
    /// Pixels in a row; 0 when the bounds are empty or inverted.
    int width() const { return columns; }

private:
    using Byte = std::conditional_t<std::is_const_v<T>, const unsigned char, unsigned char>;

    ImageRows(const Image& img, T* firstSample)
        : first(reinterpret_cast<Byte*>(firstSample)), stride(img.getStride()),
          rows(img.getBounds().h > 0 ? img.getBounds().h : 0),
          columns(img.getBounds().w > 0 ? img.getBounds().w : 0) {}

    // Out of line and cold, so the check in row() stays a compare and a
    // branch around a call.
    [[noreturn]] __attribute__((noinline, cold)) static void outside() {
        throw BadIndexException("ImageRows::row");
    }

    static T* typedFirst(const Image& img) {
        Sample* p;
        return img.getBuffer(p);
    }

    Byte* first;
    std::ptrdiff_t stride;
    int rows;
    int columns;
};

} // namespace Orvane
