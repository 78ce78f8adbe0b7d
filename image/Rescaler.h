#pragma once

#include "image/Image.h"

#include <vector>

namespace Orvane {

/// scale(img, sx, sy) with its weights and storage kept from call to call.
/// A scaling maps every row (and every column) alike, so the taps and
/// weights of each output sample are worked out once per pass and reused for
/// all rows; the vertical pass then walks whole rows rather than one column
/// at a time. The samples, bounds and format are those of scale(), to the
/// bit.
///
/// It takes FLOAT and DOUBLE images that premultiplying leaves as they are
/// (no alpha, or already premultiplied), at least one pixel each way, with
/// positive, finite factors; `supports` says whether an image qualifies.
class Rescaler {
public:
    Rescaler(double sx, double sy) : sx(sx), sy(sy) {}
    // Copies would share the store and move each other's bounds.
    Rescaler(const Rescaler&) = delete;
    Rescaler& operator=(const Rescaler&) = delete;

    /// Whether `apply` takes `img`.
    bool supports(const Image& img) const;

    /// Resamples `img` into the image held here and returns it. The next
    /// call overwrites its pixels and, for a source of the same size and
    /// format at another position, gives it the new bounds in the same
    /// storage (every handle on it sees them); the weights are reused
    /// whenever the source bounds repeat. So a call with a source of the size
    /// before allocates nothing. An image that
    /// `supports` refuses throws IllegalArgumentException "Rescaler: unsupported image"; output
    /// ranges beyond 2^30 throw the texts of hxform and vxform.
    const Image& apply(const Image& img);

    /// One pass's taps: output sample j blends `count[j]` consecutive source
    /// samples from `first[j]`, with the weights from `start[j]` on.
    struct Taps {
        int srcStart = 0;
        int srcSize = -1;
        int dstStart = 0;
        int dstSize = -1;
        std::vector<int> first;
        std::vector<int> count;
        std::vector<int> start;
        std::vector<double> weight;
    };

private:
    class Store;

    double sx;
    double sy;
    Taps across;
    Taps down;
    // The horizontal pass's output, and the vertical pass's row sums.
    std::vector<double> middle;
    std::vector<double> sums;
    Image out;
    // The store inside `out`, kept alive by it.
    Store* store = nullptr;
};

} // namespace Orvane
