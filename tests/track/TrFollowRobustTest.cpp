#include "track/TrFollow.h"

#include "track/RobustScenes.h"
#include "track/TrFeedback.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using namespace robustscenes;

namespace {

void designed(TrFollow&) {}

void robust(TrFollow& f) {
    f.setRobust(true);
}

// The bits of `v`, so that equal means the same double, NaN or not.
std::uint64_t bits(double v) {
    std::uint64_t b = 0;
    std::memcpy(&b, &v, sizeof b);
    return b;
}

// Everything the pass wrote and reported, compared exactly.
void expectSamePass(Pass& a, Pass& b) {
    EXPECT_EQ(a.shot.writes, b.shot.writes);
    EXPECT_EQ(a.status, b.status);
    EXPECT_EQ(a.stoppedAt, b.stoppedAt);
    EXPECT_EQ(a.reasons, b.reasons);
    for (int k = 0; k < int(a.scene.starts.size()); ++k)
        for (int f = 1; f <= a.scene.frames; ++f) {
            const float t = float(f);
            ASSERT_EQ(a.shot.isPositionKeyed(k, t), b.shot.isPositionKeyed(k, t));
            const GenPoint<double> p = a.shot.getPosition(k, t), q = b.shot.getPosition(k, t);
            EXPECT_EQ(bits(p.x), bits(q.x)) << k << " " << f;
            EXPECT_EQ(bits(p.y), bits(q.y)) << k << " " << f;
            EXPECT_EQ(a.shot.getTransform(k, t), b.shot.getTransform(k, t)) << k << " " << f;
            EXPECT_EQ(a.shot.isQualityKeyed(k, t), b.shot.isQualityKeyed(k, t));
            if (a.shot.isQualityKeyed(k, t)) {
                const double x = a.shot.getQuality(k, t), y = b.shot.getQuality(k, t);
                EXPECT_EQ(bits(x), bits(y)) << k << " " << f;
            }
        }
}

// Switching the options on and back off, together or one by one, leaves
// the designed driver: the same keys, bit for bit, the same statuses and
// the same reasons, on scenes where the options would change everything.
TEST(TrFollowRobust, OptionsSwitchedOffChangeNothing) {
    const auto onThenOff = [](TrFollow& f) {
        f.setRobust(true);
        f.setRobust(false);
    };
    const auto eachOnThenOff = [](TrFollow& f) {
        f.setGuardedLagRefine(true);
        f.setCoastFrames(9);
        f.setMotionCheck(3);
        f.setGuardedLagRefine(false);
        f.setCoastFrames(0);
        f.setMotionCheck(0);
    };
    for (const Scene& s : {occluder(false), occluder(true), decoy(0)})
        for (const char* behavior : {"default", "predictAndKey"}) {
            SCOPED_TRACE(std::string(s.name) + " " + behavior);
            Pass plain(s, designed, behavior);
            Pass reset(s, onThenOff, behavior);
            Pass each(s, eachOnThenOff, behavior);
            EXPECT_FALSE(reset.follow.getRobust());
            expectSamePass(plain, reset);
            expectSamePass(plain, each);
        }
}

// Each scene takes the designed driver's tracks; the robust mode brings
// every one back within a pixel once the scene is clear, and never reports
// a frame tracked more than 3 pixels off.
TEST(TrFollowRobust, HoldsTracksThroughOccludersAndDecoys) {
    for (const Scene& s : {occluder(false), occluder(true), decoy(0), decoy(4), decoy(-6)}) {
        SCOPED_TRACE(s.name);
        Pass before(s, designed);
        const Figures design = measure(before, "design");
        Pass after(s, robust);
        const Figures held = measure(after, "robust");
        EXPECT_LT(design.back, design.tracks) << "the scene does not test the driver";
        EXPECT_EQ(held.tracks, held.back);
        EXPECT_LE(held.worst, 3.0);
        for (int k = 0; k < held.tracks; ++k) {
            EXPECT_EQ(0, after.stoppedAt[size_t(k)]) << after.reasons[size_t(k)];
            // Hidden or imitated frames are coasted, and coasted frames unkeyed.
            int coasted = 0;
            for (int f = 2; f <= s.frames; ++f)
                if (after.status[size_t(k)][size_t(f)] == TrStepStatus::Coasted) {
                    ++coasted;
                    EXPECT_FALSE(after.shot.isQualityKeyed(k, float(f))) << f;
                    EXPECT_LT(f, s.clearFrom) << "coasted where nothing covers it";
                }
            EXPECT_GE(coasted, 1) << k;
        }
    }
}

// A texture moving by (1.25, -0.5) a frame under one track.
struct Steady {
    explicit Steady(const char* behavior)
        : shot(kWidth, kHeight, [this](double x, double y, int f) {
              return texture(x - 1.25 * (f - 1), y + 0.5 * (f - 1));
          }) {
        shot.add(80, 70);
        shot.setFailureTolerance(0, 0.8);
        shot.setFailureBehavior(0, behavior);
        follow.setShot(&shot);
    }
    GenPoint<double> truth(int f) const {
        return GenPoint<double>(80 + 1.25 * (f - 1), 70 - 0.5 * (f - 1));
    }

