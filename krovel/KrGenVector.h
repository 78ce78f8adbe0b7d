#pragma once

#include "krovel/KrGenBlockRef.h"
#include "krovel/KrLineLoops.h"
#include "krovel/KrMatrixError.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

template <class T> class KrGenMatrix;

/// A dense vector handle over shared storage.
///
/// Copying or assigning a handle shares the elements; writes through any
/// handle are seen by all of them. Elements are copied only by `copy`,
/// `unique`, `set` and `resize`. A vector may also view external memory,
/// which the caller keeps alive. Index and length errors are reported through
/// KrMatrixError::err.
template <class T> class KrGenVector {
public:
    /// Length 0, stride 1, no storage.
    KrGenVector() = default;

    /// A fresh contiguous vector of `n` elements, all `value`.
    explicit KrGenVector(int n, T value = T());

    /// A view of `n` elements at `data` (stride 1, no storage of its own);
    /// with `copy` it becomes a private copy at once.
    KrGenVector(T* data, int n, bool copy);

    int length() const { return len; }
    int size() const { return len; }
    /// Distance in elements between neighbours.
    int stride() const { return step; }
    /// Address of element 0.
    T* data() const { return origin; }
    bool isEmpty() const { return len <= 0; }
    /// References held on the shared block; 0 for a view of external memory.
    uint32_t refCount() const { return block.count(); }

    /// Element i; i outside 0..length-1 reports "KrVector index %d out of range %d".
    T& operator()(int i) {
        check(i);
        return origin[ptrdiff_t(i) * step];
    }
    const T& operator()(int i) const {
        check(i);
        return origin[ptrdiff_t(i) * step];
    }
    T& operator[](int i) { return (*this)(i); }
    const T& operator[](int i) const { return (*this)(i); }

    /// Becomes a view of `v`: its length, stride and origin, sharing its block.
    void reference(const KrGenVector& v);

    /// A private contiguous copy.
    KrGenVector copy() const;

    /// Makes the storage private (a contiguous copy) unless it already is.
    void unique();

    /// Copies the elements of `v` into this vector's storage, converting each.
    /// The lengths must match. A source overlapping this storage is copied
    /// first, so the result is the source as it was before the call.
    template <class U> void set(const KrGenVector<U>& v);

    /// Changes the length, keeping the first min(old, n) elements and zeroing
    /// the rest in a fresh contiguous block. An equal length changes nothing.
    void resize(int n);

    /// Fills every element with `value`.
    KrGenVector& operator=(T value);

    // The arithmetic exists for the number types only, hence the templates.

    /// Divides every element by `s`.
    template <class U = T, class = std::enable_if_t<std::is_arithmetic_v<U>>>
    KrGenVector& operator/=(T s) {
        T* p = origin;
        if (step == 1) {
            for (int i = 0; i < len; ++i)
                p[i] /= s;
        } else {
            for (int i = 0; i < len; ++i, p += step)
                *p /= s;
        }
        return *this;
    }

    /// Multiplies element by element over this vector's length; `v` must be
    /// at least as long (not checked).
    template <class U = T, class = std::enable_if_t<std::is_arithmetic_v<U>>>
    KrGenVector& operator*=(const KrGenVector& v) {
        T* p = origin;
        const T* q = v.origin;
        if (step == 1 && v.step == 1) {
            for (int i = 0; i < len; ++i)
                p[i] *= q[i];
        } else {
            for (int i = 0; i < len; ++i, p += step, q += v.step)
                *p *= *q;
        }
        return *this;
    }

private:
    template <class U> friend class KrGenVector;
    friend class KrGenMatrix<T>;

    KrGenVector(const KrGenBlockRef<T>& block, T* origin, int n, int stride)
        : block(block), len(n), step(stride), origin(origin) {}

    void check(int i) const {
        if (i < 0 || i >= len)
            KrMatrixError::err("KrVector index %d out of range %d", i, len - 1);
    }

    KrGenBlockRef<T> block;
    int32_t len = 0;
    int32_t step = 1;
    T* origin = nullptr;
};

template <class T> template <class U> void KrGenVector<T>::set(const KrGenVector<U>& v) {
    if (len != v.len)
        KrMatrixError::err("KrVector length mismatch %d != %d", len, v.len);
    // Past a reported mismatch (a handler is installed) only the common part is written.
    const int n = len < v.len ? len : v.len;
    if constexpr (std::is_same_v<T, U>) {
        if (this == &v || (origin == v.origin && step == v.step))
            return;
        if (block.get() && block.get() == v.block.get()) {
            const KrGenVector<T> source = v.copy();
            Krovel::_copyLine(origin, step, source.origin, source.step, n);
            return;
        }
    }
    Krovel::_copyLine(origin, step, v.origin, v.step, n);
}

extern template class KrGenVector<float>;
extern template class KrGenVector<double>;
extern template class KrGenVector<int>;
extern template class KrGenVector<char*>;
