#include "track/TrFollow.h"

#include "image/Format.h"
#include "krovel/KrMatrixError.h"
#include "support/ExpectThrows.h"
#include "track/DoubleImageSum.h"
#include "track/Matcher.h"
#include "track/RecordingShot.h"
#include "track/Reducer.h"
#include "track/TrFeedback.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <memory>
#include <utility>
#include <vector>

using namespace recordingshot;

namespace {

const int kWidth = 200;
const int kHeight = 150;
// 8-bit frames of a smooth texture: the refined position is good to a few
// hundredths of a pixel; a tenth leaves room for the quantisation.
const double kAccuracy = 0.1;

// A texture moving by `step` pixels a frame.
struct Moving {
    Texture texture{11};
    GenPoint<double> step;

    GenPoint<double> shift(int f) const { return GenPoint<double>(step.x * f, step.y * f); }
    double operator()(double x, double y, int f) const {
        return texture(x - step.x * f, y - step.y * f);
    }
};

struct Rig {
    explicit Rig(GenPoint<double> step = GenPoint<double>(0, 0))
        : motion{Texture(11), step},
          shot(kWidth, kHeight, [this](double x, double y, int f) { return motion(x, y, f); }) {
        follow.setShot(&shot);
    }

    // Where a feature at `p` in frame `from` lies in frame `to`.
    GenPoint<double> truth(const GenPoint<double>& p, int from, int to) const {
        return p + motion.shift(to) - motion.shift(from);
    }

