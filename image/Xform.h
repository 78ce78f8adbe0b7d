#pragma once

#include "image/Format.h"
#include "image/Image.h"
#include "krovel/vec/mat2.h"
#include "krovel/vec/mat3.h"

namespace Orvane {

/// xform(img, diag(sx, sy, 1), 0): the image scaled about the origin of the
/// global pixel coordinates, Gaussian-filtered where it shrinks.
Image scale(Image img, double sx, double sy);

/// The image under the affine map in the top two rows of `m`, resampled in
/// two separable passes (hxform, then vxform) on premultiplied pixels; the
/// result has the premultiplied flag set and covers the mapped bounds,
/// widened by `param` pixels on each side, rounded to whole pixels.
///
/// When |m01| > |m00| the columns 0 and 1 of `m` are swapped in place first,
/// so the horizontal pass never divides by the smaller coefficient; the
/// caller sees the swapped matrix, which is the map actually applied. A
/// singular linear part throws IllegalArgumentException "xform: singular
/// matrix" and leaves `m` untouched.
Image xform(Image img, mat3& m, double param);

/// The horizontal pass: every row r is resampled under x -> (m00 x + m01 r +
/// m02) / (m20 x + m21 r + m22); rows and their y range stay. The output's
/// x range is that of the mapped corners, widened by `param` and rounded.
/// A range that is not finite or beyond 2^30 throws IllegalArgumentException
/// "hxform: output range out of bounds".
Image hxform(Image img, const mat3& m, double param);

/// The vertical pass, hxform turned by a quarter: every column c is
/// resampled under y -> (m11 y + m10 c + m12) / (m21 y + m20 c + m22);
/// columns stay. A bad range throws "vxform: output range out of bounds".
Image vxform(Image img, const mat3& m, double param);

/// Resamples one run of pixels: `srcWidth` pixels at positions srcX.. of
/// the source, `srcStep` bytes apart, into `dstWidth` pixels at dstX.., each
/// of `nc` samples of f's datatype. `m` maps a source position s to the
/// destination position (m00 s + m01) / (m10 s + m11). Integer datatypes go
/// to fixmap, FLOAT and DOUBLE to floatmap; any other datatype does nothing.
void map(const unsigned char* src, int srcStep, int srcX, int srcWidth, unsigned char* dst,
         int dstStep, int dstX, int dstWidth, int nc, const mat2& m, const Format& f);

/// map() for integer samples, with the shared integer Gaussian in 16.16
/// fixed point. Each destination sample centre maps back to the source and
/// the kernel, widened by clamp(|m11 / m00|, 1, 16), averages the source
/// samples it covers; a destination sample that covers none becomes 0.
template <class T>
void fixmap(const unsigned char* src, int srcStep, int srcX, int srcWidth, unsigned char* dst,
            int dstStep, int dstX, int dstWidth, int nc, const mat2& m);

/// map() for floating-point samples, with the shared float Gaussian.
template <class T>
void floatmap(const unsigned char* src, int srcStep, int srcX, int srcWidth, unsigned char* dst,
              int dstStep, int dstX, int dstWidth, int nc, const mat2& m);

extern template void fixmap<unsigned char>(const unsigned char*, int, int, int, unsigned char*, int,
                                           int, int, int, const mat2&);
extern template void fixmap<unsigned short>(const unsigned char*, int, int, int, unsigned char*,
                                            int, int, int, int, const mat2&);
extern template void fixmap<unsigned int>(const unsigned char*, int, int, int, unsigned char*, int,
                                          int, int, int, const mat2&);
extern template void floatmap<float>(const unsigned char*, int, int, int, unsigned char*, int, int,
                                     int, int, const mat2&);
extern template void floatmap<double>(const unsigned char*, int, int, int, unsigned char*, int, int,
                                      int, int, const mat2&);

} // namespace Orvane
