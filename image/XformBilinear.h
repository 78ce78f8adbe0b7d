#pragma once

#include "image/Image.h"
#include "krovel/KrGenMatrix.h"

#include <cstdint>

namespace Orvane {

/// Fills every pixel of `dst` by bilinear sampling of `src` at the position
/// the 2x3 matrix `m` gives for the pixel's centre: destination (x + 0.5,
/// y + 0.5) maps to source (m00 x' + m01 y' + m02, m10 x' + m11 y' + m12),
/// where source pixel centres also sit at +0.5. Positions are evaluated in
/// single precision; beyond the source edge the edge pixel repeats. An empty
/// source fills `dst` with 0.
///
/// `dst` must be FLOAT ("wrong datatype float; image is ..."); `src` must be
/// FLOAT or DOUBLE ("xform_bilinear only supports float and double", or "src
/// datatype unknown"); both need the same channel count
/// ("nc == dstfmt.getNumChannels()"). All are IllegalArgumentException.
void xform_bilinear(Image src, Image dst, const KrGenMatrix<float>& m);
void xform_bilinear(Image src, Image dst, const KrGenMatrix<double>& m);

/// The warp's sampling over raw rows, for callers that keep their own
/// buffers: `src` addresses the source pixel (sb.x, sb.y), rows `srcStride`
/// bytes apart, `nc` channels interleaved; `dst` receives rows of db.w · nc
/// floats, `dstStride` bytes apart; `m` is the 2x3 matrix, row-major. The
/// source must not be empty. S is float or double.
template <class S>
void _bilinearRows(const unsigned char* src, const GenRect<int>& sb, int64_t srcStride, int nc,
                   const GenRect<int>& db, unsigned char* dst, int64_t dstStride,
                   const float (&m)[6]);

/// `count` warps of one source over one destination grid, as `_bilinearRows`
/// makes them one at a time and to the same bits: warp k under `m[k]` into
/// `dst[k]`, rows of db.w · nc floats without padding. Warps that blend the
/// same source pixels, such as the trial warps of a forward-difference
/// Jacobian, share the loads of those pixels.
template <class S>
void _bilinearRowsMany(const unsigned char* src, const GenRect<int>& sb, int64_t srcStride, int nc,
                       const GenRect<int>& db, int count, const float (*m)[6], float* const* dst);

/// The warp for source samples S and matrix elements D; `dstBuffer` is the
/// first float of `dst`.
template <class S, class D>
void _xform_bilinear(const Image& src, const Image& dst, const KrGenMatrix<D>& m, float* dstBuffer);

extern template void _xform_bilinear<float, float>(const Image&, const Image&,
                                                   const KrGenMatrix<float>&, float*);
extern template void _xform_bilinear<double, float>(const Image&, const Image&,
                                                    const KrGenMatrix<float>&, float*);
extern template void _xform_bilinear<float, double>(const Image&, const Image&,
                                                    const KrGenMatrix<double>&, float*);
extern template void _xform_bilinear<double, double>(const Image&, const Image&,
                                                     const KrGenMatrix<double>&, float*);

} // namespace Orvane
