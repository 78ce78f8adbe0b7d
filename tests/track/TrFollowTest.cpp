#include "track/TrFollow.h"

#include "track/RecordingShot.h"
#include "track/Sequence/TrTestSequence.h"
#include "track/TrFeedback.h"
#include "track/TrackImages.h"

#include <string>
#include <tuple>
#include <utility>
#include <vector>

using namespace trackimages;

namespace {

const int kWidth = 200;
const int kHeight = 150;
// 8-bit frames of a smooth texture: the refined position is good to a few
// hundredths of a pixel; a tenth leaves room for the quantisation.
const double kAccuracy = 0.1;

double distance(const GenPoint<double>& a, const GenPoint<double>& b) {
    return std::hypot(a.x - b.x, a.y - b.y);
}

// A texture moving by `step` pixels a frame, seen through a recording shot.
struct Rig {
    explicit Rig(double dx = 0, double dy = 0)
        : dx(dx), dy(dy), shot(kWidth, kHeight, [this](double x, double y, int f) {
              return texture(x - this->dx * f, y - this->dy * f);
          }) {
        follow.setShot(&shot);
    }
    // Where a feature at `p` in frame `from` lies in frame `to`.
    GenPoint<double> truth(const GenPoint<double>& p, int from, int to) const {
        return GenPoint<double>(p.x + dx * (to - from), p.y + dy * (to - from));
    }
    // Runs frames first .. last; the frame at which the track stopped, or 0.
    int run(int first, int last) {
        const int direction = last >= first ? 1 : -1;
        follow.begin(first, 1);
        for (int f = first; f != last + direction; f += direction)
            if (!follow.track(0, f, direction))
                return f;
        return 0;
    }
    // Passes the begin frame, then makes every later match fail.
    void failAfterBegin(const char* behavior) {
        shot.setFailureBehavior(0, behavior);
        follow.begin(1, 1);
        ASSERT_TRUE(follow.track(0, 1, 1));
        shot.setFailureTolerance(0, 1.5);
    }

