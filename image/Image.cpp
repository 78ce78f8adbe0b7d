#include "image/Image.h"

#include "base/Exception.h"

#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <ostream>

namespace Orvane {

// ---- ImageImpl

ImageImpl::ImageImpl(const GenRect<int>& bounds, const Format& format, unsigned char* buffer,
                     int stride)
    : bounds(bounds), format(format), buffer(buffer), stride(stride) {}

ImageImpl::~ImageImpl() {
    ImageImpl::dealloc();
}

void ImageImpl::alloc() {
    if (buffer)
        return;
    int64_t rowBytes = int64_t(format.getChannelBytes()) * format.getNumChannels() * bounds.w;
    int64_t size = rowBytes * bounds.h;
    if (size > std::numeric_limits<int32_t>::max() ||
        rowBytes > std::numeric_limits<int32_t>::max() ||
        rowBytes < std::numeric_limits<int32_t>::min())
        throw std::bad_alloc();
    if (size > 0)
        buffer = new unsigned char[size];
    stride = static_cast<int32_t>(rowBytes);
    ownsBuffer = true;
}

void ImageImpl::dealloc() {
    if (ownsBuffer && buffer) {
        delete[] buffer;
        buffer = nullptr;
    }
}

void ImageImpl::changed(const GenRect<int>&) {}

void ImageImpl::flush() {}

unsigned char* ImageImpl::getBuffer(const GenPoint<int>& p) const {
    // Addresses outside the pixels are legitimate results (a disjoint clip
    // points past its parent), so the sum is formed on integers rather than
    // as pointer arithmetic.
    intptr_t bytesPerPixel = format.getBytesPerPixel();
    intptr_t delta = intptr_t(p.y - bounds.y) * stride + intptr_t(p.x - bounds.x) * bytesPerPixel;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): deliberate, for the reason above.
    return reinterpret_cast<unsigned char*>(reinterpret_cast<uintptr_t>(buffer) + delta);
}

ImageImpl* ImageImpl::clip(const GenRect<int>& r) const {
    return offset(r, GenPoint<int>(0, 0));
}

ImageImpl* ImageImpl::offset(const GenPoint<int>& p) const {
    return offset(bounds, p);
}

ImageImpl* ImageImpl::offset(const GenRect<int>& r, const GenPoint<int>& p) const {
    GenRect<int> inside = bounds & r;
    unsigned char* start = getBuffer(GenPoint<int>(inside.x, inside.y));
    // The view's handle on this store is the reference that keeps it alive.
    // It is made only once nothing else can throw, so a store nobody holds
    // yet is not released by a failure here.
    return new OffsetImageImpl(Image(const_cast<ImageImpl*>(this)), p, inside - p, format, start,
                               stride);
}

// ---- OffsetImageImpl

OffsetImageImpl::OffsetImageImpl(const Image& parent, const GenPoint<int>& offset,
                                 const GenRect<int>& bounds, const Format& format,
                                 unsigned char* buffer, int stride)
    : ImageImpl(bounds, format, buffer, stride), parent(parent), shift(offset) {}

void OffsetImageImpl::changed(const GenRect<int>& r) {
    if (parent.exists())
        parent.changed((r & bounds) + shift);
}

void OffsetImageImpl::flush() {
    parent.flush();
}

ImageImpl* OffsetImageImpl::offset(const GenRect<int>& r, const GenPoint<int>& p) {
    ImageImpl* root = parent.getImpl();
    if (!root)
        throw NullPointerException("Image::offset");
    const ImageImpl* constRoot = root;
    return constRoot->offset((r & bounds) + shift, shift + p);
}

// ---- Image

Image::Image(ImageImpl* impl) : impl(impl) {
    if (impl)
        impl->ref();
}

Image::Image(const Image& other) : impl(other.impl) {
    if (impl)
        impl->ref();
}

Image::Image(const GenRect<int>& bounds, const Format& f) {
    std::unique_ptr<ImageImpl> store(new ImageImpl(bounds, f));
    store->alloc();
    impl = store.release();
    impl->ref();
}

Image::Image(const GenRect<int>& bounds, const Format& f, void* buffer)
    : Image(bounds, f, buffer,
            static_cast<int>(f.getChannelBytes()) * bounds.w * f.getNumChannels()) {}

Image::Image(const GenRect<int>& bounds, const Format& f, void* buffer, int stride)
    : impl(new ImageImpl(bounds, f, static_cast<unsigned char*>(buffer), stride)) {
    impl->ref();
}

Image& Image::operator=(const Image& other) {
    // Release first, then read `other`: for a self-assignment that reads the
    // handle just emptied.
    deref();
    impl = other.impl;
    if (impl)
        impl->ref();
    return *this;
}

void Image::ref() const {
    if (impl)
        impl->ref();
}

void Image::deref() {
    if (impl) {
        ImageImpl* old = impl;
        impl = nullptr;
        old->deref();
    }
}

void Image::allocate(const GenRect<int>& bounds, const Format& f) {
    if (impl && impl->bounds == bounds && impl->format == f)
        return;
    // Build before releasing, so a failed allocation leaves the handle as it
    // was.
    Image fresh(bounds, f);
    deref();
    impl = fresh.impl;
    fresh.impl = nullptr;
}

