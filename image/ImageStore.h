#pragma once

#include "image/Format.h"
#include "image/GenRect.h"
#include "image/Image.h"

namespace Orvane {

/// A working image that keeps its pixel store from use to use: `shape`
/// gives the store new bounds and a new format, and reuses its buffer while
/// the buffer is large enough. It serves the images a loop rebuilds on every
/// pass (search regions, correlation surfaces, summed-area tables), which
/// would otherwise cost an allocation each.
///
/// Every handle on the store sees it change: after `shape` a handle taken
/// before reads the new bounds and uninitialised or stale pixels. Only
/// hand the image to code that drops or replaces it before the next
/// `shape`. Not copyable; moving keeps the store.
class ImageStore {
public:
    ImageStore() = default;
    ImageStore(const ImageStore&) = delete;
    ImageStore& operator=(const ImageStore&) = delete;
    ImageStore(ImageStore&&) noexcept = default;
    ImageStore& operator=(ImageStore&&) = default; // NOLINT(performance-noexcept-move-constructor)

    /// The image with `bounds` and format `f`, rows without padding, pixels
    /// not initialised. Grows the buffer when it is too small, and only then
    /// allocates (the first call also makes the store); it grows to a
    /// quarter more than asked, so that sizes wandering by a pixel or two,
    /// as a search region's do, settle after a few uses.
    const Image& shape(const GenRect<int>& bounds, const Format& f);
    /// The image as the last `shape` left it; empty before the first.
    const Image& image() const { return img; }
    /// Bytes the buffer holds.
    long long capacity() const;

private:
    Image img;
};

/// A clip of another image, as Image::clip makes it, whose view object is
/// kept from call to call: while no handle but this one holds the last view,
/// `clip` points it at the new parent and rectangle instead of making a new
/// one. A handle given out earlier and
/// still held never changes: it gets a fresh view beside it.
class ClipView {
public:
    /// A view of the pixels of `parent` in its bounds & `r`, same
    /// coordinates, holding a reference on `parent`. An empty `parent`
    /// throws NullPointerException "Image::clip".
    Image clip(const Image& parent, const GenRect<int>& r);

private:
    Image& fresh();

    Image view;
};

} // namespace Orvane
