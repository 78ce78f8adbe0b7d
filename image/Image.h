#pragma once

#include "base/dstring.h"
#include "image/Format.h"
#include "image/GenRect.h"

#include <cstdint>
#include <iosfwd>

namespace Orvane {

/// Base of the reference-counted implementations. A new object has count 0;
/// whoever receives it takes the first reference. Counts are plain integers:
/// one thread at a time.
class Impl {
public:
    Impl() = default;
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;
    virtual ~Impl() = default;

    virtual void ref() { ++count; }
    /// Drops a reference; the last one destroys the object.
    virtual void deref() {
        if (count-- == 1)
            destroy();
    }
    /// Deletes the object through its virtual destructor.
    virtual void destroy() { delete this; }

    int getRefCount() const { return count; }

private:
    int32_t count = 0;
};

class ImageImpl;

/// A handle on a reference-counted pixel store; copying a handle shares the
/// store, and nothing here copies pixels. Bounds are in global pixel
/// coordinates, so an image need not start at (0, 0); the stride is in
/// bytes. An empty handle holds no store: accessors throw
/// NullPointerException, while changed, flush, ref, deref, clear, exists,
/// == and containsPixel accept it silently.
///
/// Handles are const like pointers: a const handle still writes pixels.
class Image {
public:
    /// An empty handle.
    Image() = default;
    /// Adopts `impl` (usually fresh, with count 0) and takes a reference.
    explicit Image(ImageImpl* impl);
    Image(const Image& other);
    Image(Image&& other) noexcept : impl(other.impl) { other.impl = nullptr; }
    /// A new store that owns an uninitialised buffer, rows without padding.
    Image(const GenRect<int>& bounds, const Format& f);
    /// A new store on a borrowed buffer, rows without padding. The buffer is
    /// never freed by the library and must outlive the store and its views.
    Image(const GenRect<int>& bounds, const Format& f, void* buffer);
    /// As above with rows `stride` bytes apart.
    Image(const GenRect<int>& bounds, const Format& f, void* buffer, int stride);
    ~Image() { deref(); }

    /// Releases the current store before taking the other's, so assigning a
    /// handle to itself leaves it empty (and drops its reference).
    Image& operator=(const Image& other);

    /// Takes one more reference on the store; the caller must drop it with
    /// an Impl::deref() of its own.
    void ref() const;
    /// Releases the store; the handle becomes empty.
    void deref();
    void clear() { deref(); }

    /// Store identity, not pixel equality.
    bool operator==(const Image& other) const { return impl == other.impl; }
    bool operator!=(const Image& other) const { return impl != other.impl; }
    bool exists() const { return impl != nullptr; }

    /// Reuses the store when its bounds and format equal the arguments;
    /// otherwise attaches a new owned, uninitialised store, leaving other
    /// handles on the old one untouched.
    void allocate(const GenRect<int>& bounds, const Format& f);
    void allocate(const Image& other);

    const GenRect<int>& getBounds() const;
    const Format& getFormat() const;
    /// Reinterprets the same bytes under another format; buffer and stride
    /// stay as they are.
    void setFormat(const Format& f);
    int getStride() const;

    /// The pixel at (bounds.x, bounds.y).
    void* getBuffer() const;
    /// The pixel at p; nothing checks p against the bounds.
    void* getBuffer(const GenPoint<int>& p) const;

    /// Typed access: the datatype must match the pointer type, else
    /// IllegalArgumentException "wrong datatype <type>; image is <format>".
    /// The pointer is stored in `out` and returned.
    unsigned char* getBuffer(unsigned char*& out) const;
    unsigned short* getBuffer(unsigned short*& out) const;
    unsigned int* getBuffer(unsigned int*& out) const;
    float* getBuffer(float*& out) const;
    double* getBuffer(double*& out) const;
    unsigned char* getBuffer(unsigned char*& out, const GenPoint<int>& p) const;
    unsigned short* getBuffer(unsigned short*& out, const GenPoint<int>& p) const;
    unsigned int* getBuffer(unsigned int*& out, const GenPoint<int>& p) const;
    float* getBuffer(float*& out, const GenPoint<int>& p) const;
    double* getBuffer(double*& out, const GenPoint<int>& p) const;