void Image::allocate(const Image& other) {
    // Bounds first, so an empty `other` reports "Image::getBounds".
    const GenRect<int>& bounds = other.getBounds();
    allocate(bounds, other.getFormat());
}

const GenRect<int>& Image::getBounds() const {
    if (!impl)
        throw NullPointerException("Image::getBounds");
    return impl->bounds;
}

const Format& Image::getFormat() const {
    if (!impl)
        throw NullPointerException("Image::getFormat");
    return impl->format;
}

void Image::setFormat(const Format& f) {
    if (!impl)
        throw NullPointerException("Image::getFormat");
    impl->format = f;
}

int Image::getStride() const {
    if (!impl)
        throw NullPointerException("Image::getStride");
    return impl->stride;
}

void* Image::getBuffer() const {
    if (!impl)
        throw NullPointerException("Image::getBuffer");
    return impl->buffer;
}

void* Image::getBuffer(const GenPoint<int>& p) const {
    if (!impl)
        throw NullPointerException("Image::getBuffer");
    return impl->getBuffer(p);
}

void* Image::typedBuffer(int datatype, const char* prefix, const GenPoint<int>* p) const {
    if (!impl)
        throw NullPointerException("Image::getBuffer");
    if (impl->format.getDatatype() != datatype)
        throw IllegalArgumentException(dstring(prefix) + impl->format.str());
    return p ? impl->getBuffer(*p) : impl->buffer;
}

unsigned char* Image::getBuffer(unsigned char*& out) const {
    return out = static_cast<unsigned char*>(
               typedBuffer(UB1, "wrong datatype ub1; image is ", nullptr));
}

unsigned short* Image::getBuffer(unsigned short*& out) const {
    return out = static_cast<unsigned short*>(
               typedBuffer(UB2, "wrong datatype ub2; image is ", nullptr));
}

unsigned int* Image::getBuffer(unsigned int*& out) const {
    return out = static_cast<unsigned int*>(
               typedBuffer(UB4, "wrong datatype ub4; image is ", nullptr));
}

float* Image::getBuffer(float*& out) const {
    return out =
               static_cast<float*>(typedBuffer(FLOAT, "wrong datatype float; image is ", nullptr));
}

double* Image::getBuffer(double*& out) const {
    return out = static_cast<double*>(
               typedBuffer(DOUBLE, "wrong datatype double; image is ", nullptr));
}

unsigned char* Image::getBuffer(unsigned char*& out, const GenPoint<int>& p) const {
    return out = static_cast<unsigned char*>(typedBuffer(UB1, "wrong datatype ub1; image is ", &p));
}

unsigned short* Image::getBuffer(unsigned short*& out, const GenPoint<int>& p) const {
    return out =
               static_cast<unsigned short*>(typedBuffer(UB2, "wrong datatype ub2; image is ", &p));
}

unsigned int* Image::getBuffer(unsigned int*& out, const GenPoint<int>& p) const {
    return out = static_cast<unsigned int*>(typedBuffer(UB4, "wrong datatype ub4; image is ", &p));
}

float* Image::getBuffer(float*& out, const GenPoint<int>& p) const {
    return out = static_cast<float*>(typedBuffer(FLOAT, "wrong datatype float; image is ", &p));
}

double* Image::getBuffer(double*& out, const GenPoint<int>& p) const {
    return out = static_cast<double*>(typedBuffer(DOUBLE, "wrong datatype double; image is ", &p));
}

void Image::changed(const GenRect<int>& r) const {
    if (impl)
        impl->changed(r);
}

void Image::flush() const {
    if (impl)
        impl->flush();
}

Image Image::clip(const GenRect<int>& r) const {
    if (!impl)
        throw NullPointerException("Image::clip");
    return Image(impl->clip(r));
}

Image Image::offset(const GenPoint<int>& p) const {
    if (!impl)
        throw NullPointerException("Image::offset");
    return Image(impl->offset(p));
}

Image Image::offset(const GenRect<int>& r, const GenPoint<int>& p) const {
    if (!impl)
        throw NullPointerException("Image::offset");
    const ImageImpl* store = impl;
    return Image(store->offset(r, p));
}

bool Image::containsPixel(const GenPoint<int>& p) const {
    if (!impl)
        return false;
    const GenRect<int>& b = impl->bounds;
    return p.x >= b.x && p.x < b.x + b.w && p.y >= b.y && p.y < b.y + b.h;
}

void Image::setInfo(const dstring& info) {
    if (!impl)
        throw NullPointerException("Image::setInfo");
    impl->info = info;
}

const dstring& Image::getInfo() const {
    if (!impl)
        throw NullPointerException("Image::getInfo");
    return impl->info;
}

void Image::print(std::ostream& os) const {
    if (!impl) {
        os << "Image()";
        return;
    }
    os << "Image(";
    impl->bounds.print(os);
    os << "," << impl->format << ")";
}

std::ostream& operator<<(std::ostream& os, const Image& img) {
    img.print(os);
    return os;
}

} // namespace Orvane
