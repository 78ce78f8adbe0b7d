#include "tools/track/TrHomography.h"

#include "tools/TrToolTestSupport.h"

#include <gtest/gtest.h>

#include <tuple>

namespace {

// Tracks at fixed points of a plane that follow its known motion exactly
// over frames from..to, except the second frame after the first, where
// track 0 was predicted far off; that estimate must not count.
std::vector<TrTrackResult> trackedPlane(int from, int to, int count) {
    const double at[6][2] = {{100, 80}, {540, 90}, {530, 400}, {90, 390}, {320, 250}, {200, 300}};
    std::vector<TrTrackResult> tracks(static_cast<size_t>(count));
    const int dir = to >= from ? 1 : -1;
    for (int f = from; f != to + dir; f += dir)
        for (int i = 0; i < count; ++i) {
            double h[9];
            TrSample s{f, 0, 0, 0.95, !(i == 0 && f == from + 2 * dir), {}};
            planeMotion(2 * f, 320, 240, h);
            applyH(h, at[i][0], at[i][1], s.x, s.y);
            s.x += s.keyed ? 0 : 40;
            tracks[size_t(i)].samples.push_back(s);
        }
    return tracks;
}

} // namespace

TEST(TrHomography, RecoversTheKnownPlaneMotionForwardAndBackward) {
    for (int dir : {1, -1}) {
        const int from = dir > 0 ? 10 : 14, to = dir > 0 ? 14 : 10;
        const std::vector<TrHomographyFrame> frames = solveHomographies(
            trackedPlane(from, to, 6), from, to, Orvane::GenRect<int>(0, 0, 640, 480));
        ASSERT_EQ(5u, frames.size());
        for (int i = 0; i < 9; ++i)
            EXPECT_EQ(i % 4 == 0 ? 1.0 : 0.0, frames[0].h[i]) << "base frame, element " << i;
        double base[9], now[9];
        planeMotion(2 * from, 320, 240, base);
        for (const TrHomographyFrame& f : frames) {
            EXPECT_TRUE(f.solved) << f.frame;
            EXPECT_EQ(f.frame == from + 2 * dir ? 5 : 6, f.tracks) << f.frame;
            // Exact positions, fitted in single precision at about +-1: some
            // 6e-8 of 320 px each, so a thousandth of a pixel leaves room.
            planeMotion(2 * f.frame, 320, 240, now);
            EXPECT_LT(worstGridError(f.h, base, now, 100, 540, 80, 400, 40), 1e-3)
                << "frame " << f.frame;
        }
    }
    // With four tracks, the frame where one was predicted cannot be solved.
    const std::vector<TrHomographyFrame> four =
        solveHomographies(trackedPlane(3, 5, 4), 3, 5, Orvane::GenRect<int>(0, 0, 640, 480));
    EXPECT_EQ(std::make_tuple(true, true, false),
              std::make_tuple(four[0].solved, four[1].solved, four[2].solved));
}
