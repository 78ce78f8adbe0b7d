#pragma once

#include "base/Exception.h"
#include "image/Convert.h"
#include "image/Image.h"
#include "image/ImageRows.h"

namespace Orvane {

/// Converts channel position `srcPos` of every source pixel into channel
/// position `dstPos` of the destination pixel at the same offset from the
/// top-left corner; the destination's other channels are left as they are.
/// Width and height must match (IllegalArgumentException "image bounds
/// mismatch"); a position outside its image's channels throws
/// BadIndexException "channel position out of range". Unknown datatypes throw
/// "src datatype unknown" or "dst datatype unknown".
void copyChannel(const Image& src, const Image& dst, int srcPos, int dstPos);

/// copyChannel for known sample types.
template <class S, class D>
void _copyChannelSrcDst(const Image& src, const Image& dst, int srcPos, int dstPos) {
    const GenRect<int>& sb = src.getBounds();
    const GenRect<int>& db = dst.getBounds();
    if (sb.w != db.w || sb.h != db.h)
        throw IllegalArgumentException("image bounds mismatch");
    const int snc = src.getFormat().getNumChannels();
    const int dnc = dst.getFormat().getNumChannels();
    // Unchecked positions would read or write outside the pixel.
    if (srcPos < 0 || srcPos >= snc || dstPos < 0 || dstPos >= dnc)
        throw BadIndexException("channel position out of range");
    if (sb.w < 1 || sb.h < 1)
        return;

    const ImageRows<const S> in(src);
    const ImageRows<D> out(dst);
    for (int y = 0; y < sb.h; ++y) {
        const S* sp = in.row(y) + srcPos;
        D* dp = out.row(y) + dstPos;
        for (int x = 0; x < sb.w; ++x, sp += snc, dp += dnc)
            *dp = _convertSample<S, D>(*sp);
    }
}

/// A new one-channel image of the source's bounds holding channel `pos`,
/// converted to `datatype`. Its channel string is the source's letter for
/// that position (Format::identifyChannel) and its premultiplied flag is
/// set. A position outside the source's channels throws as copyChannel does.
Image extractChannel(const Image& src, int pos, int datatype);
/// extractChannel() in the source's datatype.
Image extractChannel(const Image& src, int pos);

} // namespace Orvane
