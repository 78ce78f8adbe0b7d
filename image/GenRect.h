#pragma once

#include <ostream>

namespace Orvane {

/// A point (x, y). Used with int pixel coordinates and with float and double
/// positions.
template <class T> struct GenPoint {
    T x = 0;
    T y = 0;

    GenPoint() = default;
    GenPoint(T x, T y) : x(x), y(y) {}

    bool operator==(const GenPoint& p) const { return x == p.x && y == p.y; }
    bool operator!=(const GenPoint& p) const { return !(*this == p); }
    GenPoint operator+(const GenPoint& p) const { return GenPoint(x + p.x, y + p.y); }
    GenPoint operator-(const GenPoint& p) const { return GenPoint(x - p.x, y - p.y); }

    /// "Point(x,y)".
    void print(std::ostream& os) const { os << "Point(" << x << "," << y << ")"; }
};

/// A rectangle covering x <= px < x + w, y <= py < y + h. Empty when w < 1 or
/// h < 1; intersections of disjoint rectangles leave w or h zero or negative,
/// and nothing clamps them.
template <class T> struct GenRect {
    T x = 0;
    T y = 0;
    T w = 0;
    T h = 0;

    GenRect() = default;
    GenRect(T x, T y, T w, T h) : x(x), y(y), w(w), h(h) {}

    bool isEmpty() const { return w < 1 || h < 1; }

    bool operator==(const GenRect& r) const { return x == r.x && y == r.y && w == r.w && h == r.h; }
    bool operator!=(const GenRect& r) const { return !(*this == r); }

    /// The intersection, unclamped: disjoint rectangles give a zero or
    /// negative width or height.
    GenRect operator&(const GenRect& b) const {
        GenRect r;
        r.x = x > b.x ? x : b.x;
        r.y = y > b.y ? y : b.y;
        T right = x + w < b.x + b.w ? x + w : b.x + b.w;
        T bottom = y + h < b.y + b.h ? y + h : b.y + b.h;
        r.w = right - r.x;
        r.h = bottom - r.y;
        return r;
    }

    /// Becomes the intersection, except that an empty rectangle stays as it
    /// is. Unlike `&`, so (0,0,0,0) &= (1,1,5,5) keeps (0,0,0,0) where `&`
    /// gives (1,1,-1,-1); callers rely on the difference.
    GenRect& operator&=(const GenRect& b) {
        if (!isEmpty())
            *this = *this & b;
        return *this;
    }

    /// This rectangle moved by p.
    GenRect operator+(const GenPoint<T>& p) const { return GenRect(x + p.x, y + p.y, w, h); }
    /// This rectangle moved by -p.
    GenRect operator-(const GenPoint<T>& p) const { return GenRect(x - p.x, y - p.y, w, h); }

    /// "Rect(x,y,w,h)", no spaces.
    void print(std::ostream& os) const {
        os << "Rect(" << x << "," << y << "," << w << "," << h << ")";
    }
};

template <class T> std::ostream& operator<<(std::ostream& os, const GenPoint<T>& p) {
    p.print(os);
    return os;
}

template <class T> std::ostream& operator<<(std::ostream& os, const GenRect<T>& r) {
    r.print(os);
    return os;
}

} // namespace Orvane
