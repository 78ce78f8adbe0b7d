#include "tools/track/TrLimits.h"

#include "support/ExpectThrows.h"
#include "track/Sequence/TrTestSequence.h"
#include "track/TrFollow.h"
#include "track/TrShotImpl.h"

#include <malloc.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <new>

// Live bytes from operator new, and their peak, so that the memory estimate
// can be held against what the driver really takes. Images come from new[].
namespace {

size_t live = 0;
size_t peak = 0;

} // namespace

namespace {

void* take(size_t n) {
    void* p = std::malloc(n ? n : 1);
    if (p) {
        live += malloc_usable_size(p);
        peak = std::max(peak, live);
    }
    return p;
}

void give(void* p) {
    if (p)
        live -= malloc_usable_size(p);
    std::free(p);
}

} // namespace

void* operator new(size_t n) {
    if (void* p = take(n))
        return p;
    throw std::bad_alloc();
}
void* operator new[](size_t n) {
    if (void* p = take(n))
        return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
    give(p);
}
void operator delete[](void* p) noexcept {
    give(p);
}
void operator delete(void* p, size_t) noexcept {
    give(p);
}
void operator delete[](void* p, size_t) noexcept {
    give(p);
}

namespace {

const Orvane::GenRect<int> kFrame(0, 0, 64, 48);

TrTrackSpec spec(int pw, int ph, int sw, int sh) {
    TrTrackSpec s;
    s.name = "a";
    s.patternWidth = pw;
    s.patternHeight = ph;
    s.searchWidth = sw;
    s.searchHeight = sh;
    return s;
}

// One frame of the synthetic clip, rendered once and served for every time,
// as the tool's image cache serves a frame to every track.
struct HeldFrame : TrTestSequence {
    HeldFrame() : frame(TrTestSequence::getFrame(1)) {}
    Orvane::Image getFrame(float) override { return frame; }
    Orvane::Image frame;
};

void check(const TrTrackSpec& s, int64_t cache = 0, int from = 1, int to = 10) {
    TrLimits::check({s}, kFrame, 3, cache, from, to);
}

} // namespace

TEST(TrLimits, SizesReachTheFrameAndTwiceTheFrameAndNoFurther) {
    check(spec(64, 48, 128, 96));
    expectThrows<IllegalArgumentException>(
        [] { check(spec(65, 48, 128, 96)); },
        "track \"a\": the pattern 65x48 is larger than the frame, 64x48");
    expectThrows<IllegalArgumentException>(
        [] { check(spec(64, 49, 128, 96)); },
        "track \"a\": the pattern 64x49 is larger than the frame, 64x48");
    expectThrows<IllegalArgumentException>(
        [] { check(spec(21, 21, 129, 96)); },
        "track \"a\": the search area 129x96 is larger than 128x96, twice the frame");
    expectThrows<IllegalArgumentException>(
        [] { check(spec(21, 21, 100000, 100000)); },
        "track \"a\": the search area 100000x100000 is larger than 128x96, twice the frame");
}

TEST(TrLimits, MemoryCountsTracksResultsAndCacheUpToTheLimit) {
    const TrTrackSpec s = spec(21, 21, 61, 61);
    const int64_t cache = int64_t(1) << 27;
    // The frames whose results just fill the limit with the track and the
    // cache: one frame more passes it.
    const int64_t room = TrLimits::memoryLimit - TrLimits::trackBytes(s, kFrame, 3) - cache;
    const int frames = int(room / TrLimits::sampleBytes);
    check(s, cache, 1, frames);
    check(s, cache, frames, 1);
    expectThrows<IllegalArgumentException>(
        [&] { check(s, cache, 1, frames + 1); },
        "the pass needs about 4.0 GiB of working memory (1 track over " +
            std::to_string(frames + 1) + " frames), more than the limit of 4.0 GiB");
    // The widest range of frame numbers counts without overflowing.
    expectThrows<IllegalArgumentException>(
        [&] { check(s, 0, INT_MAX, INT_MIN); },
        "the pass needs about 2.0 TiB of working memory (1 track over 4294967296 frames), more "
        "than the limit of 4.0 GiB");
}

TEST(TrLimits, BytesReadInBinaryUnits) {
    EXPECT_EQ("0 bytes", TrLimits::bytesText(0));
    EXPECT_EQ("1023 bytes", TrLimits::bytesText(1023));
    EXPECT_EQ("1.5 KiB", TrLimits::bytesText(1536));
    EXPECT_EQ("640.0 MiB", TrLimits::bytesText(int64_t(640) << 20));
    EXPECT_EQ("4.0 GiB", TrLimits::bytesText(TrLimits::memoryLimit));
}

// The estimate must hold what the driver takes for a track at its largest:
// the default behaviour retrying every frame over areas up to 1.2 times the
// search rectangle. It may be generous, but not by an order of magnitude.
TEST(TrLimits, TheEstimateBoundsWhatTheDriverTakes) {
    for (const auto& [sw, sh] : {std::pair<int, int>{61, 61}, {200, 160}, {640, 480}}) {
        TrShotImpl shot;
        HeldFrame* sequence = new HeldFrame();
        shot.setSequence(sequence);
        const Orvane::GenRect<int> frame(0, 0, sequence->getWidth(), sequence->getHeight());
        shot.addTrack(160, 120);
        shot.setPatternRect(0, Orvane::GenRect<double>(-10.5, -10.5, 21, 21));
        shot.setSearchRect(0, Orvane::GenRect<double>(-sw / 2.0, -sh / 2.0, sw, sh));
        shot.setFailureBehavior(0, "default");
        shot.setFailureTolerance(0, 1.5); // every match fails and retries
        TrFollow follow;
        follow.setShot(&shot);
        follow.setPreciseSums(true);
        const size_t before = live;
        peak = live;
        follow.begin(1, 1);
        for (int f = 1; f <= 5 && follow.track(0, f, 1); ++f) {
        }
        const int64_t used = int64_t(peak - before);
        const int64_t estimate = TrLimits::trackBytes(spec(21, 21, sw, sh), frame, 3);
        EXPECT_LE(used, estimate) << sw << "x" << sh;
        EXPECT_GE(used * 10, estimate) << sw << "x" << sh;
        std::printf("search %dx%d: driver peak %lld bytes, estimate %lld\n", sw, sh,
                    static_cast<long long>(used), static_cast<long long>(estimate));
    }
}
