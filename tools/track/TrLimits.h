#pragma once

#include "image/GenRect.h"
#include "tools/track/TrTrackFile.h"

#include <cstdint>
#include <string>
#include <vector>

/// The limits a pass is held to before its first step, so that a size or a
/// range that cannot work ends with one line rather than an allocation
/// failure, or hours of correlating nothing, part way through.
///
/// - A pattern fits in the frame: a larger one could never be captured.
/// - Each side of a search area is at most twice the frame's: from any
///   point of the frame that reaches every other, and the rest of a larger
///   area lies outside the frame, where there is nothing to find.
/// - The working memory the pass plans for, estimated per track from its
///   search area and per sample of the results, stays within `memoryLimit`.
namespace TrLimits {

/// 4 GiB: a guard against sizes that were never meant, well above what
/// real footage asks for (16 tracks with 61x61 search areas over 1000
/// frames of 1080p plan for about 70 MB).
constexpr int64_t memoryLimit = int64_t(4) << 30;

/// The bytes the driver holds for one track at its largest: its warped
/// search image, correlation surface and window sums over the search area
/// grown by the retries, and the fetched region (clipped to the frame) with
/// its reduced copies for the lagged refinement. `bytesPerPixel` is the
/// frame's.
int64_t trackBytes(const TrTrackSpec& spec, const Orvane::GenRect<int>& frame, int bytesPerPixel);
/// The bytes of one track's results at one frame: the sample and the keys.
constexpr int64_t sampleBytes = 512;

/// "2.5 GiB", "640.0 MiB", "12.0 KiB" or "300 bytes".
std::string bytesText(int64_t bytes);

/// Checks `specs` (sizes filled in) against frame `frame` of the pass
/// `from` … `to` and its memory, including `cacheBytes` for the frames held
/// in the image cache. Throws IllegalArgumentException naming the value and
/// the limit it passes.
void check(const std::vector<TrTrackSpec>& specs, const Orvane::GenRect<int>& frame,
           int bytesPerPixel, int64_t cacheBytes, int from, int to);

} // namespace TrLimits
