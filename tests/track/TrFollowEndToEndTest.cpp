#include "track/TrFollow.h"

#include "track/Sequence/TrTestSequence.h"
#include "track/TrShotImpl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

using Orvane::GenPoint;
using Orvane::GenRect;

namespace {

const double kDegree = 0.017453292519943295;
// The tracked position must stay within half a pixel of the true centre.
const double kTolerance = 0.5;

// The saddle's centre at frame n, from the sequence's own definition: it
// starts mid-frame and steps by (dx, dy) turned by i * dth for each frame
// after the first.
GenPoint<double> saddleCentre(TrTestSequence& seq, int n) {
    GenPoint<double> c(seq.getWidth() * 0.5, seq.getHeight() * 0.5);
    for (int i = 0; i < n - seq.getFirstFrame(); ++i) {
        const double phi = i * seq.getDTh() * kDegree;
        c.x += std::cos(phi) * seq.getDX() - std::sin(phi) * seq.getDY();
        c.y += std::cos(phi) * seq.getDY() + std::sin(phi) * seq.getDX();
    }
    return c;
}

// A stand-alone shot over the synthetic sequence, with rects that fit the
// saddle: a 20 x 20 pattern and a search area of +-20 pixels, which holds
// the frame's motion of about 2.8 pixels and 10 degrees.
struct SaddleShot {
    SaddleShot() {
        sequence = new TrTestSequence();
        shot.setSequence(sequence);
        follow.setShot(&shot);
    }

    TrTrack* addTrack(const GenPoint<double>& p, double half = 10, double searchHalf = 20) {
        TrTrack* track = shot.addTrack(p.x, p.y);
        const int i = shot.getTrackCount() - 1;
        shot.setPatternRect(i, GenRect<double>(-half, -half, 2 * half, 2 * half));
        shot.setSearchRect(
            i, GenRect<double>(-searchHalf, -searchHalf, 2 * searchHalf, 2 * searchHalf));
        return track;
    }

    // Runs a pass over frames first .. last (either order) for every track,
    // as a host would, dropping tracks that stop. Returns the frame at which
    // each track stopped, or 0 when it ran to the end.
    std::vector<int> run(int first, int last) {
        const int direction = last >= first ? 1 : -1;
        std::vector<int> stopped(std::size_t(shot.getTrackCount()), 0);
        follow.begin(first, 1);
        for (int f = first; f != last + direction; f += direction)
            for (int i = 0; i < shot.getTrackCount(); ++i)
                if (stopped[std::size_t(i)] == 0 && !follow.track(i, f, direction))
                    stopped[std::size_t(i)] = f;
        follow.end(last);
        return stopped;
    }

    // The largest distance from the true centre over frames first .. last,
    // printed per frame for the record.
    double worstError(int i, int first, int last, const char* label) {
        const int direction = last >= first ? 1 : -1;
        double worst = 0;
        for (int f = first; f != last + direction; f += direction) {
            const GenPoint<double> truth = saddleCentre(*sequence, f);
            const GenPoint<double> p = shot.getPosition(i, float(f));
            const double e = std::hypot(p.x - truth.x, p.y - truth.y);
            worst = std::max(worst, e);
            std::printf("%s track %d frame %2d error %.4f quality %.4f rotation %.2f\n", label, i,
                        f, e, shot.getQuality(i, float(f)),
                        shot.getTransform(i, float(f)).ro / kDegree);
        }
        return worst;
    }

