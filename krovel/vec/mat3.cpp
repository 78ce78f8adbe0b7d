#include "krovel/vec/mat3.h"

#include "base/Exception.h"

#include <cmath>
#include <cstdint>
#include <iostream>
#include <utility>

namespace {

constexpr double pi = 3.14159265358979323846;

void checkSwap(int a, int b, const char* who) {
    if (static_cast<unsigned>(a) >= 3u || static_cast<unsigned>(b) >= 3u) {
        throw BadIndexException(who);
    }
}

} // namespace

mat3::mat3() : m{} {}

mat3::mat3(double v) : m{v, v, v, v, v, v, v, v, v} {}

mat3::mat3(const vec3& c0, const vec3& c1, const vec3& c2)
    : m{c0.x, c0.y, c0.z, c1.x, c1.y, c1.z, c2.x, c2.y, c2.z} {}

const double* mat3::column(int i) const {
    if (static_cast<unsigned>(i) < 3u) {
        return m + 3 * i;
    }
    std::cerr << "mat3 [] operator: illegal access; index = " << i << "\n";
    // The caller still gets its pointer; form it in integers, since pointer
    // arithmetic this far outside the block is undefined.
    // NOLINTNEXTLINE(performance-no-int-to-ptr): deliberate, for that reason.
    return reinterpret_cast<const double*>(reinterpret_cast<std::uintptr_t>(m) +
                                           static_cast<std::uintptr_t>(i) * 3 * sizeof(double));
}

double* mat3::operator[](int i) {
    return const_cast<double*>(column(i));
}

const double* mat3::operator[](int i) const {
    return column(i);
}

double& mat3::operator()(int r, int c) {
    if (static_cast<unsigned>(r) >= 3u || static_cast<unsigned>(c) >= 3u) {
        throw BadIndexException("mat3::operator()");
    }
    return m[3 * c + r];
}

double mat3::operator()(int r, int c) const {
    return const_cast<mat3&>(*this)(r, c);
}

mat3 mat3::operator-() const {
    return *this * -1.0;
}

mat3 mat3::operator+(const mat3& b) const {
    mat3 r(*this);
    return r += b;
}

mat3 mat3::operator-(const mat3& b) const {
    mat3 r(*this);
    return r -= b;
}

mat3& mat3::operator+=(const mat3& b) {
    for (int i = 0; i < 9; ++i) {
        m[i] += b.m[i];
    }
    return *this;
}

mat3& mat3::operator-=(const mat3& b) {
    for (int i = 0; i < 9; ++i) {
        m[i] -= b.m[i];
    }
    return *this;
}

mat3 mat3::operator*(double s) const {
    mat3 r(*this);
    return r *= s;
}

mat3& mat3::operator*=(double s) {
    for (double& e : m) {
        e *= s;
    }
    return *this;
}

mat3 mat3::operator/(double s) const {
    mat3 r(*this);
    return r /= s;
}

mat3& mat3::operator/=(double s) {
    for (double& e : m) {
        e /= s;
    }
    return *this;
}

bool mat3::operator==(const mat3& b) const {
    for (int i = 0; i < 9; ++i) {
        if (!(m[i] == b.m[i])) {
            return false;
        }
    }
    return true;
}

mat3& mat3::apply(double (*f)(double)) {
    for (double& e : m) {
        e = f(e);
    }
    return *this;
}

mat3 mat3::transpose() const {
    mat3 t;
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c) {
            t.m[3 * c + r] = m[3 * r + c];
        }
    }
    return t;
}

double mat3::determinant() const {
    const mat3& a = *this;
    return a(0, 0) * (a(1, 1) * a(2, 2) - a(1, 2) * a(2, 1)) -
           a(0, 1) * (a(1, 0) * a(2, 2) - a(1, 2) * a(2, 0)) +
           a(0, 2) * (a(1, 0) * a(2, 1) - a(1, 1) * a(2, 0));
}

mat3 mat3::inverse() const {
    throw "niy";
}

mat3 mat3::swapCols(int a, int b) const {
    checkSwap(a, b, "mat3::swapCols");
    mat3 r(*this);
    for (int k = 0; k < 3; ++k) {
        std::swap(r.m[3 * a + k], r.m[3 * b + k]);
    }
    return r;
}

mat3 mat3::swapRows(int a, int b) const {
    checkSwap(a, b, "mat3::swapRows");
    mat3 r(*this);
    for (int k = 0; k < 3; ++k) {
        std::swap(r.m[3 * k + a], r.m[3 * k + b]);
    }
    return r;
}

mat3 mat3::swapColsRows(int a, int b) const {
    checkSwap(a, b, "mat3::swapColsRows");
    return swapCols(a, b).swapRows(a, b);
}

mat3 operator*(double s, const mat3& a) {
    return a * s;
}

mat3 operator*(const mat3& a, const mat3& b) {
    mat3 p;
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c) {
            p(r, c) = a(r, 0) * b(0, c) + a(r, 1) * b(1, c) + a(r, 2) * b(2, c);
        }
    }
    return p;
}

vec3 operator*(const mat3& a, const vec3& v) {
    return vec3(a(0, 0) * v.x + a(0, 1) * v.y + a(0, 2) * v.z,
                a(1, 0) * v.x + a(1, 1) * v.y + a(1, 2) * v.z,
                a(2, 0) * v.x + a(2, 1) * v.y + a(2, 2) * v.z);
}

vec2 operator*(const mat3& a, const vec2& p) {
    const vec3 h = a * vec3(p.x, p.y, 1.0);
    return vec2(h.x / h.z, h.y / h.z);
}

mat3 identity2D() {
    return mat3(vec3(1, 0, 0), vec3(0, 1, 0), vec3(0, 0, 1));
}

mat3 translation2D(const vec2& t) {
    return mat3(vec3(1, 0, 0), vec3(0, 1, 0), vec3(t.x, t.y, 1));
}

mat3 scaling2D(const vec2& s) {
    return mat3(vec3(s.x, 0, 0), vec3(0, s.y, 0), vec3(0, 0, 1));
}

mat3 rotation2D(const vec2& center, double degrees) {
    const double theta = degrees * pi / 180.0;
    const double c = std::cos(theta);
    const double s = std::sin(theta);
    // The last column moves the centre back to itself: T(center) R T(-center).
    return mat3(vec3(c, s, 0), vec3(-s, c, 0),
                vec3((1 - c) * center.x + s * center.y, (1 - c) * center.y - s * center.x, 1));
}

std::ostream& operator<<(std::ostream& os, const mat3& a) {
    for (int r = 0; r < 3; ++r) {
        os << "| " << a(r, 0) << " " << a(r, 1) << " " << a(r, 2) << (r < 2 ? " |\n" : " |");
    }
    return os;
}

std::istream& operator>>(std::istream&, mat3&) {
    Orvane::_unsupported("krovel/vec", 396, "not implemented yet");
}