    Texture texture{11};
    double dx, dy;
    RecordingShot shot;
    TrFollow follow;
};

TEST(TrFollow, RefusalTexts) {
    const Image rgb(GenRect<int>(0, 0, 2, 2), Format::getRGB());
    for (const char* mode : {"cyan", "Red", ""})
        expectThrows<IllegalArgumentException>([&] { TrFollow::setupReducer(rgb, mode); },
                                               "unsupported color mode \"" + std::string(mode) +
                                                   "\"");
    expectThrows<IllegalArgumentException>([&] { TrFollow::reduce(rgb, "hsv"); },
                                           "unsupported color mode \"hsv\"");
    // A failure behaviour is read only when a match fails.
    for (const char* behavior : {"sideways", ""}) {
        Rig rig;
        rig.shot.add(60, 70);
        rig.failAfterBegin(behavior);
        expectThrows<IllegalArgumentException>([&] { rig.follow.track(0, 2, 1); },
                                               "unknown failure behavior \"" +
                                                   std::string(behavior) + "\"");
    }
}

TEST(TrFollow, FollowsMotionFarBeyondTheSearchMargin) {
    // 3.6 pixels a frame against a margin of 6: after 20 frames the feature
    // is 80 pixels from where the pass began.
    for (int first : {1, 21}) {
        Rig rig(3.6, -1.7);
        const GenPoint<double> start = rig.truth(GenPoint<double>(40, 100), 1, first);
        rig.shot.add(start.x, start.y);
        EXPECT_EQ(0, rig.run(first, 22 - first)) << first;
        for (int f = 1; f <= 21; ++f)
            EXPECT_LT(distance(rig.truth(start, first, f), rig.shot.getPosition(0, f)), kAccuracy)
                << first << " " << f;
    }
}

TEST(TrFollow, VelocityTakesTheFirstDisplacementWholeThenSmooths) {
    Rig rig(2.5, 1.25);
    rig.shot.add(60, 60);
    rig.follow.begin(1, 1);
    const TrTrackInfo& info = rig.follow.getInfo(0);
    ASSERT_TRUE(rig.follow.track(0, 1, 1));
    // The begin frame is the first keyed frame: its whole move is the velocity.
    GenPoint<double> before = rig.shot.getPosition(0, 1);
    GenPoint<double> v(float(before.x - info.origin.x), float(before.y - info.origin.y));
    EXPECT_EQ(v, info.velocity);
    for (int f = 2; f <= 4; ++f) {
        ASSERT_TRUE(rig.follow.track(0, f, 1));
        EXPECT_EQ(GenPoint<double>(float(before.x + v.x), float(before.y + v.y)), info.predicted);
        const GenPoint<double> p(info.position.x, info.position.y);
        v = GenPoint<double>(0.4 * float(p.x - before.x) + 0.6 * v.x,
                             0.4 * float(p.y - before.y) + 0.6 * v.y);
        EXPECT_DOUBLE_EQ(v.x, info.velocity.x) << "frame " << f;
        EXPECT_DOUBLE_EQ(v.y, info.velocity.y) << "frame " << f;
        before = p;
    }
}

TEST(TrFollow, DefaultRetriesWithSearchAreasGrownByTenPercentOthersTryOnce) {
    for (const char* behavior :
         {"default", "predict", "predictAndKey", "dontPredict", "useExistingCurve"}) {
        Rig rig(1.25, 0);
        rig.shot.add(60.3, 70.2);
        const GenRect<double> r(-12, -10, 24, 20);
        rig.shot.setSearchRect(0, r);
        rig.failAfterBegin(behavior);
        const TrTrackInfo& info = rig.follow.getInfo(0);
        const double px = float(info.position.x + info.velocity.x);
        const double py = float(info.position.y + info.velocity.y);
        rig.shot.fetches.clear();
        ASSERT_TRUE(rig.follow.track(0, 2, 1)) << behavior;
        const std::size_t attempts = std::string(behavior) == "default" ? 3 : 1;
        ASSERT_EQ(attempts, rig.shot.fetches.size()) << behavior;
        for (std::size_t a = 0; a < attempts; ++a) {
            // 1.0, 1.1 and 1.2 times the area around the prediction, each
            // edge rounded on its own.
            const double g = 1.5 * (1 + 0.1 * a);
            const int x0 = int(std::lround(px + r.x * g)), y0 = int(std::lround(py + r.y * g));
            const int x1 = int(std::lround(px + (r.x + r.w) * g));
            const int y1 = int(std::lround(py + (r.y + r.h) * g));
            EXPECT_EQ(GenRect<int>(x0, y0, x1 - x0, y1 - y0), rig.shot.fetches[a].rect) << a;
            EXPECT_EQ(2, rig.shot.fetches[a].frame);
        }
    }
}

// Every field of the step state, compared exactly.
void expectSameState(const TrStepState& a, const TrStepState& b) {
    EXPECT_EQ(a.origin, b.origin);
    EXPECT_EQ(a.patternRect, b.patternRect);
    EXPECT_EQ(a.patternBounds, b.patternBounds);
    EXPECT_EQ(a.position, b.position);
    EXPECT_EQ(a.transform, b.transform);
    EXPECT_EQ(a.prevTransform, b.prevTransform);
    ASSERT_EQ(a.matrix.rows(), b.matrix.rows());
    ASSERT_EQ(a.matrix.cols(), b.matrix.cols());
    for (int r = 0; r < a.matrix.rows(); ++r)
        for (int c = 0; c < a.matrix.cols(); ++c)
            EXPECT_EQ(a.matrix(r, c), b.matrix(r, c)) << r << " " << c;
    EXPECT_EQ(a.transformGain, b.transformGain);
    EXPECT_EQ(a.velocity, b.velocity);
    EXPECT_EQ(a.velocityWeight, b.velocityWeight);
    EXPECT_EQ(a.prevPosition, b.prevPosition);
    EXPECT_EQ(a.predicted, b.predicted);
    EXPECT_EQ(a.matchOffset, b.matchOffset);
    EXPECT_EQ(a.affineOffset, b.affineOffset);
    EXPECT_EQ(a.score, b.score);
    EXPECT_EQ(a.failCount, b.failCount);
}

TEST(TrFollow, ARetryStartsFromTheSavedStateNotFromTheFailedAttempt) {
    // Under "default", with a tolerance no score reaches, the third attempt
    // searches 1.2 times the stored area. A track that tries once over an
    // area made 1.2 times larger starts from the same saved state, so it
    // must end exactly where the retries end: anything the first two
    // attempts left behind would show.
    const GenRect<double> r(-12, -10, 24, 20);
    const double g = 1 + 0.1 * 2;
    Rig retried(1.25, 0.5);
    Rig once(1.25, 0.5);
    for (Rig* rig : {&retried, &once}) {
        rig->shot.add(60.3, 70.2);
        rig->shot.setSearchRect(0, r);
        // A shape that the refinement fits, so that it has a start to forget.
        rig->shot.setUseRotate(0, true);
        rig->shot.setUseScale(0, true);
    }
    retried.failAfterBegin("default");
    once.failAfterBegin("predict");
    once.shot.setSearchRect(0, GenRect<double>(r.x * g, r.y * g, r.w * g, r.h * g));
    retried.shot.fetches.clear();
    once.shot.fetches.clear();
    ASSERT_TRUE(retried.follow.track(0, 2, 1));
    ASSERT_TRUE(once.follow.track(0, 2, 1));
    ASSERT_EQ(3u, retried.shot.fetches.size());
    ASSERT_EQ(1u, once.shot.fetches.size());
    // The two scale the area in another order; the rounded regions agree.
    ASSERT_EQ(retried.shot.fetches[2].rect, once.shot.fetches[0].rect);
    expectSameState(retried.follow.getInfo(0), once.follow.getInfo(0));
    EXPECT_EQ(1, retried.follow.getInfo(0).failCount);
}

TEST(TrFollow, PatternOrSearchAreaOutsideTheFrameStopsTheTrackWithoutKeys) {
    Rig rig;
    rig.shot.add(-30, 70);
    rig.shot.add(kWidth + 30, kHeight + 30);
    rig.shot.add(60, 70);
    rig.follow.begin(1, 1);
    for (int i = 0; i < 2; ++i) {
        EXPECT_FALSE(rig.follow.track(i, 1, 1));
        EXPECT_FALSE(rig.follow.track(i, 2, 1));
    }
    EXPECT_TRUE(rig.shot.writes.empty());
    ASSERT_TRUE(rig.follow.track(2, 1, 1));
    rig.shot.writes.clear();
    rig.shot.setSearchRect(2, GenRect<double>(300, 0, 20, 20));
    EXPECT_FALSE(rig.follow.track(2, 2, 1));
    EXPECT_TRUE(rig.shot.writes.empty());
}

TEST(TrFollow, FeaturesLeavingTheFrameOnEitherSideStopCleanly) {
    // Tracked accurately while the pattern is inside, with search areas cut
    // by the edge. Beyond the edge the warp repeats the edge pixels, streaks
    // that still correlate at about 0.8, so a strict tolerance is what stops
    // the track before its pattern has wholly left.
    for (double dx : {-2.0, 2.0}) {
        Rig rig(dx, 0);
        const GenPoint<double> start(dx < 0 ? 24 : kWidth - 24, 75);
        rig.shot.add(start.x, start.y);
        rig.shot.setFailureTolerance(0, 0.9);
        const int stoppedAt = rig.run(1, 40);
        // The centre is 8 pixels, half the pattern, outside at frame 17.
        EXPECT_GT(stoppedAt, 9) << dx;
        EXPECT_LE(stoppedAt, 17) << dx;
        for (int f = 1; f < stoppedAt; ++f) {
            const GenPoint<double> truth = rig.truth(start, 1, f);
            if (truth.x > 8 && truth.x < kWidth - 8) {
                EXPECT_LT(distance(truth, rig.shot.getPosition(0, f)), kAccuracy) << dx << " " << f;
            }
        }
    }
}

TEST(TrFollow, LaggedRefinementStartsTwoFramesAfterTheBeginFrame) {
    Rig rig(1.5, -0.75);
    rig.shot.add(70, 80);
    rig.shot.setUseRotate(0, true);
    rig.shot.setUseScale(0, true);
    const auto writesAtOne = [&] {
        std::vector<std::string> out;
        for (const std::string& w : rig.shot.writes)
            if (w.substr(1) == "1")
                out.push_back(w);
        rig.shot.writes.clear();
        return out;
    };
    rig.follow.begin(1, 1);
    ASSERT_TRUE(rig.follow.track(0, 1, 1));
    writesAtOne();
    ASSERT_TRUE(rig.follow.track(0, 2, 1));
    EXPECT_TRUE(writesAtOne().empty());
    // Frames -1 and 0 lie before the pass and are left out of the average,
    // summed in frame order from zero as the driver does, so exactly equal.
    AffineTransform expected;
    expected.zero();
    expected = expected + rig.shot.getTransform(0, 1) + rig.shot.getTransform(0, 2);
    ASSERT_TRUE(rig.follow.track(0, 3, 1));
    expected = (expected + rig.shot.getTransform(0, 3)) / 3.0f;
    EXPECT_EQ(std::vector<std::string>({"t1", "p1", "q1"}), writesAtOne());
    EXPECT_EQ(expected, rig.shot.getTransform(0, 1));
    EXPECT_LT(distance(rig.truth(GenPoint<double>(70, 80), 1, 1), rig.shot.getPosition(0, 1)),
              kAccuracy);
    EXPECT_GT(rig.shot.getQuality(0, 1), 0.9);
    EXPECT_EQ(2, rig.follow.getInfo(0).patternFrame);
}

struct CancelAfterThree : TrFeedback {
    void beginPass(int) override {}
    void endPass(int) override {}
    bool isCancelled() override { return steps.size() >= 3; }
    void trackStep(int track, int frame) override { steps.push_back({track, frame}); }
    std::vector<std::pair<int, int>> steps;
};

TEST(TrFollow, CancelStopsEveryTrackAtOnce) {
    Rig rig(1, 0);
    rig.shot.add(60, 70);
    rig.shot.add(120, 60);
    CancelAfterThree feedback;
    rig.follow.setFeedback(&feedback);
    rig.follow.begin(1, 1);
    EXPECT_TRUE(rig.follow.track(0, 1, 1));
    EXPECT_TRUE(rig.follow.track(1, 1, 1));
    // The third step is taken and reported, then the pass is cancelled:
    // nothing more is done for any track.
    EXPECT_FALSE(rig.follow.track(0, 2, 1));
    EXPECT_STREQ("the pass was cancelled", rig.follow.getStopReason(0));
    rig.shot.writes.clear();
    rig.shot.fetches.clear();
    EXPECT_FALSE(rig.follow.track(1, 2, 1));
    EXPECT_TRUE(rig.shot.writes.empty() && rig.shot.fetches.empty());
    EXPECT_EQ((std::vector<std::pair<int, int>>{{0, 1}, {1, 1}, {0, 2}}), feedback.steps);
}

TEST(TrFollow, MatrixErrorInTheRefinementStopsTheTrackQuietly) {
    Rig rig;
    rig.shot.add(60, 70);
    rig.shot.flatFrames.insert(3); // no variance to normalise
    rig.follow.begin(1, 1);
    ASSERT_TRUE(rig.follow.track(0, 1, 1));
    ASSERT_TRUE(rig.follow.track(0, 2, 1));
    rig.shot.writes.clear();
    EXPECT_FALSE(rig.follow.track(0, 3, 1));
    EXPECT_TRUE(rig.shot.writes.empty());
}

// ---- end to end on the synthetic saddle sequence

const double kDegree = M_PI / 180;

// A stand-alone shot over the saddle sequence; by default a 20 x 20 pattern
// and a search area of +-20 pixels, which holds the frame's motion of about
// 2.8 pixels and 10 degrees.
struct SaddleShot {
    SaddleShot() : sequence(new TrTestSequence()) {
        shot.setSequence(sequence);
        follow.setShot(&shot);
    }
    // The saddle's centre at frame n, from the sequence's own definition: it
    // starts mid-frame and steps by (dx, dy) turned by i * dth for each frame
    // after the first.
    GenPoint<double> centre(int n) const {
        GenPoint<double> c(sequence->getWidth() * 0.5, sequence->getHeight() * 0.5);
        for (int i = 0; i < n - 1; ++i) {
            const double phi = i * sequence->getDTh() * kDegree;
            c.x += std::cos(phi) * sequence->getDX() - std::sin(phi) * sequence->getDY();
            c.y += std::cos(phi) * sequence->getDY() + std::sin(phi) * sequence->getDX();
        }
        return c;
    }
    void add(int frame, double half = 10, double search = 20) {
        shot.addTrack(centre(frame).x, centre(frame).y);
        shot.setPatternRect(shot.getTrackCount() - 1,
                            GenRect<double>(-half, -half, 2 * half, 2 * half));
        shot.setSearchRect(shot.getTrackCount() - 1,
                           GenRect<double>(-search, -search, 2 * search, 2 * search));
    }
    // A pass over frames first .. last for every track, as a host runs it,
    // dropping tracks that stop: the frame each stopped at, or 0.
    std::vector<int> run(int first, int last) {
        const int direction = last >= first ? 1 : -1;
        std::vector<int> stopped(shot.getTrackCount(), 0);
        follow.begin(first, 1);
        for (int f = first; f != last + direction; f += direction)
            for (int i = 0; i < shot.getTrackCount(); ++i)
                if (stopped[i] == 0 && !follow.track(i, f, direction))
                    stopped[i] = f;
        follow.end(last);
        return stopped;
    }
    // The largest distance from the true centre over frames 1 .. 30,
    // printed per frame for the record.
    double worstError(int i, const char* label) {
        double worst = 0;
        for (int f = 1; f <= 30; ++f) {
            const double e = distance(shot.getPosition(i, f), centre(f));
            worst = std::max(worst, e);
            std::printf("%s track %d frame %2d error %.4f quality %.4f rotation %.2f\n", label, i,
                        f, e, shot.getQuality(i, f), shot.getTransform(i, f).ro / kDegree);
        }
        return worst;
    }

