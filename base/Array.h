#pragma once

#include "base/Exception.h"

#include <utility>

/// A growable array that holds exactly as many slots as elements unless
/// `reserve` made room: every other size change reallocates. The arrays of
/// the model are short (tracks, keys of one attribute), so simplicity wins
/// over amortised growth; an owner that grows one key at a time reserves.
template <class T> class Array {
public:
    Array() = default;
    Array(const Array& other) { *this = other; }
    virtual ~Array() { delete[] data; }

    Array& operator=(const Array& other) {
        if (this == &other)
            return *this;
        resize(other.count);
        for (int i = 0; i < count; ++i)
            data[i] = other.data[i];
        return *this;
    }

    int getCount() const { return count; }
    int size() const { return count; }
    int getCapacity() const { return capacity; }

    void resize(int n) {
        if (n < 0)
            throw IllegalArgumentException("Array::resize");
        if (n > count && n <= capacity) {
            for (int i = count; i < n; ++i)
                data[i] = T();
            count = n;
            return;
        }
        reallocate(n);
        count = n;
    }

    /// Room for `n` elements, so that growing up to `n` reallocates no more;
    /// the elements and their count stay. Less room than the count is none.
    void reserve(int n) {
        if (n <= capacity || n <= count)
            return;
        const int keep = count;
        reallocate(n);
        count = keep;
    }

    T& operator[](int i) {
        if (i < 0 || i >= count)
            throw BadIndexException("Array::operator[]");
        return data[i];
    }
    const T& operator[](int i) const {
        if (i < 0 || i >= count)
            throw BadIndexException("Array::operator[]");
        return data[i];
    }

    void append(const T& value) {
        T copy = value; // value may live in this array
        resize(count + 1);
        data[count - 1] = std::move(copy);
    }

    /// `i` must lie in 0 .. count; outside that the array's index error is
    /// raised before anything changes, rather than writing out of bounds.
    T& insert(const T& value, int i) {
        if (i < 0 || i > count)
            throw BadIndexException("Array::operator[]");
        T copy = value;
        resize(count + 1);
        for (int k = count - 1; k > i; --k)
            data[k] = std::move(data[k - 1]);
        data[i] = std::move(copy);
        return data[i];
    }

    /// Any index at or past the last removes the last element; on an empty
    /// array that shortening throws "Array::resize". A negative index is an
    /// index error rather than a write before the first element.
    void remove(int i) {
        if (i < 0 && count > 0)
            throw BadIndexException("Array::operator[]");
        if (i < count - 1) {
            for (int k = i; k < count - 1; ++k)
                data[k] = std::move(data[k + 1]);
        }
        resize(count - 1);
    }

    void clear() { resize(0); }

    /// qsort comparator ordering by T's operator<: -1, 0 or 1.
    static int less_than(const void* a, const void* b) {
        const T& x = *static_cast<const T*>(a);
        const T& y = *static_cast<const T*>(b);
        return x < y ? -1 : (y < x ? 1 : 0);
    }

    T* begin() { return data; }
    T* end() { return data + count; }
    const T* begin() const { return data; }
    const T* end() const { return data + count; }

protected:
    // `n` slots, the first elements moved over; the count is the caller's.
    void reallocate(int n) {
        T* fresh = nullptr;
        if (n > 0) {
            // Value-initialised, so new slots of scalar types start at zero.
            fresh = new T[n]();
            int keep = count < n ? count : n;
            for (int i = 0; i < keep; ++i)
                fresh[i] = std::move(data[i]);
        }
        delete[] data;
        data = fresh;
        capacity = n;
    }

    int capacity = 0;
    int count = 0;
    T* data = nullptr;
};