    Moving motion;
    RecordingShot shot;
    TrFollow follow;
};

double distance(const GenPoint<double>& a, const GenPoint<double>& b) {
    return std::hypot(a.x - b.x, a.y - b.y);
}

// ---- colour modes

TEST(TrFollow, SetupReducerMakesTheReducerOfEachMode) {
    const Image rgb(GenRect<int>(0, 0, 2, 2), Orvane::Format::getRGB());
    const char channels[] = {'r', 'g', 'b'};
    const char* names[] = {"red", "green", "blue"};
    for (int k = 0; k < 3; ++k) {
        std::unique_ptr<Reducer> r(TrFollow::setupReducer(rgb, names[k]));
        auto* channel = dynamic_cast<ChannelReducer*>(r.get());
        ASSERT_NE(nullptr, channel) << names[k];
        EXPECT_EQ(channels[k], channel->getChannel());
    }
    std::unique_ptr<Reducer> lum(TrFollow::setupReducer(rgb, "luminance"));
    EXPECT_NE(nullptr, dynamic_cast<LuminanceReducer*>(lum.get()));
    std::unique_ptr<Reducer> sat(TrFollow::setupReducer(rgb, "saturation"));
    EXPECT_NE(nullptr, dynamic_cast<SaturationReducer*>(sat.get()));
}

TEST(TrFollow, HueProjectsOnThePatternsPrincipalColourAxis) {
    // Pixels along one colour direction, (50, -40, 0) per step in raw
    // samples. Projected on a unit axis each step has at most that length,
    // and exactly that length only on the pattern's own axis.
    Image img(GenRect<int>(0, 0, 4, 1), Orvane::Format::getRGB());
    unsigned char* p;
    img.getBuffer(p);
    for (int x = 0; x < 4; ++x) {
        p[3 * x] = static_cast<unsigned char>(40 + 50 * x);
        p[3 * x + 1] = static_cast<unsigned char>(200 - 40 * x);
        p[3 * x + 2] = 90;
    }
    std::unique_ptr<Reducer> r(TrFollow::setupReducer(img, "hue"));
    ASSERT_NE(nullptr, dynamic_cast<PCAReducer*>(r.get()));
    const Image out = r->reduce(img);
    float* v;
    out.getBuffer(v);
    const double length = std::hypot(50.0, 40.0);
    // Float sums of raw samples up to 255.
    const double tolerance = 16 * FLT_EPSILON * 255;
    for (int x = 1; x < 4; ++x)
        EXPECT_NEAR(length, std::abs(v[x] - v[x - 1]), tolerance) << x;
}

TEST(TrFollow, UnknownOrMissingColourModeIsRefused) {
    const Image rgb(GenRect<int>(0, 0, 2, 2), Orvane::Format::getRGB());
    expectThrows<IllegalArgumentException>([&] { TrFollow::setupReducer(rgb, "cyan"); },
                                           "unsupported color mode \"cyan\"");
    expectThrows<IllegalArgumentException>([&] { TrFollow::setupReducer(rgb, "Red"); },
                                           "unsupported color mode \"Red\"");
    expectThrows<IllegalArgumentException>([&] { TrFollow::setupReducer(rgb, dstring()); },
                                           "unsupported color mode \"\"");
    expectThrows<IllegalArgumentException>([&] { TrFollow::reduce(rgb, "hsv"); },
                                           "unsupported color mode \"hsv\"");
}

TEST(TrFollow, ReduceAppliesTheModeOnce) {
    Image img(GenRect<int>(3, 4, 2, 1), Orvane::Format::getRGB());
    unsigned char* p;
    img.getBuffer(p);
    const unsigned char bytes[] = {10, 120, 250, 0, 51, 255};
    std::copy(bytes, bytes + 6, p);
    const Image green = TrFollow::reduce(img, "green");
    EXPECT_EQ(img.getBounds(), green.getBounds());
    float* g;
    green.getBuffer(g);
    EXPECT_FLOAT_EQ(120.0f / 255.0f, g[0]);
    EXPECT_FLOAT_EQ(51.0f / 255.0f, g[1]);
}

// ---- pass set-up

TEST(TrFollow, BeginReadsEveryTrackAtTheBeginFrame) {
    Rig rig;
    rig.shot.addTrack(40.4, 60.6);
    const int b = rig.shot.addTrack(100, 70);
    rig.shot.at(b).pattern = GenRect<double>(-5.3, -4.5, 11, 9);
    rig.shot.rangeFirst = 3;
    rig.shot.rangeLast = 44;
    rig.follow.begin(7, 1);

    EXPECT_EQ(7, rig.follow.getBeginFrame());
    EXPECT_EQ(7, rig.follow.getFirstFrame());
    EXPECT_EQ(1, rig.follow.getStep());
    EXPECT_EQ(3.0f, rig.follow.getRangeStart());
    EXPECT_EQ(44.0f, rig.follow.getRangeEnd());
    ASSERT_EQ(2, rig.follow.getInfoCount());

    const TrTrackInfo& a = rig.follow.getInfo(0);
    EXPECT_EQ(GenPoint<float>(40.4f, 60.6f), a.origin);
    EXPECT_EQ(a.origin, a.position);
    // Edges round on their own: 32.4 -> 32, 48.4 -> 48; 52.6 -> 53, 68.6 -> 69.
    EXPECT_EQ(GenRect<int>(32, 53, 16, 16), a.patternBounds);
    // 94.7 -> 95, 105.7 -> 106; 65.5 -> 66, 74.5 -> 75 (halves away from zero).
    EXPECT_EQ(GenRect<int>(95, 66, 11, 9), rig.follow.getInfo(b).patternBounds);
    EXPECT_EQ(nullptr, a.matcher);
    EXPECT_EQ(0.0, a.velocityWeight);
}

TEST(TrFollow, BeginAgainStartsAFreshPass) {
    Rig rig(GenPoint<double>(1.5, 0.5));
    rig.shot.addTrack(60, 70);
    rig.follow.begin(1, 1);
    for (int f = 1; f <= 4; ++f)
        ASSERT_TRUE(rig.follow.track(0, f, 1));
    EXPECT_FALSE(rig.follow.getSearchCache().empty());

    rig.follow.begin(4, 1);
    EXPECT_TRUE(rig.follow.getSearchCache().empty());
    const TrTrackInfo& info = rig.follow.getInfo(0);
    EXPECT_EQ(nullptr, info.matcher);
    EXPECT_EQ(0.0, info.velocity.x);
    // The new origin is the position keyed at frame 4.
    const GenPoint<double> keyed = rig.shot.getPosition(0, 4);
    EXPECT_EQ(GenPoint<float>(float(keyed.x), float(keyed.y)), info.origin);
    EXPECT_TRUE(rig.follow.track(0, 4, 1));
    EXPECT_TRUE(rig.follow.track(0, 5, 1));
    EXPECT_LT(distance(rig.truth(GenPoint<double>(60, 70), 1, 5), rig.shot.getPosition(0, 5)),
              kAccuracy);
}

TEST(TrFollow, PreciseSumsGiveEachNewMatcherDoubleSums) {
    Rig rig;
    rig.shot.addTrack(60, 70);
    rig.follow.begin(1, 1);
    ASSERT_TRUE(rig.follow.track(0, 1, 1));
    EXPECT_EQ(nullptr,
              dynamic_cast<DoubleImageSum*>(rig.follow.getInfo(0).matcher->getPatternSum()));

    rig.follow.setPreciseSums(true);
    rig.follow.begin(1, 1);
    ASSERT_TRUE(rig.follow.track(0, 1, 1));
    Matcher* m = rig.follow.getInfo(0).matcher;
    EXPECT_NE(nullptr, dynamic_cast<DoubleImageSum*>(m->getPatternSum()));
    EXPECT_NE(nullptr, dynamic_cast<DoubleImageSum*>(m->getSearchSum()));
}

// ---- following

// Runs frames first .. last; returns the first frame at which the track
// stopped, or 0.
int runPass(Rig& rig, int i, int first, int last) {
    const int direction = last >= first ? 1 : -1;
    rig.follow.begin(first, 1);
    for (int f = first; f != last + direction; f += direction)
        if (!rig.follow.track(i, f, direction))
            return f;
    return 0;
}

TEST(TrFollow, FollowsMotionFarBeyondTheSearchMargin) {
    // 3.6 pixels a frame against a margin of 6: after 20 frames the feature
    // is 80 pixels from where the pass began.
    for (int direction : {1, -1}) {
        Rig rig(GenPoint<double>(3.6, -1.7));
        const int first = direction > 0 ? 1 : 21;
        const int last = direction > 0 ? 21 : 1;
        const GenPoint<double> start =
            direction > 0 ? GenPoint<double>(40, 100) : GenPoint<double>(40 + 72, 100 - 34);
        rig.shot.addTrack(start.x, start.y);
        EXPECT_EQ(0, runPass(rig, 0, first, last)) << "direction " << direction;
        double worst = 0;
        for (int f = 1; f <= 21; ++f)
            worst =
                std::max(worst, distance(rig.truth(start, first, f), rig.shot.getPosition(0, f)));
        EXPECT_LT(worst, kAccuracy) << "direction " << direction;
    }
}

TEST(TrFollow, VelocityTakesTheFirstDisplacementWholeThenSmooths) {
    Rig rig(GenPoint<double>(2.5, 1.25));
    rig.shot.addTrack(60, 60);
    rig.follow.begin(1, 1);
    const TrTrackInfo& info = rig.follow.getInfo(0);
    ASSERT_TRUE(rig.follow.track(0, 1, 1));
    // The begin frame is the first keyed frame: its whole move is the velocity.
    const GenPoint<double> p1 = rig.shot.getPosition(0, 1);
    EXPECT_EQ(double(float(p1.x - info.origin.x)), info.velocity.x);
    EXPECT_EQ(double(float(p1.y - info.origin.y)), info.velocity.y);
    EXPECT_EQ(0.6, info.velocityWeight);

    GenPoint<double> v = info.velocity;
    GenPoint<double> before = p1;
    for (int f = 2; f <= 4; ++f) {
        const GenPoint<double> expectedPrediction(float(before.x + v.x), float(before.y + v.y));
        ASSERT_TRUE(rig.follow.track(0, f, 1));
        EXPECT_EQ(expectedPrediction, info.predicted);
        EXPECT_EQ(before, info.prevPosition);
        const GenPoint<double> p = GenPoint<double>(info.position.x, info.position.y);
        v = GenPoint<double>(0.4 * float(p.x - before.x) + 0.6 * v.x,
                             0.4 * float(p.y - before.y) + 0.6 * v.y);
        EXPECT_DOUBLE_EQ(v.x, info.velocity.x) << "frame " << f;
        EXPECT_DOUBLE_EQ(v.y, info.velocity.y) << "frame " << f;
        before = p;
    }
}

// ---- failure behaviours

// Passes the begin frame, then makes every later match fail.
void failAfterBegin(Rig& rig, const char* behavior) {
    rig.shot.at(0).behavior = behavior;
    rig.follow.begin(1, 1);
    ASSERT_TRUE(rig.follow.track(0, 1, 1));
    rig.shot.at(0).tolerance = 1.5;
}

TEST(TrFollow, DefaultRetriesWithSearchAreasGrownByTenPercent) {
    Rig rig(GenPoint<double>(1.25, 0));
    rig.shot.addTrack(60.3, 70.2);
    rig.shot.at(0).search = GenRect<double>(-12, -10, 24, 20);
    failAfterBegin(rig, "default");
    const TrTrackInfo& info = rig.follow.getInfo(0);
    const GenPoint<double> predicted(float(info.position.x + info.velocity.x),
                                     float(info.position.y + info.velocity.y));
    rig.shot.fetches.clear();
    ASSERT_TRUE(rig.follow.track(0, 2, 1));

    ASSERT_EQ(3u, rig.shot.fetches.size());
    const GenRect<double>& r = rig.shot.at(0).search;
    for (int a = 0; a < 3; ++a) {
        const double g = 1.5 * (1 + 0.1 * a);
        const int x0 = int(std::lround(predicted.x + r.x * g));
        const int y0 = int(std::lround(predicted.y + r.y * g));
        const int x1 = int(std::lround(predicted.x + (r.x + r.w) * g));
        const int y1 = int(std::lround(predicted.y + (r.y + r.h) * g));
        EXPECT_EQ(GenRect<int>(x0, y0, x1 - x0, y1 - y0), rig.shot.fetches[std::size_t(a)].rect)
            << "attempt " << a;
        EXPECT_EQ(2, rig.shot.fetches[std::size_t(a)].frame);
    }
    // Three attempts, one predicted frame.
    EXPECT_EQ(1, info.failCount);
}

TEST(TrFollow, OtherBehavioursTryOnce) {
    for (const char* behavior : {"predict", "predictAndKey", "dontPredict", "useExistingCurve"}) {
        Rig rig;
        rig.shot.addTrack(60, 70);
        failAfterBegin(rig, behavior);
        rig.shot.fetches.clear();
        EXPECT_TRUE(rig.follow.track(0, 2, 1)) << behavior;
        EXPECT_EQ(1u, rig.shot.fetches.size()) << behavior;
    }
}

TEST(TrFollow, SixthPredictedFrameStopsTheTrack) {
    for (const char* behavior : {"predict", "default", "predictAndKey"}) {
        Rig rig(GenPoint<double>(1, 0.5));
        rig.shot.addTrack(60, 70);
        failAfterBegin(rig, behavior);
        const bool keys = dstring(behavior) == "predictAndKey";
        for (int f = 2; f <= 6; ++f) {
            EXPECT_TRUE(rig.follow.track(0, f, 1)) << behavior << " frame " << f;
            EXPECT_EQ(f - 1, rig.follow.getInfo(0).failCount) << behavior;
            EXPECT_EQ(keys, rig.shot.isQualityKeyed(0, float(f))) << behavior << " frame " << f;
            EXPECT_EQ(keys, rig.shot.isPositionKeyed(0, float(f))) << behavior << " frame " << f;
        }
        rig.shot.writes.clear();
        EXPECT_FALSE(rig.follow.track(0, 7, 1)) << behavior;
        EXPECT_TRUE(rig.shot.writes.empty()) << behavior;
    }
}

TEST(TrFollow, AGoodMatchClearsTheCountOfPredictedFrames) {
    Rig rig;
    rig.shot.addTrack(60, 70);
    failAfterBegin(rig, "predict");
    for (int f = 2; f <= 4; ++f)
        ASSERT_TRUE(rig.follow.track(0, f, 1));
    EXPECT_EQ(3, rig.follow.getInfo(0).failCount);
    rig.shot.at(0).tolerance = 0.5;
    ASSERT_TRUE(rig.follow.track(0, 5, 1));
    EXPECT_EQ(0, rig.follow.getInfo(0).failCount);
    EXPECT_TRUE(rig.shot.isPositionKeyed(0, 5));
}

TEST(TrFollow, StopEndsTheTrackWithoutKeys) {
    Rig rig;
    rig.shot.addTrack(60, 70);
    failAfterBegin(rig, "stop");
    rig.shot.writes.clear();
    EXPECT_FALSE(rig.follow.track(0, 2, 1));
    EXPECT_TRUE(rig.shot.writes.empty());
}

TEST(TrFollow, DontPredictZeroesTheVelocityAndGoesOn) {
    Rig rig(GenPoint<double>(1, 0));
    rig.shot.addTrack(60, 70);
    failAfterBegin(rig, "dontPredict");
    rig.shot.writes.clear();
    for (int f = 2; f <= 10; ++f) {
        ASSERT_TRUE(rig.follow.track(0, f, 1)) << "frame " << f;
        EXPECT_EQ(GenPoint<double>(0, 0), rig.follow.getInfo(0).velocity);
        EXPECT_EQ(0, rig.follow.getInfo(0).failCount);
    }
    EXPECT_TRUE(rig.shot.writes.empty());
}

TEST(TrFollow, UseExistingCurveTakesThePositionFromTheShot) {
    Rig rig;
    rig.shot.addTrack(60, 70);
    failAfterBegin(rig, "useExistingCurve");
    // An existing curve through frames 1 and 5; frame 3 lies halfway.
    rig.shot.at(0).positions[5] = GenPoint<double>(80, 90);
    const GenPoint<double> atOne = rig.shot.getPosition(0, 1);
    const std::size_t writes = rig.shot.writes.size();
    ASSERT_TRUE(rig.follow.track(0, 2, 1));
    ASSERT_TRUE(rig.follow.track(0, 3, 1));
    const GenPoint<double> halfway = mix(atOne, GenPoint<double>(80, 90), 0.5);
    EXPECT_EQ(GenPoint<float>(float(halfway.x), float(halfway.y)), rig.follow.getInfo(0).position);
    EXPECT_EQ(writes, rig.shot.writes.size());
}

TEST(TrFollow, UnknownFailureBehaviourIsRefusedWhenAMatchFails) {
    Rig rig;
    rig.shot.addTrack(60, 70);
    failAfterBegin(rig, "sideways");
    expectThrows<IllegalArgumentException>([&] { rig.follow.track(0, 2, 1); },
                                           "unknown failure behavior \"sideways\"");
    rig.shot.at(0).behavior = dstring();
    expectThrows<IllegalArgumentException>([&] { rig.follow.track(0, 2, 1); },
                                           "unknown failure behavior \"\"");
}

// ---- the frame's edges

TEST(TrFollow, PatternOutsideTheFrameStopsTheTrackBeforeAnyKey) {
    Rig rig;
    rig.shot.addTrack(-30, 70);
    rig.shot.addTrack(kWidth + 30, kHeight + 30);
    rig.follow.begin(1, 1);
    for (int i = 0; i < 2; ++i) {
        EXPECT_FALSE(rig.follow.track(i, 1, 1));
        EXPECT_FALSE(rig.follow.track(i, 2, 1));
        EXPECT_EQ(nullptr, rig.follow.getInfo(i).reducer);
    }
    EXPECT_TRUE(rig.shot.writes.empty());
}

TEST(TrFollow, TrackBeforeItsBeginFrameStops) {
    Rig rig;
    rig.shot.addTrack(60, 70);
    rig.follow.begin(5, 1);
    EXPECT_FALSE(rig.follow.track(0, 6, 1));
    EXPECT_TRUE(rig.shot.writes.empty());
}

TEST(TrFollow, SearchAreaOutsideTheFrameStopsTheTrack) {
    Rig rig;
    rig.shot.addTrack(60, 70);
    rig.follow.begin(1, 1);
    ASSERT_TRUE(rig.follow.track(0, 1, 1));
    rig.shot.at(0).search = GenRect<double>(300, 0, 20, 20);
    rig.shot.writes.clear();
    EXPECT_FALSE(rig.follow.track(0, 2, 1));
    EXPECT_TRUE(rig.shot.writes.empty());
}

TEST(TrFollow, FeaturesLeavingTheFrameOnEitherSideStopCleanly) {
    // Tracked accurately while the pattern is inside, with search areas cut
    // by the edge. Beyond the edge the warp repeats the edge pixels, streaks
    // that still correlate at about 0.8, so a strict tolerance is what stops
    // the track before its pattern has wholly left.
    for (double dx : {-2.0, 2.0}) {
        Rig rig(GenPoint<double>(dx, 0));
        const GenPoint<double> start(dx < 0 ? 24 : kWidth - 24, 75);
        rig.shot.addTrack(start.x, start.y);
        rig.shot.at(0).tolerance = 0.9;
        const int stoppedAt = runPass(rig, 0, 1, 40);
        // The centre is 8 pixels, half the pattern, outside at frame 17.
        EXPECT_GT(stoppedAt, 9) << dx;
        EXPECT_LE(stoppedAt, 17) << dx;
        for (const auto& key : rig.shot.at(0).positions) {
            const GenPoint<double> truth = rig.truth(start, 1, key.first);
            if (truth.x > 8 && truth.x < kWidth - 8) {
                EXPECT_LT(distance(truth, key.second), kAccuracy)
                    << "dx " << dx << " frame " << key.first;
            }
        }
    }
}

TEST(TrFollow, SearchAreaSmallerThanThePatternIsTheCorrelatorsError) {
    Rig rig;
    rig.shot.addTrack(60, 70);
    rig.shot.at(0).search = GenRect<double>(-4, -4, 8, 8);
    rig.follow.begin(1, 1);
    expectThrows<IllegalArgumentException>(
        [&] { rig.follow.track(0, 1, 1); },
        "NaiveCorrelator: search bounds must be larger than pattern bounds");
}

// ---- lagged refinement

TEST(TrFollow, LaggedRefinementStartsTwoFramesAfterTheBeginFrame) {
    Rig rig(GenPoint<double>(1.5, -0.75));
    const int i = rig.shot.addTrack(70, 80);
    rig.shot.at(i).useRotate = true;
    rig.shot.at(i).useScale = true;
    rig.follow.begin(1, 1);
    ASSERT_TRUE(rig.follow.track(i, 1, 1));
    ASSERT_TRUE(rig.follow.track(i, 2, 1));
    EXPECT_EQ(1, rig.follow.getInfo(i).patternFrame);
    EXPECT_EQ(2u, rig.follow.getSearchCache().size());
    const std::vector<AffineTransform> shapes = {rig.shot.getTransform(i, 1),
                                                 rig.shot.getTransform(i, 2)};
    rig.shot.writes.clear();

    ASSERT_TRUE(rig.follow.track(i, 3, 1));
    const std::vector<Write> lagged = rig.shot.writesFor(1);
    ASSERT_EQ(3u, lagged.size());
    // Frames -1 and 0 lie before the pass and are left out of the average.
    EXPECT_EQ('t', lagged[0].kind);
    // Summed in frame order from zero, as the driver does, so exactly equal.
    AffineTransform sum;
    sum.zero();
    const AffineTransform expected =
        (sum + shapes[0] + shapes[1] + rig.shot.getTransform(i, 3)) / 3.0f;
    EXPECT_EQ(expected, lagged[0].transform) << expected << " " << lagged[0].transform;
    EXPECT_EQ('p', lagged[1].kind);
    EXPECT_LT(distance(rig.truth(GenPoint<double>(70, 80), 1, 1), lagged[1].position), kAccuracy);
    EXPECT_EQ('q', lagged[2].kind);
    EXPECT_GT(lagged[2].quality, 0.9);

    EXPECT_EQ(2, rig.follow.getInfo(i).patternFrame);
    // Frame 1's search image was used up; frames 2 and 3 wait.
    EXPECT_EQ(0u, rig.follow.getSearchCache().count(1 * 256 + i));
    EXPECT_EQ(1u, rig.follow.getSearchCache().count(2 * 256 + i));
    EXPECT_EQ(1u, rig.follow.getSearchCache().count(3 * 256 + i));
}

TEST(TrFollow, BackwardPassNeverAveragesShapesFromBeforeItsBeginFrame) {
    Rig rig(GenPoint<double>(1, 1));
    rig.shot.addTrack(80, 60);
    rig.shot.at(0).useRotate = true;
    rig.shot.at(0).useScale = true;
    // Shapes from another pass beyond the begin frame.
    rig.shot.at(0).transforms[11] = AffineTransform(0, 0, 1.0f, 2.0f, 1, 1);
    rig.shot.at(0).transforms[12] = AffineTransform(0, 0, 1.0f, 2.0f, 1, 1);
    rig.follow.begin(10, 1);
    for (int f = 10; f >= 9; --f)
        ASSERT_TRUE(rig.follow.track(0, f, -1));
    const AffineTransform ten = rig.shot.getTransform(0, 10);
    const AffineTransform nine = rig.shot.getTransform(0, 9);
    ASSERT_TRUE(rig.follow.track(0, 8, -1));
    const std::vector<Write> lagged = rig.shot.writesFor(10);
    ASSERT_FALSE(lagged.empty());
    const Write& average = lagged[lagged.size() - 3];
    ASSERT_EQ('t', average.kind);
    AffineTransform sum;
    sum.zero();
    const AffineTransform expected = (sum + rig.shot.getTransform(0, 8) + nine + ten) / 3.0f;
    EXPECT_EQ(expected, average.transform) << expected << " " << average.transform;
    EXPECT_EQ(9, rig.follow.getInfo(0).patternFrame);
}

// ---- feedback, errors, lifetime

class CountingFeedback : public TrFeedback {
public:
    void beginPass(int) override {}
    void endPass(int) override {}
    bool isCancelled() override { return int(steps.size()) >= cancelAfter; }
    void trackStep(int track, int frame) override { steps.push_back({track, frame}); }