    Texture texture{11};
    RecordingShot shot;
    TrFollow follow;
};

// A failed frame goes on from the prediction with the velocity and shape of
// the accepted frames, over a search area a quarter larger each time, and
// is keyed only where the behaviour keys predictions; a match comes back
// as soon as one passes, and one failure too many stops the track.
TEST(TrFollowRobust, CoastingPredictsFromAcceptedFramesOnly) {
    for (const char* behavior : {"predict", "default", "predictAndKey"}) {
        SCOPED_TRACE(behavior);
        Steady rig(behavior);
        rig.follow.setCoastFrames(3);
        rig.follow.begin(1, 1);
        for (int f = 1; f <= 5; ++f)
            ASSERT_TRUE(rig.follow.track(0, f, 1));
        const TrTrackInfo& info = rig.follow.getInfo(0);
        const GenPoint<double> v = info.velocity;
        const AffineTransform shape = info.transform;
        GenPoint<float> p = info.position;
        rig.shot.setFailureTolerance(0, 1.5);
        const bool keys = std::string(behavior) == "predictAndKey";
        for (int f = 6; f <= 8; ++f) {
            rig.shot.fetches.clear();
            rig.shot.writes.clear();
            ASSERT_TRUE(rig.follow.track(0, f, 1)) << f;
            EXPECT_EQ(TrStepStatus::Coasted, rig.follow.getStepStatus(0));
            p = GenPoint<float>(float(p.x + v.x), float(p.y + v.y));
            EXPECT_EQ(p, info.position) << f;
            EXPECT_EQ(v, info.velocity) << f;
            EXPECT_EQ(shape, info.transform) << f;
            // The search area is 28 pixels wide, fetched half as wide again.
            const double growth = 1 + 0.25 * (f - 6);
            EXPECT_NEAR(1.5 * 28 * growth, rig.shot.fetches[0].rect.w, 1.0) << f;
            if (keys) {
                EXPECT_EQ(
                    std::vector<std::string>({"p" + std::to_string(f), "t" + std::to_string(f),
                                              "q" + std::to_string(f)}),
                    rig.shot.writes);
                // Keys hold positions as the attribute stores them.
                const GenPoint<double> keyed = rig.shot.getPosition(0, float(f));
                EXPECT_NEAR(p.x, keyed.x, 4 * FLT_EPSILON * std::abs(p.x));
                EXPECT_NEAR(p.y, keyed.y, 4 * FLT_EPSILON * std::abs(p.y));
            } else {
                EXPECT_TRUE(rig.shot.writes.empty()) << f;
            }
        }
        EXPECT_FALSE(rig.follow.track(0, 9, 1));
        EXPECT_EQ(TrStepStatus::Lost, rig.follow.getStepStatus(0));
        EXPECT_STREQ("its match failed for longer than it may coast", rig.follow.getStopReason(0));
    }
}

TEST(TrFollowRobust, ACoastedTrackTakesTheNextPassingMatch) {
    Steady rig("predict");
    rig.follow.setCoastFrames(3);
    rig.follow.begin(1, 1);
    for (int f = 1; f <= 5; ++f)
        ASSERT_TRUE(rig.follow.track(0, f, 1));
    rig.shot.setFailureTolerance(0, 1.5);
    ASSERT_TRUE(rig.follow.track(0, 6, 1));
    ASSERT_TRUE(rig.follow.track(0, 7, 1));
    rig.shot.setFailureTolerance(0, 0.8);
    for (int f = 8; f <= 12; ++f) {
        ASSERT_TRUE(rig.follow.track(0, f, 1));
        EXPECT_EQ(TrStepStatus::Tracked, rig.follow.getStepStatus(0));
        const GenPoint<double> q = rig.shot.getPosition(0, float(f)), t = rig.truth(f);
        EXPECT_LT(std::hypot(q.x - t.x, q.y - t.y), 0.1) << f;
    }
    EXPECT_EQ(0, rig.follow.getInfo(0).failCount);
}

// The texture halts after frame 5 while the track coasts on through frames
// 6 to 11; at frame 12 the match finds it seven predicted moves back. The
// velocity learns the move per frame since frame 5, not the whole jump, which
// would send it backward faster than it ever went forward.
TEST(TrFollowRobust, ReacquiringAfterCoastingLearnsTheMovePerFrame) {
    Texture texture{11};
    RecordingShot shot(kWidth, kHeight, [&](double x, double y, int f) {
        const int g = std::min(f, 5);
        return texture(x - 1.25 * (g - 1), y + 0.5 * (g - 1));
    });
    shot.add(80, 70);
    shot.setFailureTolerance(0, 0.8);
    shot.setFailureBehavior(0, "predict");
    TrFollow follow;
    follow.setShot(&shot);
    follow.setCoastFrames(8);
    follow.begin(1, 1);
    for (int f = 1; f <= 5; ++f)
        ASSERT_TRUE(follow.track(0, f, 1));
    const GenPoint<double> v = follow.getInfo(0).velocity;
    ASSERT_GT(v.x, 1.0);
    shot.setFailureTolerance(0, 1.5);
    for (int f = 6; f <= 11; ++f)
        ASSERT_TRUE(follow.track(0, f, 1));
    shot.setFailureTolerance(0, 0.8);
    ASSERT_TRUE(follow.track(0, 12, 1));
    ASSERT_EQ(TrStepStatus::Tracked, follow.getStepStatus(0));
    const GenPoint<double> at = shot.getPosition(0, 12);
    EXPECT_LT(std::hypot(at.x - 85, at.y - 68), 0.1);
    // The move per frame since frame 5 is nil: the velocity only decays,
    // 0.6 of what it was, and keeps its sign.
    const GenPoint<double> after = follow.getInfo(0).velocity;
    EXPECT_NEAR(0.6 * v.x, after.x, 0.05 * std::abs(v.x));
    EXPECT_NEAR(0.6 * v.y, after.y, 0.05 * std::abs(v.x));
}

// Coasting leaves "stop" alone, and a flat frame, which the designed driver
// stops at, is one more miss to coast through.
TEST(TrFollowRobust, CoastingCarriesFlatFramesButNotTheStopBehaviour) {
    Steady stops("stop");
    stops.follow.setCoastFrames(3);
    stops.follow.begin(1, 1);
    ASSERT_TRUE(stops.follow.track(0, 1, 1));
    stops.shot.setFailureTolerance(0, 1.5);
    EXPECT_FALSE(stops.follow.track(0, 2, 1));
    EXPECT_STREQ("its match scored below the tolerance", stops.follow.getStopReason(0));

    for (int coast : {0, 3}) {
        Steady rig("predict");
        rig.follow.setCoastFrames(coast);
        // The designed lagged refinement would re-solve the flat frames.
        rig.follow.setGuardedLagRefine(coast > 0);
        rig.shot.flatFrames = {4, 5};
        rig.follow.begin(1, 1);
        int f = 1;
        for (; f <= 8 && rig.follow.track(0, f, 1); ++f)
            EXPECT_EQ(f == 4 || f == 5 ? TrStepStatus::Coasted : TrStepStatus::Tracked,
                      rig.follow.getStepStatus(0));
        if (coast == 0) {
            EXPECT_EQ(4, f);
            EXPECT_STREQ("the refinement failed, as on flat or non-finite pixels",
                         rig.follow.getStopReason(0));
        } else {
            EXPECT_EQ(9, f) << rig.follow.getStopReason(0);
            const GenPoint<double> q = rig.shot.getPosition(0, 8), t = rig.truth(8);
            EXPECT_LT(std::hypot(q.x - t.x, q.y - t.y), 0.1);
        }
    }
}

// Alone, with "stop" and a tolerance that the half-hidden feature passes,
// the motion check ends the track where the designed driver follows the
// copy away.
TEST(TrFollowRobust, MotionCheckRefusesACopyCrossingTheFeature) {
    const Scene s = decoy(0);
    Pass before(s, designed, "stop", 0.5);
    EXPECT_GT(measure(before, "design").worst, 3.0) << "the copy does not take the track";
    Pass after(
        s, [](TrFollow& f) { f.setMotionCheck(TrFollow::kRobustSpreads); }, "stop", 0.5);
    const Figures m = measure(after, "motion");
    EXPECT_LE(m.worst, 3.0);
    EXPECT_GT(after.stoppedAt[0], 0);
    EXPECT_LT(after.stoppedAt[0], s.clearFrom);
    EXPECT_EQ("its match left the track's recent motion", after.reasons[0]);
}

// What each step keyed, read when the driver reports the step.
struct OwnKeys : TrFeedback {
    explicit OwnKeys(TrShot& shot) : shot(shot) {}
    void beginPass(int) override {}
    void endPass(int) override {}
    bool isCancelled() override { return false; }
    void trackStep(int k, int f) override {
        if (shot.isQualityKeyed(k, float(f)))
            keys[{k, f}] = {shot.getPosition(k, float(f)), shot.getQuality(k, float(f))};
    }
    TrShot& shot;
    std::map<std::pair<int, int>, std::pair<GenPoint<double>, double>> keys;
};

// The guarded refinement keeps a re-solve only where it scores at least the
// tolerance and the step's own score, and leaves the begin frame as placed,
// whether or not it fits the shape too.
TEST(TrFollowRobust, GuardedLagRefinementKeepsOnlyBetterScores) {
    for (const bool shapeFit : {false, true})
        for (const Scene& s : {occluder(true), blurred()}) {
            SCOPED_TRACE(s.name + std::string(shapeFit ? " fitting the shape" : ""));
            std::unique_ptr<OwnKeys> own;
            Pass pass(s, [&](TrFollow& f) {
                f.setGuardedLagRefine(true);
                f.setGuardedShapeFit(shapeFit);
                own = std::make_unique<OwnKeys>(*f.getShot());
                f.setFeedback(own.get());
            });
            int kept = 0, refused = 0;
            for (const auto& [at, key] : own->keys) {
                const auto [k, f] = at;
                const GenPoint<double> p = pass.shot.getPosition(k, float(f));
                const double q = pass.shot.getQuality(k, float(f));
                if (f == 1 || (bits(p.x) == bits(key.first.x) && bits(p.y) == bits(key.first.y))) {
                    EXPECT_EQ(bits(key.second), bits(q)) << k << " " << f;
                    ++refused;
                } else {
                    EXPECT_GE(q, key.second) << k << " " << f;
                    EXPECT_GE(q, 0.8) << k << " " << f;
                    ++kept;
                }
            }
            for (size_t k = 0; k < s.starts.size(); ++k)
                EXPECT_EQ(s.starts[k], pass.shot.getPosition(int(k), 1));
            // Nothing touches frame 1 once frame 2 has begun.
            const auto firstOfTwo =
                std::find_if(pass.shot.writes.begin(), pass.shot.writes.end(),
                             [](const std::string& w) { return w.substr(1) == "2"; });
            EXPECT_EQ(pass.shot.writes.end(),
                      std::find_if(firstOfTwo, pass.shot.writes.end(),
                                   [](const std::string& w) { return w.substr(1) == "1"; }));
            std::printf("%-20s re-solves kept %d, left %d\n", s.name, kept, refused);
            EXPECT_GT(kept + refused, 20);
        }
}

// No later step reaches the last two frames of a pass: with the guarded
// refinement `end` re-solves them under the same guard and frees every
// cached search image; the designed `end` writes nothing.
TEST(TrFollowRobust, EndSettlesTheLastTwoFramesUnderTheGuard) {
    for (const bool guarded : {false, true}) {
        SCOPED_TRACE(guarded);
        Steady rig("default");
        rig.follow.setGuardedLagRefine(guarded);
        rig.follow.setRefineInterpolation(Orvane::Interpolation::BSpline);
        rig.follow.begin(1, 1);
        for (int f = 1; f <= 10; ++f)
            ASSERT_TRUE(rig.follow.track(0, f, 1));
        EXPECT_EQ(2, rig.follow.getCachedSearchCount(0));
        const double own9 = rig.shot.getQuality(0, 9), own10 = rig.shot.getQuality(0, 10);
        rig.shot.writes.clear();
        rig.follow.end(10);
        if (!guarded) {
            EXPECT_TRUE(rig.shot.writes.empty());
            continue;
        }
        EXPECT_EQ(0, rig.follow.getCachedSearchCount(0));
        for (const std::string& w : rig.shot.writes)
            EXPECT_TRUE(w.substr(1) == "9" || w.substr(1) == "10") << w;
        EXPECT_FALSE(rig.shot.writes.empty());
        EXPECT_GE(rig.shot.getQuality(0, 9), own9);
        EXPECT_GE(rig.shot.getQuality(0, 10), own10);
        for (int f = 9; f <= 10; ++f) {
            const GenPoint<double> q = rig.shot.getPosition(0, float(f)), t = rig.truth(f);
            EXPECT_LT(std::hypot(q.x - t.x, q.y - t.y), 0.05) << f;
        }
    }
}

} // namespace
