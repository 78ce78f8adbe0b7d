#include "tools/track/TrLimits.h"

#include "base/Exception.h"

#include <algorithm>
#include <cstdio>
#include <string>

namespace TrLimits {

namespace {

// The default behaviour retries over areas up to 1.2 times the search
// rectangle, and fetches half as much again around that for the warp.
const double kGrowth = 1.2;
const double kFetch = 1.5 * kGrowth;
// Per pixel of the grown search area: the warped image and the surface in
// float, two window-sum tables in double, and the matcher's and the
// refinement's working copies. The driver's peak, measured in the tests,
// stays at half to two thirds of the whole estimate.
const int64_t kSearchPixelBytes = 48;
// Per fetched pixel, besides the frame's own bytes: float copies for the
// reducer, the step and each frame the lagged refinement keeps.
const int64_t kFetchedPixelBytes = 48;

[[noreturn]] void fail(const std::string& message) {
    throw IllegalArgumentException(dstring(message));
}

std::string sizeText(int64_t w, int64_t h) {
    return std::to_string(w) + "x" + std::to_string(h);
}

void checkSizes(const TrTrackSpec& s, const Orvane::GenRect<int>& frame) {
    const std::string track = "track \"" + s.name + "\": ";
    if (s.patternWidth > frame.w || s.patternHeight > frame.h)
        fail(track + "the pattern " + sizeText(s.patternWidth, s.patternHeight) +
             " is larger than the frame, " + sizeText(frame.w, frame.h));
    const int64_t w = 2 * int64_t(frame.w), h = 2 * int64_t(frame.h);
    if (s.searchWidth > w || s.searchHeight > h)
        fail(track + "the search area " + sizeText(s.searchWidth, s.searchHeight) +
             " is larger than " + sizeText(w, h) + ", twice the frame");
}

} // namespace

int64_t trackBytes(const TrTrackSpec& s, const Orvane::GenRect<int>& frame, int bytesPerPixel) {
    const double area = double(s.searchWidth) * double(s.searchHeight);
    const double fetched = std::min(kFetch * kFetch * area, double(frame.w) * double(frame.h));
    return int64_t(kGrowth * kGrowth * area) * kSearchPixelBytes +
           int64_t(fetched) * (bytesPerPixel + kFetchedPixelBytes);
}

std::string bytesText(int64_t bytes) {
    const char* const units[] = {"bytes", "KiB", "MiB", "GiB", "TiB"};
    double v = double(bytes);
    int unit = 0;
    while (v >= 1024 && unit < 4) {
        v /= 1024;
        ++unit;
    }
    char buf[32];
    if (unit == 0)
        std::snprintf(buf, sizeof buf, "%lld bytes", static_cast<long long>(bytes));
    else
        std::snprintf(buf, sizeof buf, "%.1f %s", v, units[unit]);
    return buf;
}

void check(const std::vector<TrTrackSpec>& specs, const Orvane::GenRect<int>& frame,
           int bytesPerPixel, int64_t cacheBytes, int from, int to) {
    int64_t tracks = 0;
    for (const TrTrackSpec& s : specs) {
        checkSizes(s, frame);
        tracks += trackBytes(s, frame, bytesPerPixel);
    }
    const int64_t frames = (to >= from ? int64_t(to) - from : int64_t(from) - to) + 1;
    const int64_t results = frames * int64_t(specs.size()) * sampleBytes;
    const int64_t total = tracks + results + cacheBytes;
    if (total > memoryLimit)
        fail("the pass needs about " + bytesText(total) + " of working memory (" +
             std::to_string(specs.size()) + (specs.size() == 1 ? " track" : " tracks") + " over " +
             std::to_string(frames) + " frames), more than the limit of " + bytesText(memoryLimit));
}

} // namespace TrLimits
