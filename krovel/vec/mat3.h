#pragma once

#include "krovel/vec/vec2.h"
#include "krovel/vec/vec3.h"

#include <iosfwd>

/// A 3 by 3 double matrix stored column by column: element (r, c) is
/// element 3c + r of the block. Describes homogeneous 2-D transforms acting
/// on column vectors (x, y, 1).
class mat3 {
public:
    /// The zero matrix (not the identity).
    mat3();
    /// Every element v.
    explicit mat3(double v);
    /// From the three columns.
    mat3(const vec3& c0, const vec3& c1, const vec3& c2);

    /// Column i (three doubles). Any index outside 0..2 writes
    /// "mat3 [] operator: illegal access; index = <i>" to standard error and
    /// the pointer is returned all the same; it must not be dereferenced.
    double* operator[](int i);
    const double* operator[](int i) const;

    /// Element (r, c); throws BadIndexException "mat3::operator()" unless
    /// both lie in 0..2.
    double& operator()(int r, int c);
    double operator()(int r, int c) const;

    mat3 operator-() const;
    mat3 operator+(const mat3& b) const;
    mat3 operator-(const mat3& b) const;
    mat3& operator+=(const mat3& b);
    mat3& operator-=(const mat3& b);
    mat3 operator*(double s) const;
    mat3& operator*=(double s);
    mat3 operator/(double s) const;
    mat3& operator/=(double s);
    /// Every element compared exactly; a NaN element is never equal.
    bool operator==(const mat3& b) const;
    bool operator!=(const mat3& b) const { return !(*this == b); }

    /// Replaces every element e by f(e) and returns this matrix.
    mat3& apply(double (*f)(double));

    mat3 transpose() const;
    double determinant() const;
    /// Not provided: always throws the C string "niy".
    mat3 inverse() const;

    /// Copies with columns a and b, rows a and b, or both exchanged (the
    /// last is the same map with the two axes interchanged). Indices outside
    /// 0..2 throw BadIndexException "mat3::swapCols", "mat3::swapRows" or
    /// "mat3::swapColsRows".
    mat3 swapCols(int a, int b) const;
    mat3 swapRows(int a, int b) const;
    mat3 swapColsRows(int a, int b) const;

private:
    const double* column(int i) const;

    double m[9];
};

mat3 operator*(double s, const mat3& a);
/// The ordinary matrix product.
mat3 operator*(const mat3& a, const mat3& b);
vec3 operator*(const mat3& a, const vec3& v);
/// Maps the plane point p as (p.x, p.y, 1) and divides by the third
/// component; an affine matrix leaves that component at 1.
vec2 operator*(const mat3& a, const vec2& p);

/// The identity.
mat3 identity2D();
/// Translation by t: the identity with column 2 = (t.x, t.y, 1).
mat3 translation2D(const vec2& t);
/// diag(s.x, s.y, 1).
mat3 scaling2D(const vec2& s);
/// Rotation by `degrees` about `center`; positive angles turn the x axis
/// towards the y axis.
mat3 rotation2D(const vec2& center, double degrees);

/// Three lines "| a b c |", the first two ending in a newline.
std::ostream& operator<<(std::ostream& os, const mat3& a);
/// Not provided: throws UnsupportedOperationException
/// "krovel/vec line 396: not implemented yet".
std::istream& operator>>(std::istream& is, mat3& a);
