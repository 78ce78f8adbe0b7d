#include "tools/track/TrHomography.h"

#include "support/ExpectThrows.h"
#include "tools/track/TrJson.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>

using testsupport::expectThrows;

namespace {

// The plane's motion at frame k: turning, growing and tilting a little more
// each frame, about the middle of a 640 x 480 frame.
void known(int k, double h[9]) {
    const double a = 0.02 * k, s = 1 + 0.01 * k, cx = 320, cy = 240;
    const double c = s * std::cos(a), sn = s * std::sin(a);
    const double p = 2e-5 * k, q = -1.5e-5 * k;
    // Turn and scale about the centre, move, then tilt.
    const double m[9] = {
        c, -sn, cx - c * cx + sn * cy + 3.0 * k, sn, c, cy - sn * cx - c * cy - 2.0 * k, 0, 0, 1};
    const double t[9] = {1, 0, 0, 0, 1, 0, p, q, 1 - p * cx - q * cy};
    for (int r = 0; r < 3; ++r)
        for (int col = 0; col < 3; ++col) {
            h[3 * r + col] = 0;
            for (int j = 0; j < 3; ++j)
                h[3 * r + col] += t[3 * r + j] * m[3 * j + col];
        }
}

void apply(const double h[9], double x, double y, double& u, double& v) {
    const double w = h[6] * x + h[7] * y + h[8];
    u = (h[0] * x + h[1] * y + h[2]) / w;
    v = (h[3] * x + h[4] * y + h[5]) / w;
}

// Tracks at fixed plane points that follow the known motion exactly over
// frames from..to, except the second frame after the first, where track 0
// was predicted.
std::vector<TrTrackResult> trackedPlane(int from, int to, int count) {
    const double xs[] = {100, 540, 530, 90, 320, 200};
    const double ys[] = {80, 90, 400, 390, 250, 300};
    std::vector<TrTrackResult> tracks(static_cast<size_t>(count));
    const int dir = to >= from ? 1 : -1;
    for (int f = from; f != to + dir; f += dir)
        for (int i = 0; i < count; ++i) {
            double h[9], u, v;
            known(f, h);
            apply(h, xs[i], ys[i], u, v);
            TrSample s;
            s.frame = f;
            s.x = u;
            s.y = v;
            s.score = 0.95;
            s.keyed = !(i == 0 && f == from + 2 * dir);
            // A predicted frame's estimate is far off; it must not count.
            if (!s.keyed)
                s.x += 40;
            tracks[size_t(i)].samples.push_back(s);
        }
    return tracks;
}

// The largest distance between where the result and the truth carry the
// points of a grid over the tracks' area.
double worstGridError(const TrHomographyFrame& got, int from) {
    double a[9], b[9];
    known(from, a);
    known(got.frame, b);
    double worst = 0;
    for (double x = 100; x <= 540; x += 55)
        for (double y = 80; y <= 400; y += 40) {
            // Truth: the base frame's point, back to the plane, on to frame f.
            // The plane point of (x, y) in the base frame solves a·P = (x, y).
            const double det = a[0] * (a[4] * a[8] - a[5] * a[7]) -
                               a[1] * (a[3] * a[8] - a[5] * a[6]) +
                               a[2] * (a[3] * a[7] - a[4] * a[6]);
            const double inv[9] = {
                (a[4] * a[8] - a[5] * a[7]) / det, (a[2] * a[7] - a[1] * a[8]) / det,
                (a[1] * a[5] - a[2] * a[4]) / det, (a[5] * a[6] - a[3] * a[8]) / det,
                (a[0] * a[8] - a[2] * a[6]) / det, (a[2] * a[3] - a[0] * a[5]) / det,
                (a[3] * a[7] - a[4] * a[6]) / det, (a[1] * a[6] - a[0] * a[7]) / det,
                (a[0] * a[4] - a[1] * a[3]) / det};
            double px, py, tu, tv, gu, gv;
            apply(inv, x, y, px, py);
            apply(b, px, py, tu, tv);
            apply(got.h, x, y, gu, gv);
            worst = std::max(worst, std::hypot(gu - tu, gv - tv));
        }
    return worst;
}

} // namespace

TEST(TrHomography, RecoversTheKnownPlaneMotionForwardAndBackward) {
    const Orvane::GenRect<int> frame(0, 0, 640, 480);
    for (int dir : {1, -1}) {
        const int from = dir > 0 ? 10 : 14, to = dir > 0 ? 14 : 10;
        const std::vector<TrHomographyFrame> frames =
            solveHomographies(trackedPlane(from, to, 6), from, to, frame);
        ASSERT_EQ(5u, frames.size());
        for (int i = 0; i < 9; ++i)
            EXPECT_EQ(i % 4 == 0 ? 1.0 : 0.0, frames[0].h[i]) << "base frame, element " << i;
        for (const TrHomographyFrame& f : frames) {
            EXPECT_TRUE(f.solved) << f.frame;
            // The predicted observation does not count.
            EXPECT_EQ(f.frame == from + 2 * dir ? 5 : 6, f.tracks);
            // Exact positions, fitted in single precision at about +-1:
            // a thousandth of a pixel over a 640-pixel frame.
            EXPECT_LT(worstGridError(f, from), 1e-2) << "frame " << f.frame;
        }
    }
}

TEST(TrHomography, FewerThanFourTracksAreRefused) {
    expectThrows<IllegalArgumentException>(
        [] { solveHomographies(trackedPlane(1, 3, 3), 1, 3, Orvane::GenRect<int>(0, 0, 64, 48)); },
        "--homography needs at least four tracks, got 3");
}

TEST(TrHomography, WritesOneMatrixPerFrameAsJson) {
    const std::vector<TrHomographyFrame> frames =
        solveHomographies(trackedPlane(3, 5, 4), 3, 5, Orvane::GenRect<int>(0, 0, 640, 480));
    char path[] = "/tmp/tavrix-homography-XXXXXX.json";
    const int fd = mkstemps(path, 5);
    ASSERT_GE(fd, 0);
    writeHomographies(path, 3, frames);
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    std::remove(path);
    const TrJsonValue doc = parseJson(text.str());
    EXPECT_EQ(3, doc.members[0].second.number);
    const TrJsonValue& list = doc.members[1].second;
    ASSERT_EQ(3u, list.items.size());
    const TrJsonValue& last = list.items[2];
    EXPECT_EQ(5, last.members[0].second.number);
    const TrJsonValue& m = last.members[3].second;
    ASSERT_EQ(3u, m.items.size());
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            EXPECT_EQ(frames[2].h[3 * r + c], m.items[size_t(r)].items[size_t(c)].number);
    // Frame 5 has only three counted tracks (track 0 was predicted there).
    EXPECT_TRUE(list.items[1].members[2].second.boolean);
    EXPECT_FALSE(list.items[2].members[2].second.boolean);
}
