#pragma once

#include "krovel/vec/vec2.h"

#include <iosfwd>

/// A 2 by 2 double matrix stored column by column: element (r, c) is
/// element 2c + r of the block. Used for one-dimensional homogeneous maps.
class mat2 {
public:
    /// The zero matrix (not the identity).
    mat2();
    /// Every element v.
    explicit mat2(double v);
    /// From the two columns.
    mat2(const vec2& c0, const vec2& c1);

    /// Column i (two doubles). Indices 0 to 2 pass the check; any other index
    /// writes "mat2 [] operator: illegal access; index = <i>" to standard
    /// error and the pointer is returned all the same. Index 2 is past the
    /// block and must not be dereferenced.
    double* operator[](int i);
    const double* operator[](int i) const;

    /// Element (r, c); throws BadIndexException "mat2::operator()" unless
    /// both lie in 0..1.
    double& operator()(int r, int c);
    double operator()(int r, int c) const;

    mat2 operator-() const;
    mat2 operator+(const mat2& b) const;
    mat2 operator-(const mat2& b) const;
    mat2& operator+=(const mat2& b);
    mat2& operator-=(const mat2& b);
    mat2 operator*(double s) const;
    mat2& operator*=(double s);
    mat2 operator/(double s) const;
    mat2& operator/=(double s);
    /// Every element compared exactly; a NaN element is never equal.
    bool operator==(const mat2& b) const;
    bool operator!=(const mat2& b) const { return !(*this == b); }

    /// Replaces every element e by f(e) and returns this matrix.
    mat2& apply(double (*f)(double));

    mat2 transpose() const;
    double determinant() const;
    /// The closed-form inverse. A singular matrix yields infinities or NaNs;
    /// nothing is thrown.
    mat2 inverse() const;

private:
    const double* column(int i) const;

    double m[4];
};

mat2 operator*(double s, const mat2& a);
/// The ordinary matrix product.
mat2 operator*(const mat2& a, const mat2& b);
vec2 operator*(const mat2& a, const vec2& v);

/// Two lines, "| m00 m01 |\n| m10 m11 |", with no newline after the last.
std::ostream& operator<<(std::ostream& os, const mat2& a);
/// Reads two vec2 values as the columns; a changes only when both reads
/// succeed.
std::istream& operator>>(std::istream& is, mat2& a);
