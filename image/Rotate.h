#pragma once

#include "image/Image.h"

namespace Orvane {

/// Copies `rows` rows of `bytesPerRow` bytes from `src` to `dst`, stepping
/// each side by its own stride in bytes; nothing when either count is not
/// positive. Rows may overlap.
void copypixels(const unsigned char* src, int srcStride, unsigned char* dst, int dstStride,
                int bytesPerRow, int rows);

/// New images of the same format holding the pixels turned or mirrored,
/// copied bit for bit. For a source with bounds (x, y, w, h), source pixel
/// (c, r) counted from the corner goes to:
///
///   rotateCW        bounds (-y, x, h, w)              pixel (h - 1 - r, c)
///   rotateCCW       bounds (y + h, -(x + w), h, w)    pixel (r, w - 1 - c)
///   flipVertical    bounds unchanged                  pixel (c, h - 1 - r)
///   flipHorizontal  bounds unchanged                  pixel (w - 1 - c, r)
///
/// The two rotations' bounds are not mirror images of each other: four
/// rotateCW calls restore the bounds, rotateCW then rotateCCW restores only
/// the pixels.
Image rotateCW(Image img);
Image rotateCCW(Image img);
Image flipVertical(Image img);
Image flipHorizontal(Image img);

} // namespace Orvane