    /// Tells the store that pixels in `r` were written; views pass it on to
    /// their parents.
    void changed(const GenRect<int>& r) const;
    void flush() const;

    /// A view of the pixels in bounds & r, same coordinates.
    Image clip(const GenRect<int>& r) const;
    /// A view of all pixels, with pixel (x, y) renamed (x - p.x, y - p.y).
    Image offset(const GenPoint<int>& p) const;
    /// A view of bounds & r, renamed by -p.
    Image offset(const GenRect<int>& r, const GenPoint<int>& p) const;

    /// False for an empty handle; the right and bottom edges are outside.
    bool containsPixel(const GenPoint<int>& p) const;

    /// Free text shared by every handle on the store.
    void setInfo(const dstring& info);
    const dstring& getInfo() const;

    /// "Image(Rect(x,y,w,h),Format(...))"; an empty handle prints "Image()".
    void print(std::ostream& os) const;

    /// The store, or null.
    ImageImpl* getImpl() const { return impl; }

private:
    void* typedBuffer(int datatype, const char* prefix, const GenPoint<int>* p) const;

    ImageImpl* impl = nullptr;
};

std::ostream& operator<<(std::ostream& os, const Image& img);

/// A pixel store: bounds, format, buffer and stride. The buffer points at the
/// pixel (bounds.x, bounds.y); it is freed with the store only when the store
/// allocated it.
class ImageImpl : public Impl {
public:
    /// Empty bounds, default format, no buffer.
    ImageImpl() = default;
    /// A store on `buffer` (not owned); call alloc() for an owned one.
    ImageImpl(const GenRect<int>& bounds, const Format& format, unsigned char* buffer = nullptr,
              int stride = 0);
    ~ImageImpl() override;

    /// Allocates an uninitialised buffer when there is none, rows without
    /// padding, and marks it owned. Throws std::bad_alloc when the size does
    /// not fit a signed 32-bit byte count.
    virtual void alloc();
    /// Frees an owned buffer.
    virtual void dealloc();
    /// Notification hooks; a plain store ignores them.
    virtual void changed(const GenRect<int>& r);
    virtual void flush();
    /// The address of pixel p, unchecked.
    virtual unsigned char* getBuffer(const GenPoint<int>& p) const;
    /// offset(r, (0,0)).
    virtual ImageImpl* clip(const GenRect<int>& r) const;
    /// offset(bounds, p).
    virtual ImageImpl* offset(const GenPoint<int>& p) const;
    /// A new view (count 0) of bounds & r, renamed by -p, that keeps this
    /// store alive.
    virtual ImageImpl* offset(const GenRect<int>& r, const GenPoint<int>& p) const;

    bool isBufferOwner() const { return ownsBuffer; }

protected:
    friend class Image;

    GenRect<int> bounds;
    Format format;
    unsigned char* buffer = nullptr;
    int32_t stride = 0;
    bool ownsBuffer = false;
    dstring info;
};

/// A view into another store: its rows are the parent's rows, and it holds a
/// reference on the parent. Parent coordinate = view coordinate + offset.
class OffsetImageImpl : public ImageImpl {
public:
    OffsetImageImpl(const Image& parent, const GenPoint<int>& offset, const GenRect<int>& bounds,
                    const Format& format, unsigned char* buffer, int stride);

    /// A view never owns pixels.
    void alloc() override {}
    void dealloc() override {}
    /// Passes (r & bounds) + offset to the parent.
    void changed(const GenRect<int>& r) override;
    void flush() override;

    using ImageImpl::offset;
    /// Like the const form, but the new view looks directly into this view's
    /// parent instead of chaining through this view.
    virtual ImageImpl* offset(const GenRect<int>& r, const GenPoint<int>& p);

    const Image& getParent() const { return parent; }
    const GenPoint<int>& getOffset() const { return shift; }

private:
    Image parent;
    GenPoint<int> shift;
};

} // namespace Orvane
