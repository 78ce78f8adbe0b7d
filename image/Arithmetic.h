#pragma once

#include "base/Exception.h"
#include "image/Image.h"
#include "image/ImageRows.h"

namespace Orvane {

/// out = a − b, sample by sample in a's datatype, over a's bounds. `b` is
/// first converted to a's format; its pixels pair with a's by offset from
/// the top-left corner, so its position does not matter, but it must be at
/// least as wide and as tall as `a` (IllegalArgumentException "image bounds
/// mismatch"). Unsigned samples wrap modulo 2^bits: 10 − 20 in UB1 is 246.
/// `out` is allocated with a's bounds and format, reusing a matching store.
/// "src datatype unknown" for an unknown datatype of `a`.
void subtract(const Image& a, const Image& b, Image& out);

/// subtract() for a known sample type; `b` must already have a's format.
template <class T> void _subtract(const Image& a, const Image& b, Image& out) {
    const GenRect<int> bounds = a.getBounds();
    if (b.getBounds().w < bounds.w || b.getBounds().h < bounds.h)
        throw IllegalArgumentException("image bounds mismatch");
    out.allocate(bounds, a.getFormat());
    if (bounds.w < 1 || bounds.h < 1)
        return;

    const ImageRows<const T> ra(a);
    const ImageRows<const T> rb(b);
    const ImageRows<T> ro(out);
    const int count = bounds.w * a.getFormat().getNumChannels();
    for (int y = 0; y < bounds.h; ++y) {
        const T* sa = ra.row(y);
        const T* sb = rb.row(y);
        T* so = ro.row(y);
        // The cast back to T makes narrow unsigned differences wrap.
        for (int i = 0; i < count; ++i)
            so[i] = static_cast<T>(sa[i] - sb[i]);
    }
}

/// A getRGB() image of the source's bounds showing channel `channel` of a
/// FLOAT or DOUBLE image divided by `scale`: negative values in red,
/// positive in green, magnitudes above 1 adding blue. `channel` −1 means the
/// only channel of a one-channel image (else IllegalArgumentException
/// "snc == 1"); any other value must name a channel ("(c >= 0) && (c <
/// snc)"). Fixed-point images throw "display_numeric only supports float and
/// double", unknown datatypes "src datatype unknown".
Image display_numeric(const Image& img, int channel, double scale);

} // namespace Orvane
