#include "image/ImageStore.h"

#include "base/Exception.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>

namespace Orvane {

namespace {

// A store whose buffer outlives changes of bounds: it frees the buffer
// itself, so the base class sees it as borrowed and never frees or
// replaces it.
class ReshapedImageImpl : public ImageImpl {
public:
    void alloc() override {}
    void dealloc() override {}

    void reshape(const GenRect<int>& b, const Format& f) {
        const int64_t rowBytes = int64_t(f.getBytesPerPixel()) * (b.w > 0 ? b.w : 0);
        const int64_t size = rowBytes * (b.h > 0 ? b.h : 0);
        // The same limit as an owned store: byte offsets are 32-bit.
        const int64_t limit = std::numeric_limits<int32_t>::max();
        if (size > limit)
            throw std::bad_alloc();
        if (size > room) {
            const int64_t grown = std::min<int64_t>(size + size / 4, limit);
            pixels.reset(new unsigned char[size_t(grown)]);
            room = grown;
        }
        bounds = b;
        format = f;
        buffer = pixels.get();
        stride = int32_t(rowBytes);
    }

    int64_t getRoom() const { return room; }

private:
    std::unique_ptr<unsigned char[]> pixels;
    int64_t room = 0;
};

// A view like Image::clip's that can be pointed elsewhere. Notifications go
// to the parent, as a clip's do.
class ClipImageImpl : public ImageImpl {
public:
    void alloc() override {}
    void dealloc() override {}
    void changed(const GenRect<int>& r) override {
        if (parent.exists())
            parent.changed(r & bounds);
    }
    void flush() override { parent.flush(); }

    void point(const Image& p, const GenRect<int>& r) {
        const GenRect<int> inside = p.getBounds() & r;
        // Taken before anything changes, so a throw leaves the view as it was.
        auto* start = static_cast<unsigned char*>(p.getBuffer(GenPoint<int>(inside.x, inside.y)));
        if (parent != p)
            parent = p;
        bounds = inside;
        format = p.getFormat();
        buffer = start;
        stride = p.getStride();
    }

private:
    Image parent;
};

} // namespace

Image& ClipView::fresh() {
    if (!view.exists() || view.getImpl()->getRefCount() != 1)
        view = Image(new ClipImageImpl());
    return view;
}

Image ClipView::clip(const Image& parent, const GenRect<int>& r) {
    if (!parent.exists())
        throw NullPointerException("Image::clip");
    static_cast<ClipImageImpl*>(fresh().getImpl())->point(parent, r);
    return view;
}

const Image& ImageStore::shape(const GenRect<int>& bounds, const Format& f) {
    if (!img.exists())
        img = Image(new ReshapedImageImpl());
    static_cast<ReshapedImageImpl*>(img.getImpl())->reshape(bounds, f);
    return img;
}

long long ImageStore::capacity() const {
    if (!img.exists())
        return 0;
    return static_cast<const ReshapedImageImpl*>(img.getImpl())->getRoom();
}

} // namespace Orvane
