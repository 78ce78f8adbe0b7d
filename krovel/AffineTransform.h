#pragma once

#include "krovel/KrGenMatrix.h"

#include <iosfwd>

/// The shape of a tracked feature: translation, rotation, uniform scale and a
/// two-parameter area-preserving stretch. Also the value of a keyframed
/// attribute, so it carries component-wise arithmetic for interpolation and
/// averaging.
///
/// The matrix maps pattern offsets to search offsets:
///   diag(sc·st0, sc/st0) · [[a, b], [b, a]] · [[cos ro, −sin ro], [sin ro, cos ro]]
/// with a = (st1 + 1/st1)/2 and b = (st1 − 1/st1)/2, and (tx, ty) as its
/// last column. Its determinant is sc².
class AffineTransform {
public:
    /// The identity (0, 0, 0, 1, 1, 1).
    AffineTransform() = default;
    AffineTransform(float tx, float ty, float ro, float sc, float st0, float st1)
        : tx(tx), ty(ty), ro(ro), sc(sc), st0(st0), st1(st1) {}

    /// Sets the identity (0, 0, 0, 1, 1, 1).
    AffineTransform& identity();
    /// Sets all six fields to 0, the start of a sum.
    AffineTransform& zero();

    /// Resizes `m` to 2 by 3, keeping its layout (row-major when its column
    /// stride is 1, else column-major), and writes the matrix. A matrix that
    /// already has that shape and layout is written in place, so every
    /// handle sharing it sees the result.
    void getMatrix(KrGenMatrix<float>& m) const;
    /// The float matrix, converted.
    void getMatrix(KrGenMatrix<double>& m) const;

    AffineTransform operator+(const AffineTransform& t) const;
    AffineTransform operator-(const AffineTransform& t) const;
    AffineTransform operator*(float s) const;
    AffineTransform operator/(float s) const;
    AffineTransform& operator+=(const AffineTransform& t);
    AffineTransform& operator-=(const AffineTransform& t);
    AffineTransform& operator*=(float s);
    AffineTransform& operator/=(float s);

    /// All six fields equal (so NaN fields never compare equal).
    bool operator==(const AffineTransform& t) const;
    bool operator!=(const AffineTransform& t) const { return !(*this == t); }

    float tx = 0;  ///< translation x
    float ty = 0;  ///< translation y
    float ro = 0;  ///< rotation angle, radians
    float sc = 1;  ///< uniform scale
    float st0 = 1; ///< area-preserving stretch along the axes
    float st1 = 1; ///< area-preserving stretch along the diagonals
};

/// "(tx 0, ty 0, ro 0, sc 1, st0 1, st1 1)", numbers in the stream's format.
std::ostream& operator<<(std::ostream& os, const AffineTransform& t);