    TrShotImpl shot;
    TrTestSequence* sequence;
    TrFollow follow;
};

TEST(TrFollowEndToEnd, OneTrackFollowsTheSaddleCentreForwardAndBackward) {
    for (int first : {1, 30}) {
        SaddleShot s;
        s.add(first);
        const int last = 31 - first;
        EXPECT_EQ(0, s.run(first, last)[0]);
        for (int f = 1; f <= 30; ++f)
            EXPECT_TRUE(s.shot.isPositionKeyed(0, f)) << "frame " << f;
        EXPECT_LT(s.worstError(0, first == 1 ? "forward" : "backward"), 0.5);
        // The pattern turns by 10 degrees a frame; the shape follows it.
        EXPECT_NEAR((last - first) * 10.0, s.shot.getTransform(0, last).ro / kDegree, 5.0);
    }
}

TEST(TrFollowEndToEnd, SeveralTracksWithTheirOwnModesAndRects) {
    SaddleShot s;
    // Red and saturation read the saddle at 0.16 to 0.84: the float window
    // sums lose the variance of its near-flat windows and score some above
    // 1, which pulls those tracks off the centre. Double sums keep it.
    s.follow.setPreciseSums(true);
    const std::pair<const char*, double> tracks[] = {
        {"luminance", 10}, {"red", 8}, {"hue", 12}, {"saturation", 10}};
    for (int i = 0; i < 4; ++i) {
        s.add(1, tracks[i].second, 24);
        s.shot.setColorMode(i, tracks[i].first);
    }
    const std::vector<int> stopped = s.run(1, 30);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(0, stopped[i]) << tracks[i].first;
        EXPECT_LT(s.worstError(i, tracks[i].first), 0.5) << tracks[i].first;
    }
}

