#pragma once

#include "image/Image.h"
#include "tools/track/TrTrackFile.h"

#include <vector>

/// Help with placing tracks on a frame: how much texture a track's pattern
/// holds there, and tracks placed on the frame's strongest corners.
class TrPlacement {
public:
    /// The pattern `spec` (sizes and colour mode filled in) covers in
    /// `frame`, cut and reduced as the tracker does at its begin frame;
    /// empty when it lies outside the frame.
    static Orvane::Image patternOf(const Orvane::Image& frame, const TrTrackSpec& spec);
    /// TrTexture's measure of that pattern; 0 when there is none.
    static double textureOf(const Orvane::Image& frame, const TrTrackSpec& spec);
    /// Whether that pattern passes TrTexture::isEnough; false when there is
    /// none.
    static bool hasTexture(const Orvane::Image& frame, const TrTrackSpec& spec);

    /// Up to `count` tracks of `shape`'s sizes and colour mode, named "1",
    /// "2", … from the strongest, on the pixel centres of `frame` whose
    /// pattern has the largest texture measure: local maxima, at least the
    /// pattern's larger side apart, the search size in from every edge, and
    /// each passing TrTexture::isEnough. Fewer where the frame has fewer.
    static std::vector<TrTrackSpec> detect(const Orvane::Image& frame, int count,
                                           const TrTrackSpec& shape);
};
