#pragma once

#include "image/GenRect.h"
#include "image/Image.h"
#include "krovel/KrGenMatrix.h"

#include <cstdint>
#include <vector>

namespace Orvane {

/// How a warp samples between source pixels.
enum class Interpolation {
    /// Four neighbours, weighted by the fractions: cheap, but it smooths
    /// by an amount that depends on the sub-pixel phase.
    Bilinear,
    /// Cubic convolution (a = -0.5) over four by four neighbours: sharper
    /// and exact on quadratic ramps, but with the same phase error as
    /// bilinear on fine detail, so it does not lessen that pull.
    Bicubic,
    /// Cubic B-spline over four by four coefficients, which a prefilter
    /// fits to the pixels first: a phase error far below the others'.
    BSpline,
};

/// Fills every pixel of `dst` by cubic convolution of `src` at the position
/// the 2x3 matrix `m` gives for the pixel's centre, with the coordinates of
/// xform_bilinear: destination (x + 0.5, y + 0.5) maps to source
/// (m00 x' + m01 y' + m02, m10 x' + m11 y' + m12), source pixel centres at
/// +0.5, positions in single precision. The kernel weighs the 4 x 4 pixels
/// around the position with w(t) = 1.5|t|³ − 2.5|t|² + 1 for |t| < 1 and
/// −0.5|t|³ + 2.5|t|² − 4|t| + 2 for 1 ≤ |t| < 2; it reproduces the source
/// at pixel centres and linear and quadratic ramps between them.
///
/// The border follows xform_bilinear: a position beyond the source edge
/// (or NaN) takes the edge pixel, and taps that fall outside near the edge
/// repeat it. An empty source fills `dst` with 0.
///
/// `dst` must be FLOAT ("wrong datatype float; image is ..."); `src` must be
/// FLOAT or DOUBLE ("xform_bicubic only supports float and double", or "src
/// datatype unknown"); both need the same channel count
/// ("nc == dstfmt.getNumChannels()"). All are IllegalArgumentException.
void xform_bicubic(Image src, Image dst, const KrGenMatrix<float>& m);
void xform_bicubic(Image src, Image dst, const KrGenMatrix<double>& m);

/// The cubic B-spline warp: fills `dst` as xform_bicubic does, with the
/// cubic B-spline through the source pixels in place of cubic convolution.
/// The spline passes through every pixel centre and, near the edge, treats
/// the pixels beyond it as repeats of the edge pixel. Errors as
/// xform_bicubic's, with "xform_bspline only supports float and double".
void xform_bspline(Image src, Image dst, const KrGenMatrix<float>& m);
void xform_bspline(Image src, Image dst, const KrGenMatrix<double>& m);

/// The prefilter of the B-spline warp: the coefficients whose cubic
/// B-spline passes through the pixels of an image, as a FLOAT image over
/// its bounds with its channels. The object keeps its store and factors, so
/// a caller that prefilters images of one size over and over allocates
/// nothing after the first.
class BSplineCoefficients {
public:
    /// Prefilters `src` (FLOAT or DOUBLE, not empty) and returns the result,
    /// valid until the next call. Other datatypes throw
    /// IllegalArgumentException "xform_bspline only supports float and double".
    const Image& fit(const Image& src);
    const Image& get() const { return coefficients; }

private:
    Image coefficients;
    std::vector<float> columnFactors;
    std::vector<float> rowFactors;
};

/// The warp's sampling over raw rows, laid out as for _bilinearRows: `src`
/// addresses the source pixel (sb.x, sb.y), rows `srcStride` bytes apart,
/// `nc` channels interleaved; `dst` receives rows of db.w · nc floats,
/// `dstStride` bytes apart; `m` is the 2x3 matrix, row-major. The source
/// must not be empty. S is float or double. One-channel float sources take
/// an AVX2 loop where the processor has it, with the same results to the bit.
template <class S>
void _bicubicRows(const unsigned char* src, const GenRect<int>& sb, int64_t srcStride, int nc,
                  const GenRect<int>& db, unsigned char* dst, int64_t dstStride,
                  const float (&m)[6]);

/// The B-spline warp's sampling over raw rows of coefficients (as
/// BSplineCoefficients makes them), laid out as for _bicubicRows.
void _bsplineRows(const unsigned char* coefficients, const GenRect<int>& sb, int64_t srcStride,
                  int nc, const GenRect<int>& db, unsigned char* dst, int64_t dstStride,
                  const float (&m)[6]);

} // namespace Orvane
