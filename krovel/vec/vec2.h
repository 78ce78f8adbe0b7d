#pragma once

#include <iosfwd>

/// A point or direction in the plane: two contiguous doubles.
class vec2 {
public:
    double x = 0.0;
    double y = 0.0;

    /// (0, 0).
    vec2() = default;
    vec2(double x, double y) : x(x), y(y) {}

    /// The first of the two contiguous elements.
    double* operator()() { return &x; }
    const double* operator()() const { return &x; }

    vec2 operator-() const { return vec2(-x, -y); }
    vec2 operator+(const vec2& v) const { return vec2(x + v.x, y + v.y); }
    vec2 operator-(const vec2& v) const { return vec2(x - v.x, y - v.y); }
    vec2& operator+=(const vec2& v) {
        x += v.x;
        y += v.y;
        return *this;
    }
    vec2& operator-=(const vec2& v) {
        x -= v.x;
        y -= v.y;
        return *this;
    }
    vec2 operator*(double s) const { return vec2(x * s, y * s); }
    vec2& operator*=(double s) {
        x *= s;
        y *= s;
        return *this;
    }
    vec2 operator/(double s) const { return vec2(x / s, y / s); }
    vec2& operator/=(double s) {
        x /= s;
        y /= s;
        return *this;
    }
    /// Exact comparison; a NaN element is never equal.
    bool operator==(const vec2& v) const { return x == v.x && y == v.y; }
    bool operator!=(const vec2& v) const { return !(*this == v); }

    double dot(const vec2& v) const { return x * v.x + y * v.y; }
};

inline vec2 operator*(double s, const vec2& v) {
    return v * s;
}

/// Writes "| x y |" in the stream's current number format.
std::ostream& operator<<(std::ostream& os, const vec2& v);

/// Reads "| x y |" or a bare "x y". A barred form whose closing character is
/// not '|' sets failbit. v changes only when the read succeeds.
std::istream& operator>>(std::istream& is, vec2& v);