    TrShotImpl shot;
    TrTestSequence* sequence;
    TrFollow follow;
};

TEST(TrFollowEndToEnd, OneTrackFollowsTheSaddleCentreForward) {
    SaddleShot s;
    s.addTrack(saddleCentre(*s.sequence, 1));
    const std::vector<int> stopped = s.run(1, 30);
    EXPECT_EQ(0, stopped[0]);
    for (int f = 1; f <= 30; ++f)
        EXPECT_TRUE(s.shot.isPositionKeyed(0, float(f))) << "frame " << f;
    EXPECT_LT(s.worstError(0, 1, 30, "forward"), kTolerance);
    // The pattern turns by 10 degrees a frame; the shape follows it.
    EXPECT_NEAR(29 * 10.0, s.shot.getTransform(0, 30).ro / kDegree, 5.0);
}

TEST(TrFollowEndToEnd, SeveralTracksWithTheirOwnModesAndRects) {
    SaddleShot s;
    // Red and saturation read the saddle at 0.16 to 0.84: the float window
    // sums lose the variance of its near-flat windows and score some above
    // 1, which pulls those tracks off the centre. Double sums keep it.
    s.follow.setPreciseSums(true);
    const GenPoint<double> start = saddleCentre(*s.sequence, 1);
    const char* modes[] = {"luminance", "red", "hue", "saturation"};
    const double halves[] = {10, 8, 12, 10};
    for (int i = 0; i < 4; ++i) {
        s.addTrack(start, halves[i], 24);
        s.shot.setColorMode(i, modes[i]);
    }
    const std::vector<int> stopped = s.run(1, 30);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(0, stopped[std::size_t(i)]) << modes[i];
        EXPECT_LT(s.worstError(i, 1, 30, modes[i]), kTolerance) << modes[i];
    }
}

TEST(TrFollowEndToEnd, OneTrackFollowsTheSaddleCentreBackward) {
    SaddleShot s;
    s.addTrack(saddleCentre(*s.sequence, 30));
    const std::vector<int> stopped = s.run(30, 1);
    EXPECT_EQ(0, stopped[0]);
    EXPECT_LT(s.worstError(0, 30, 1, "backward"), kTolerance);
    // Seen from frame 30 the pattern turns the other way.
    EXPECT_NEAR(-29 * 10.0, s.shot.getTransform(0, 1).ro / kDegree, 5.0);
}

// A tolerance above 1 fails every frame, so the behaviour alone decides
// when the track stops and what is keyed.
struct Unreachable {
    const char* behavior;
    int stopsAt;
    bool keysPredictions;
};

class TrFollowUnreachable : public ::testing::TestWithParam<Unreachable> {};

TEST_P(TrFollowUnreachable, StopsAndKeysAsTheBehaviourSays) {
    const Unreachable u = GetParam();
    SaddleShot s;
    const GenPoint<double> start = saddleCentre(*s.sequence, 1);
    s.addTrack(start);
    s.shot.setFailureTolerance(0, 1.5);
    s.shot.setFailureBehavior(0, u.behavior);
    EXPECT_EQ(u.stopsAt, s.run(1, 30)[0]);
    // The begin frame's anchor is keyed before the first match.
    EXPECT_TRUE(s.shot.isPositionKeyed(0, 1));
    for (int f = 1; f <= 30; ++f) {
        const bool keyed = u.keysPredictions && f < u.stopsAt;
        EXPECT_EQ(keyed, s.shot.isQualityKeyed(0, float(f))) << "frame " << f;
        if (f > 1) {
            EXPECT_EQ(keyed, s.shot.isPositionKeyed(0, float(f))) << "frame " << f;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Behaviours, TrFollowUnreachable,
                         ::testing::Values(Unreachable{"stop", 1, false},
                                           Unreachable{"predict", 6, false},
                                           Unreachable{"default", 6, false},
                                           Unreachable{"predictAndKey", 6, true}));

TEST(TrFollowEndToEnd, DontPredictNeverStops) {
    SaddleShot s;
    s.addTrack(saddleCentre(*s.sequence, 1));
    s.shot.setFailureTolerance(0, 1.5);
    s.shot.setFailureBehavior(0, "dontPredict");
    EXPECT_EQ(0, s.run(1, 30)[0]);
    for (int f = 2; f <= 30; ++f)
        EXPECT_FALSE(s.shot.isPositionKeyed(0, float(f))) << "frame " << f;
}

} // namespace