TEST(TrFollowEndToEnd, EachFailureBehaviourStopsAndKeysAsItSays) {
    // A tolerance above 1 fails every frame, so the behaviour alone decides
    // when the track stops and what is keyed: predicting ones give up on
    // the sixth predicted frame in a row.
    const std::tuple<const char*, int, bool> cases[] = {
        {"stop", 1, false},         {"predict", 6, false},     {"default", 6, false},
        {"predictAndKey", 6, true}, {"dontPredict", 0, false}, {"useExistingCurve", 0, false}};
    for (const auto& [behavior, stopsAt, keysPredictions] : cases) {
        SaddleShot s;
        s.add(1);
        s.shot.setFailureTolerance(0, 1.5);
        s.shot.setFailureBehavior(0, behavior);
        EXPECT_EQ(stopsAt, s.run(1, 30)[0]) << behavior;
        // The begin frame's anchor is keyed before the first match.
        for (int f = 1; f <= 30; ++f) {
            const bool keyed = keysPredictions && f < stopsAt;
            EXPECT_EQ(keyed, s.shot.isQualityKeyed(0, f)) << behavior << " " << f;
            EXPECT_EQ(keyed || f == 1, s.shot.isPositionKeyed(0, f)) << behavior << " " << f;
        }
    }
}

