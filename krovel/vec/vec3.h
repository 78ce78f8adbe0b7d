#pragma once

#include <iosfwd>

/// A homogeneous plane point or a 3-D direction: three contiguous doubles.
class vec3 {
public:
    double x = 0.0;
    double y = 0.0;
    double z = 0.0;

    /// (0, 0, 0).
    vec3() = default;
    vec3(double x, double y, double z) : x(x), y(y), z(z) {}

    /// The first of the three contiguous elements.
    double* operator()() { return &x; }
    const double* operator()() const { return &x; }

    vec3 operator-() const { return vec3(-x, -y, -z); }
    vec3 operator+(const vec3& v) const { return vec3(x + v.x, y + v.y, z + v.z); }
    vec3 operator-(const vec3& v) const { return vec3(x - v.x, y - v.y, z - v.z); }
    vec3& operator+=(const vec3& v) {
        x += v.x;
        y += v.y;
        z += v.z;
        return *this;
    }
    vec3& operator-=(const vec3& v) {
        x -= v.x;
        y -= v.y;
        z -= v.z;
        return *this;
    }
    vec3 operator*(double s) const { return vec3(x * s, y * s, z * s); }
    vec3& operator*=(double s) {
        x *= s;
        y *= s;
        z *= s;
        return *this;
    }
    vec3 operator/(double s) const { return vec3(x / s, y / s, z / s); }
    vec3& operator/=(double s) {
        x /= s;
        y /= s;
        z /= s;
        return *this;
    }
    /// Exact comparison; a NaN element is never equal.
    bool operator==(const vec3& v) const { return x == v.x && y == v.y && z == v.z; }
    bool operator!=(const vec3& v) const { return !(*this == v); }

    double dot(const vec3& v) const { return x * v.x + y * v.y + z * v.z; }
};

inline vec3 operator*(double s, const vec3& v) {
    return v * s;
}

/// Writes "| x y z |" in the stream's current number format.
std::ostream& operator<<(std::ostream& os, const vec3& v);

/// Reads "| x y z |" or a bare "x y z". A barred form whose closing character
/// is not '|' sets failbit. v changes only when the read succeeds.
std::istream& operator>>(std::istream& is, vec3& v);
