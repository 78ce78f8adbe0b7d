#pragma once

#include "image/GenRect.h"
#include "image/Image.h"

namespace Orvane {

/// Copies the pixels of `src` inside `srcRect` into `dst`, source pixel
/// (x, y) landing on destination pixel (x + dstPos.x, y + dstPos.y). Only the
/// part that lies in both images is copied; a copy that misses does nothing.
///
/// Formats of the same channel layout and premultiplication convert sample
/// by sample, sending no change notification. Otherwise channels are mapped
/// by meaning (UB1 destinations only, the source converted first): missing
/// colour channels come from luminance or alpha, a missing alpha is opaque,
/// a missing luminance is computed from red, green and blue, and colour is
/// premultiplied or divided by alpha when the two formats disagree; the
/// destination region is then reported through Image::changed.
///
/// Throws IllegalArgumentException "only ub1 supported yet" when remapping
/// into another datatype, UnsupportedOperationException "not implemented"
/// for colour into a single luminance channel, and the bare strings
/// "lightness channel failed", "red channel failed", "green channel failed"
/// or "blue channel failed" when the source lacks what a destination
/// channel needs. A destination partly written before a failure stays so.
void copy(const Image& src, const Image& dst, const GenRect<int>& srcRect,
          const GenPoint<int>& dstPos);
/// copy() of `r` without translation.
void copy(const Image& src, const Image& dst, const GenRect<int>& r);
/// copy() of all of `src`, translated by `p`.
void copy(const Image& src, const Image& dst, const GenPoint<int>& p);
/// copy() of all of `src` without translation.
void copy(const Image& src, const Image& dst);
/// A new image of the source's bounds and format holding a copy of its
/// pixels.
Image copy(const Image& src);

} // namespace Orvane