// The driver says why it stopped a track, and nothing while it goes on.
TEST(TrFollowEndToEnd, AStoppedTrackCarriesItsReason) {
    const std::pair<const char*, const char*> cases[] = {
        {"stop", "its match scored below the tolerance"},
        {"predict", "its match scored below the tolerance six frames in a row"}};
    for (const auto& [behavior, reason] : cases) {
        SaddleShot s;
        s.add(1);
        s.shot.setFailureTolerance(0, 1.5);
        s.shot.setFailureBehavior(0, behavior);
        s.follow.begin(1, 1);
        int f = 1;
        for (; s.follow.track(0, f, 1); ++f)
            EXPECT_EQ(nullptr, s.follow.getStopReason(0)) << behavior << " " << f;
        ASSERT_NE(nullptr, s.follow.getStopReason(0)) << behavior;
        EXPECT_STREQ(reason, s.follow.getStopReason(0)) << behavior << " stopped at " << f;
    }
    // A track placed off the frame has no pattern to capture.
    SaddleShot s;
    s.add(1);
    s.shot.setPosition(0, 1, GenPoint<double>(-500, -500));
    s.follow.begin(1, 1);
    EXPECT_FALSE(s.follow.track(0, 1, 1));
    EXPECT_STREQ("its pattern lies outside the frame", s.follow.getStopReason(0));
}

