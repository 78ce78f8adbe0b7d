#pragma once

#include "image/GenRect.h"
#include "image/Image.h"
#include "krovel/KrGenMatrix.h"

/// Affine maps as 2 by 3 matrices [A | t] with an implicit bottom row
/// (0, 0, 1). Any layout is accepted; a matrix of another shape reports
/// "KrMatrix row mismatch %d != %d" or "KrMatrix col mismatch %d != %d"
/// (expected, then actual) through KrMatrixError::err.

/// Writes the product a · b (apply b, then a) into `out`, which is resized to
/// 2 by 3 keeping its layout. `out` may share storage with `a` or `b`.
template <class T>
void multiply2x3(const KrGenMatrix<T>& a, const KrGenMatrix<T>& b, KrGenMatrix<T>& out);

/// The product a · b as a new column-major matrix.
template <class T> KrGenMatrix<T> multiply2x3(const KrGenMatrix<T>& a, const KrGenMatrix<T>& b);

/// m applied to p: (m00·x + m01·y + m02, m10·x + m11·y + m12).
template <class T>
Orvane::GenPoint<T> transform2x3(const KrGenMatrix<T>& m, const Orvane::GenPoint<T>& p);

namespace Orvane {

/// The matrix that the warp about two points applies, translate(centre) · m ·
/// translate(−anchor), formed in T as that warp forms it, into the six
/// elements of `out`, row-major.
template <class T>
void centredMatrix(const KrGenMatrix<T>& m, const GenPoint<float>& centre,
                   const GenPoint<float>& anchor, T (&out)[6]);

/// The bilinear warp about two points: fills `dst` from `src` through
/// translate(centre) · m · translate(−anchor), so that m maps offsets from
/// `anchor` in dst's coordinates to offsets from `centre` in src's. The
/// sampling, edge clamping and datatype rules are the plain warp's; the
/// composed matrix lives on the stack.
template <class T>
void xform_bilinear(Image src, Image dst, const KrGenMatrix<T>& m, const GenPoint<float>& centre,
                    const GenPoint<float>& anchor);

} // namespace Orvane
