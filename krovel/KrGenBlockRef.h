#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

/// Owner handle of one reference-counted element block.
///
/// The block is a single allocation: an 8-byte header (element area size in
/// bytes, then the count) directly in front of the elements, which start
/// zero-filled. The handle holds only the element pointer, null for no block.
/// Counts are plain integers: a block is used from one thread.
template <class T> class KrGenBlockRef {
public:
    KrGenBlockRef() = default;

    /// A fresh block of `n` zero-filled elements with count 1; no block for n <= 0.
    explicit KrGenBlockRef(int n) {
        if (n <= 0)
            return;
        const size_t bytes = size_t(n) * sizeof(T);
        auto* raw = static_cast<Header*>(std::calloc(1, sizeof(Header) + bytes));
        if (!raw)
            throw std::bad_alloc();
        raw->bytes = uint32_t(bytes);
        raw->count = 1;
        elements = reinterpret_cast<T*>(raw + 1);
    }

    KrGenBlockRef(const KrGenBlockRef& other) { assign(other.elements); }
    KrGenBlockRef(KrGenBlockRef&& other) noexcept : elements(other.elements) {
        other.elements = nullptr;
    }
    ~KrGenBlockRef() { release(); }

    KrGenBlockRef& operator=(const KrGenBlockRef& other) {
        assign(other.elements);
        return *this;
    }
    KrGenBlockRef& operator=(KrGenBlockRef&& other) noexcept {
        if (this != &other) {
            release();
            elements = other.elements;
            other.elements = nullptr;
        }
        return *this;
    }

    /// Releases the current block and takes `p`, which must be the first
    /// element of a block (or null). Taking the held pointer again does nothing.
    void assign(T* p) {
        if (p == elements)
            return;
        if (p)
            header(p)->count++;
        release();
        elements = p;
    }

    /// First element of the block; null when there is none.
    T* get() const { return elements; }
    /// References held on the block; 0 when there is none.
    uint32_t count() const { return elements ? header(elements)->count : 0; }
    /// Size of the element area in bytes; 0 when there is none.
    uint32_t bytes() const { return elements ? header(elements)->bytes : 0; }

private:
    struct Header {
        uint32_t bytes;
        uint32_t count;
    };
    static_assert(sizeof(Header) == 8, "the block header is 8 bytes");

    static Header* header(T* p) { return reinterpret_cast<Header*>(p) - 1; }

    void release() {
        if (elements && --header(elements)->count == 0)
            std::free(header(elements));
        elements = nullptr;
    }

    T* elements = nullptr;
};