// Every step says what it did with its frame: a good match is tracked, a
// failed one that the behaviour carries on is coasted, the last is lost.
TEST(TrFollowEndToEnd, EachStepReportsTrackedCoastedOrLost) {
    SaddleShot good;
    good.add(1);
    good.follow.begin(1, 1);
    EXPECT_EQ(TrStepStatus::Lost, good.follow.getStepStatus(0));
    for (int f = 1; f <= 10; ++f) {
        EXPECT_TRUE(good.follow.track(0, f, 1));
        EXPECT_EQ(TrStepStatus::Tracked, good.follow.getStepStatus(0)) << f;
    }
    // The tolerance is the shot's: a second shot fails every match.
    SaddleShot failing;
    failing.add(1);
    failing.shot.setFailureTolerance(0, 1.5);
    failing.shot.setFailureBehavior(0, "predictAndKey");
    failing.follow.begin(1, 1);
    std::vector<TrStepStatus> seen;
    for (int f = 1; f <= 10 && (seen.empty() || seen.back() != TrStepStatus::Lost); ++f) {
        failing.follow.track(0, f, 1);
        seen.push_back(failing.follow.getStepStatus(0));
    }
    // Keyed predictions are still coasted: keying says nothing of the match.
    // As the behaviour test has it, the sixth failure in a row stops the track.
    std::vector<TrStepStatus> expected(5, TrStepStatus::Coasted);
    expected.push_back(TrStepStatus::Lost);
    EXPECT_EQ(expected, seen);
}

} // namespace