    int cancelAfter = 1000;
    std::vector<std::pair<int, int>> steps;
};

TEST(TrFollow, FeedbackHearsEveryStepAndCancelStopsAtOnce) {
    Rig rig(GenPoint<double>(1, 0));
    rig.shot.addTrack(60, 70);
    rig.shot.addTrack(120, 60);
    CountingFeedback feedback;
    feedback.cancelAfter = 3;
    rig.follow.setFeedback(&feedback);
    EXPECT_EQ(&feedback, rig.follow.getFeedback());
    rig.follow.begin(1, 1);
    EXPECT_TRUE(rig.follow.track(0, 1, 1));
    EXPECT_TRUE(rig.follow.track(1, 1, 1));
    // The third step is taken and reported, then the pass is cancelled.
    EXPECT_FALSE(rig.follow.track(0, 2, 1));
    const std::vector<std::pair<int, int>> expected = {{0, 1}, {1, 1}, {0, 2}};
    EXPECT_EQ(expected, feedback.steps);
    // Nothing more is done for any track.
    rig.shot.writes.clear();
    rig.shot.fetches.clear();
    EXPECT_FALSE(rig.follow.track(1, 2, 1));
    EXPECT_TRUE(rig.shot.writes.empty());
    EXPECT_TRUE(rig.shot.fetches.empty());
    EXPECT_EQ(3u, feedback.steps.size());
}

TEST(TrFollow, MatrixErrorInTheRefinementStopsTheTrackQuietly) {
    Rig rig;
    rig.shot.addTrack(60, 70);
    rig.shot.flatFrames.insert(3);
    rig.follow.begin(1, 1);
    ASSERT_TRUE(rig.follow.track(0, 1, 1));
    ASSERT_TRUE(rig.follow.track(0, 2, 1));
    rig.shot.writes.clear();
    // A flat search region has no variance to normalise.
    EXPECT_FALSE(rig.follow.track(0, 3, 1));
    EXPECT_TRUE(rig.shot.writes.empty());
}

TEST(TrFollow, MatrixErrorsElsewherePassToTheCaller) {
    Rig rig;
    rig.shot.addTrack(60, 70);
    rig.follow.begin(1, 1);
    rig.shot.searchRectError = true;
    expectThrows<KrMatrixError>([&] { rig.follow.track(0, 1, 1); }, "shot failure 0");
}

TEST(TrFollow, TrackIndexOutsideThePassIsABadIndex) {
    Rig rig;
    rig.shot.addTrack(60, 70);
    rig.follow.begin(1, 1);
    expectThrows<BadIndexException>([&] { rig.follow.track(1, 1, 1); }, "Array::operator[]");
    expectThrows<BadIndexException>([&] { rig.follow.track(-1, 1, 1); }, "Array::operator[]");
}

TEST(TrFollow, AShotThatHasGoneAwayIsReportedNotUsed) {
    TrFollow follow;
    expectThrows<NullPointerException>([&] { follow.begin(1, 1); }, "TrFollow: no shot");
    {
        RecordingShot shot(kWidth, kHeight, [](double, double, int) { return 0.5; });
        shot.addTrack(60, 70);
        follow.setShot(&shot);
        EXPECT_EQ(&shot, follow.getShot());
        follow.begin(1, 1);
    }
    EXPECT_EQ(nullptr, follow.getShot());
    expectThrows<NullPointerException>([&] { follow.track(0, 1, 1); }, "TrFollow: no shot");
}

} // namespace
