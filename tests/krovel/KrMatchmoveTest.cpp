#include "krovel/KrMatchmove.h"
#include "krovel/KrMatchmoveProblem.h"

#include "krovel/KrMatrixError.h"
#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace {

// A 3 by 3 matrix in double, for the ground truth.
struct Mat3 {
    double m[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};

    Mat3 operator*(const Mat3& b) const {
        Mat3 c;
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j)
                c.m[i][j] = m[i][0] * b.m[0][j] + m[i][1] * b.m[1][j] + m[i][2] * b.m[2][j];
        return c;
    }
    Mat3 inverse() const {
        Mat3 r;
        const double det = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                           m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                           m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) {
                // Cofactor of (j, i) over the determinant.
                const int r0 = (j + 1) % 3, r1 = (j + 2) % 3, c0 = (i + 1) % 3, c1 = (i + 2) % 3;
                r.m[i][j] = (m[r0][c0] * m[r1][c1] - m[r0][c1] * m[r1][c0]) / det;
            }
        return r;
    }
    void apply(double x, double y, double& ox, double& oy) const {
        const double s = m[2][0] * x + m[2][1] * y + m[2][2];
        ox = (m[0][0] * x + m[0][1] * y + m[0][2]) / s;
        oy = (m[1][0] * x + m[1][1] * y + m[1][2]) / s;
    }
};

Mat3 fromFloat(const KrGenMatrix<float>& h) {
    Mat3 r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            r.m[i][j] = h(i, j);
    return r;
}

const double kWidth = 640;
const double kHeight = 480;

// Frame f of a camera drifting over a plane: plane coordinates to pixels.
// Translation, a slow turn and zoom, and a growing tilt, all about the
// frame centre, so that nothing is affine.
Mat3 camera(int f) {
    const double t = f;
    const double r = 0.004 * t, s = 1 + 0.003 * t;
    Mat3 centre, move, tilt, back;
    back.m[0][2] = -kWidth / 2;
    back.m[1][2] = -kHeight / 2;
    tilt.m[2][0] = 2.0e-6 * t;
    tilt.m[2][1] = -1.5e-6 * t + 1.0e-5;
    move.m[0][0] = s * std::cos(r);
    move.m[0][1] = -s * std::sin(r);
    move.m[1][0] = s * std::sin(r);
    move.m[1][1] = s * std::cos(r);
    move.m[0][2] = 2.5 * t + 0.05 * t * t;
    move.m[1][2] = -1.5 * t;
    centre.m[0][2] = kWidth / 2;
    centre.m[1][2] = kHeight / 2;
    return centre * move * tilt * back;
}

// Points on the plane seen by `frames` frames, each position with Gaussian
// noise of `sigma` pixels from a fixed seed; every weight 1.
struct Clip {
    int frames = 0;
    std::vector<KrMatchmoveTrack> tracks;
    std::vector<Mat3> cameras;

    // The true homography from frame `base` to frame `f`.
    Mat3 truth(int base, int f) const { return cameras[f] * cameras[base].inverse(); }
};

Clip makeClip(int points, int frames, double sigma, unsigned seed = 11) {
    Clip clip;
    clip.frames = frames;
    for (int f = 0; f < frames; ++f)
        clip.cameras.push_back(camera(f));
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> jitter(-20, 20);
    std::normal_distribution<double> noise(0, sigma);
    // A jittered grid of four columns keeps the points spread over the frame.
    const int rows = (points + 3) / 4;
    for (int i = 0; i < points; ++i) {
        const double X = (i % 4 + 0.5) * kWidth / 4 + jitter(rng);
        const double Y = (i / 4 + 0.5) * kHeight / rows + jitter(rng);
        KrMatchmoveTrack track(KrGenMatrix<float>(frames, 2), KrGenVector<float>(frames, 1.0f));
        for (int f = 0; f < frames; ++f) {
            double x, y;
            clip.cameras[f].apply(X, Y, x, y);
            track.positions(f, 0) = float(x + (sigma > 0 ? noise(rng) : 0));
            track.positions(f, 1) = float(y + (sigma > 0 ? noise(rng) : 0));
        }
        clip.tracks.push_back(track);
    }
    return clip;
}

void addAll(KrMatchmove& mm, const Clip& clip) {
    for (const KrMatchmoveTrack& t : clip.tracks)
        mm.addTrack(t);
}

// The largest distance, in pixels, between the frame corners carried by the
// solved and by the true homography.
double cornerError(const KrMatchmove& mm, const Clip& clip, int base, int f) {
    const Mat3 solved = fromFloat(mm.getHomography(f));
    const Mat3 truth = clip.truth(base, f);
    const double corners[4][2] = {{0, 0}, {kWidth, 0}, {kWidth, kHeight}, {0, kHeight}};
    double worst = 0;
    for (const auto& c : corners) {
        double sx, sy, tx, ty;
        solved.apply(c[0], c[1], sx, sy);
        truth.apply(c[0], c[1], tx, ty);
        worst = std::max(worst, std::hypot(sx - tx, sy - ty));
    }
    return worst;
}

bool sameElements(const KrGenMatrix<float>& a, const KrGenMatrix<float>& b) {
    if (a.rows() != b.rows() || a.cols() != b.cols())
        return false;
    for (int i = 0; i < a.rows(); ++i)
        for (int j = 0; j < a.cols(); ++j)
            if (a(i, j) != b(i, j))
                return false;
    return true;
}

bool isIdentity(const KrGenMatrix<float>& h) {
    KrGenMatrix<float> id(3, 3);
    id(0, 0) = id(1, 1) = id(2, 2) = 1;
    return sameElements(h, id);
}

// Records the frames in solving order.
class OrderRecorder : public KrMatchmove {
public:
    std::vector<int> order;

protected:
    void solveFrame(int frame) override {
        order.push_back(frame);
        KrMatchmove::solveFrame(frame);
    }
};

KrGenVector<float> point(float x, float y) {
    KrGenVector<float> p(2);
    p(0) = x;
    p(1) = y;
    return p;
}

} // namespace

// The fit stops once six trials in a row gain less than 1% of ε + 1 (ε the
// residual norm in pixels), so without noise up to about 0.01 px of residual
// norm may remain; the corners lie outside the points' hull and amplify that
// a few times. 0.05 px bounds it with room.
TEST(KrMatchmove, RecoversExactHomographies) {
    const Clip clip = makeClip(12, 20, 0);
    for (int base : {0, 7, 19}) {
        KrMatchmove mm;
        addAll(mm, clip);
        mm.setBaseFrame(base);
        mm.solve();
        ASSERT_EQ(20, mm.getFrameCount());
        for (int f = 0; f < 20; ++f) {
            EXPECT_LT(cornerError(mm, clip, base, f), 0.05) << "base " << base << " frame " << f;
            EXPECT_EQ(1.0f, mm.getHomography(f)(2, 2));
        }
    }
}

// Noise of σ = 0.05 px on both ends of each correspondence: the least-squares
// fit of 8 parameters to 24 coordinates predicts the corners, which are
// extrapolated, with a standard error of roughly σ·√2 times a leverage of 1
// to 2, about 0.1 px; 0.4 px is four of those. The residual judges the fit
// itself: its rms per coordinate cannot fall far below σ·√2·√(16/24) ≈ 0.058
// px at the optimum and must not rise much above it.
TEST(KrMatchmove, RecoversNoisyHomographiesAroundExactIdentity) {
    const double sigma = 0.05;
    const Clip clip = makeClip(12, 20, sigma);
    KrMatchmove mm;
    addAll(mm, clip);
    mm.setBaseFrame(9);
    mm.solve();
    EXPECT_TRUE(isIdentity(mm.getHomography(9)));
    for (int t = 0; t < 12; ++t) {
        EXPECT_EQ(clip.tracks[t].positions(9, 0), mm.getBasePoints()(t, 0));
        EXPECT_EQ(clip.tracks[t].positions(9, 1), mm.getBasePoints()(t, 1));
    }
    const double optimum = sigma * std::sqrt(2.0) * std::sqrt(16.0 / 24.0);
    for (int f = 0; f < 20; ++f) {
        EXPECT_LT(cornerError(mm, clip, 9, f), 0.4) << "frame " << f;
        if (f == 9)
            continue;
        double sum = 0;
        KrGenVector<float> out;
        for (int t = 0; t < 12; ++t) {
            mm.project(f, mm.getBasePoints().row(t), out);
            sum += std::pow(out(0) - clip.tracks[t].positions(f, 0), 2) +
                   std::pow(out(1) - clip.tracks[t].positions(f, 1), 2);
        }
        const double rms = std::sqrt(sum / 24);
        EXPECT_GT(rms, 0.3 * optimum) << "frame " << f;
        EXPECT_LT(rms, 2.0 * optimum) << "frame " << f;
    }
}

TEST(KrMatchmove, SolvesOutwardFromBaseFrame) {
    const Clip clip = makeClip(12, 6, 0);
    const struct {
        int base;
        std::vector<int> order;
    } cases[] = {{0, {1, 2, 3, 4, 5}}, {5, {4, 3, 2, 1, 0}}, {2, {3, 4, 5, 1, 0}}};
    for (const auto& c : cases) {
        OrderRecorder mm;
        addAll(mm, clip);
        mm.setBaseFrame(c.base);
        mm.solve();
        EXPECT_EQ(c.order, mm.order) << "base " << c.base;
    }
}

// A frame without present tracks keeps the copy of the frame it was reached
// from, which shows the direction of each pass; the chain goes on past it.
TEST(KrMatchmove, FrameWithoutTracksCopiesNeighbour) {
    Clip clip = makeClip(12, 20, 0);
    for (KrMatchmoveTrack& t : clip.tracks) {
        t.weights(3) = 0;
        t.weights(15) = -1;
    }
    KrMatchmove mm;
    addAll(mm, clip);
    mm.setBaseFrame(10);
    mm.solve();
    EXPECT_TRUE(sameElements(mm.getHomography(3), mm.getHomography(4)));
    EXPECT_TRUE(sameElements(mm.getHomography(15), mm.getHomography(14)));
    EXPECT_FALSE(sameElements(mm.getHomography(3), mm.getHomography(2)));
    EXPECT_FALSE(sameElements(mm.getHomography(15), mm.getHomography(16)));
    for (int f : {2, 16})
        EXPECT_LT(cornerError(mm, clip, 10, f), 0.05) << "frame " << f;
}

TEST(KrMatchmove, TracksAbsentFromBaseFrameCountNowhere) {
    Clip clip = makeClip(12, 8, 0);
    for (KrMatchmoveTrack& t : clip.tracks)
        t.weights(4) = 0;
    KrMatchmove mm;
    addAll(mm, clip);
    mm.setBaseFrame(4);
    mm.solve();
    for (int f = 0; f < 8; ++f)
        EXPECT_TRUE(isIdentity(mm.getHomography(f))) << "frame " << f;
}

TEST(KrMatchmove, ZeroWeightExcludesTrack) {
    const Clip clip = makeClip(12, 20, 0);
    // A thirteenth track that wanders off the plane from frame 12 on.
    KrMatchmoveTrack stray = clip.tracks[0];
    stray.positions = stray.positions.copy();
    stray.weights = stray.weights.copy();
    for (int f = 12; f < 20; ++f) {
        stray.positions(f, 0) += 40.0f * float(f - 11);
        stray.positions(f, 1) -= 25.0f * float(f - 11);
    }

    KrMatchmove trusting;
    addAll(trusting, clip);
    trusting.addTrack(stray);
    trusting.solve();
    EXPECT_GT(cornerError(trusting, clip, 0, 19), 5.0) << "the stray track should pull";

    for (int f = 12; f < 20; ++f)
        stray.weights(f) = 0;
    KrMatchmove excluding;
    addAll(excluding, clip);
    excluding.addTrack(stray);
    excluding.solve();
    for (int f = 0; f < 20; ++f)
        EXPECT_LT(cornerError(excluding, clip, 0, f), 0.05) << "frame " << f;

    // Absent from the base frame, a track takes part in no frame at all.
    KrMatchmove plain;
    addAll(plain, clip);
    plain.solve();
    for (int f = 0; f < 20; ++f)
        stray.weights(f) = f == 0 ? 0.0f : 1.0f;
    KrMatchmove baseless;
    addAll(baseless, clip);
    baseless.addTrack(stray);
    baseless.solve();
    for (int f = 0; f < 20; ++f)
        EXPECT_TRUE(sameElements(plain.getHomography(f), baseless.getHomography(f)))
            << "frame " << f;
}

// One track cannot fix eight parameters: once the damping has faded the
// normal matrix is singular. The frame keeps the solver's last accepted step,
// which carries the track to within the stopping rule's 0.01 px, and the clip
// is solved to the end.
TEST(KrMatchmove, UnderdeterminedFramesKeepLastAcceptedStep) {
    Clip clip = makeClip(1, 8, 0);
    KrMatchmove mm;
    addAll(mm, clip);
    mm.setBaseFrame(2);
    mm.solve();
    EXPECT_GT(mm.getFailedFrames().size(), 0);
    for (int f : mm.getFailedFrames())
        EXPECT_TRUE(f >= 0 && f < 8 && f != 2) << f;
    KrGenVector<float> out;
    for (int f = 0; f < 8; ++f) {
        mm.project(f, mm.getBasePoints().row(0), out);
        EXPECT_NEAR(clip.tracks[0].positions(f, 0), out(0), 0.02) << "frame " << f;
        EXPECT_NEAR(clip.tracks[0].positions(f, 1), out(1), 0.02) << "frame " << f;
    }

    // Tracks enough for the fit leave no frame failed.
    KrMatchmove full;
    addAll(full, makeClip(12, 8, 0));
    full.solve();
    EXPECT_EQ(0, full.getFailedFrames().size());
}

TEST(KrMatchmove, ProjectCarriesBasePointsOntoTracks) {
    const Clip clip = makeClip(12, 20, 0);
    KrMatchmove mm;
    addAll(mm, clip);
    mm.setBaseFrame(3);
    mm.solve();
    KrGenVector<float> out;
    for (int f : {0, 3, 11, 19}) {
        const Mat3 h = fromFloat(mm.getHomography(f));
        for (int t = 0; t < 12; ++t) {
            const float X = clip.tracks[t].positions(3, 0), Y = clip.tracks[t].positions(3, 1);
            mm.project(f, point(X, Y), out);
            ASSERT_EQ(2, out.length());
            double x, y;
            h.apply(X, Y, x, y);
            // Both in double from the same float matrix: one float rounding apart.
            EXPECT_NEAR(x, out(0), 2 * FLT_EPSILON * std::abs(x));
            EXPECT_NEAR(y, out(1), 2 * FLT_EPSILON * std::abs(y));
            EXPECT_NEAR(clip.tracks[t].positions(f, 0), out(0), 0.05);
            EXPECT_NEAR(clip.tracks[t].positions(f, 1), out(1), 0.05);
        }
    }
}

TEST(KrMatchmove, AddTrackKeepsPrivateCopy) {
    Clip clip = makeClip(12, 10, 0);
    KrMatchmove mm;
    addAll(mm, clip);
    for (KrMatchmoveTrack& t : clip.tracks) {
        t.positions(9, 0) += 100;
        t.weights(0) = 0;
    }
    mm.solve();
    EXPECT_LT(cornerError(mm, clip, 0, 9), 0.05);
    EXPECT_EQ(1.0f, mm.getTrack(0).weights(0));
}

TEST(KrMatchmove, RejectsBadTracks) {
    KrMatchmove mm;
    expectThrows<IllegalArgumentException>([&] { mm.addTrack(KrMatchmoveTrack()); },
                                           "KrMatchmove::addTrack: track has no frames");
    expectThrows<IllegalArgumentException>(
        [&] { mm.addTrack(KrMatchmoveTrack(KrGenMatrix<float>(5, 3), KrGenVector<float>(5))); },
        "KrMatchmove::addTrack: positions are 5 by 3, not 5 by 2");
    expectThrows<IllegalArgumentException>(
        [&] { mm.addTrack(KrMatchmoveTrack(KrGenMatrix<float>(4, 2), KrGenVector<float>(5))); },
        "KrMatchmove::addTrack: positions are 4 by 2, not 5 by 2");
    EXPECT_EQ(0, mm.getTrackCount());

    mm.addTrack(KrMatchmoveTrack(KrGenMatrix<float>(5, 2), KrGenVector<float>(5, 1)));
    expectThrows<IllegalArgumentException>(
        [&] { mm.addTrack(KrMatchmoveTrack(KrGenMatrix<float>(6, 2), KrGenVector<float>(6))); },
        "KrMatchmove::addTrack: track has 6 frames, not 5 like the first");

    KrMatchmoveTrack t(KrGenMatrix<float>(5, 2), KrGenVector<float>(5, 1));
    t.weights(2) = std::numeric_limits<float>::infinity();
    expectThrows<IllegalArgumentException>([&] { mm.addTrack(t); },
                                           "KrMatchmove::addTrack: weight of frame 2 is infinite");
    t.weights(2) = 1;
    t.positions(3, 1) = std::numeric_limits<float>::quiet_NaN();
    expectThrows<IllegalArgumentException>(
        [&] { mm.addTrack(t); }, "KrMatchmove::addTrack: position of frame 3 is not finite");
    EXPECT_EQ(1, mm.getTrackCount());

    // A lost track's position is not read.
    t.weights(3) = 0;
    mm.addTrack(t);
    EXPECT_EQ(2, mm.getTrackCount());
    EXPECT_EQ(5, mm.getFrameCount());
}

TEST(KrMatchmove, RejectsBadFrames) {
    KrMatchmove mm;
    expectThrows<IllegalArgumentException>([&] { mm.solve(); }, "KrMatchmove::solve: no tracks");
    expectThrows<IllegalArgumentException>(
        [&] { mm.setBaseFrame(-1); },
        "KrMatchmove::setBaseFrame: frame -1 outside the 0 frames of the tracks");
    mm.setBaseFrame(7);

    const Clip clip = makeClip(4, 5, 0);
    addAll(mm, clip);
    expectThrows<IllegalArgumentException>(
        [&] { mm.solve(); }, "KrMatchmove::solve: base frame 7 outside the 5 frames of the tracks");
    expectThrows<IllegalArgumentException>(
        [&] { mm.setBaseFrame(5); },
        "KrMatchmove::setBaseFrame: frame 5 outside the 5 frames of the tracks");
    EXPECT_EQ(7, mm.getBaseFrame());

    KrGenVector<float> out;
    expectThrows<BadIndexException>([&] { mm.getHomography(0); },
                                    "KrMatchmove::getHomography: frame 0 outside the 0 solved "
                                    "frames");
    mm.setBaseFrame(4);
    mm.solve();
    expectThrows<BadIndexException>([&] { mm.getHomography(5); },
                                    "KrMatchmove::getHomography: frame 5 outside the 5 solved "
                                    "frames");
    expectThrows<BadIndexException>([&] { mm.project(-1, point(0, 0), out); },
                                    "KrMatchmove::project: frame -1 outside the 5 solved frames");
    expectThrows<KrMatrixError>([&] { mm.project(0, KrGenVector<float>(1), out); },
                                "KrVector index 1 out of range 0");

    mm.clearTracks();
    EXPECT_EQ(0, mm.getFrameCount());
    expectThrows<BadIndexException>([&] { mm.getHomography(0); },
                                    "KrMatchmove::getHomography: frame 0 outside the 0 solved "
                                    "frames");
}

// The problem of one frame, with the tracks weighted unevenly and some absent.
class KrMatchmoveProblemTest : public ::testing::Test {
protected:
    void SetUp() override {
        clip = makeClip(8, 10, 0);
        for (int t = 0; t < 8; ++t)
            clip.tracks[t].weights(kFrame) = 0.5f + 0.25f * float(t);
        clip.tracks[2].weights(kFrame) = 0;
        clip.tracks[5].weights(kBase) = 0;
        addAll(mm, clip);
        mm.setBaseFrame(kBase);
        mm.solve();
    }

    static constexpr int kFrame = 7;
    static constexpr int kBase = 1;
    Clip clip;
    KrMatchmove mm;
};

TEST_F(KrMatchmoveProblemTest, ActiveTracksArePresentInBothFrames) {
    KrMatchmoveProblem p(&mm, kFrame);
    ASSERT_EQ(6, p.getActiveCount());
    const int expected[] = {0, 1, 3, 4, 6, 7};
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(expected[i], p.getActiveTracks()(i));
    EXPECT_EQ(kFrame, p.getFrame());
}

TEST_F(KrMatchmoveProblemTest, GoalAndProjectionAreWeighted) {
    KrMatchmoveProblem p(&mm, kFrame);
    const KrGenVector<float> goal = p.getGoal();
    ASSERT_EQ(12, goal.length());
    const Mat3 truth = clip.truth(kBase, kFrame);
    KrGenMatrix<float> H(3, 3);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            H(i, j) = float(truth.m[i][j] / truth.m[2][2]);
    KrGenVector<float> out;
    p.project(H, out);
    ASSERT_EQ(12, out.length());
    const Mat3 h = fromFloat(H);
    for (int i = 0; i < 6; ++i) {
        const KrMatchmoveTrack& t = clip.tracks[p.getActiveTracks()(i)];
        const double w = t.weights(kFrame);
        EXPECT_FLOAT_EQ(float(w * t.positions(kFrame, 0)), goal(2 * i));
        EXPECT_FLOAT_EQ(float(w * t.positions(kFrame, 1)), goal(2 * i + 1));
        double x, y;
        h.apply(t.positions(kBase, 0), t.positions(kBase, 1), x, y);
        EXPECT_NEAR(w * x, out(2 * i), 4 * FLT_EPSILON * std::abs(w * x));
        EXPECT_NEAR(w * y, out(2 * i + 1), 4 * FLT_EPSILON * std::abs(w * y));
    }

    // setX and evalY give the same outputs; yToMatrix removes the weights.
    KrGenVector<float> x;
    KrMatchmoveProblem::xToVector(H, x);
    p.setX(x);
    KrGenVector<float> y;
    p.evalY(y);
    KrGenMatrix<float> pts;
    p.yToMatrix(y, pts);
    ASSERT_EQ(6, pts.rows());
    for (int i = 0; i < 12; ++i)
        EXPECT_EQ(out(i), y(i));
    for (int i = 0; i < 6; ++i) {
        const KrMatchmoveTrack& t = clip.tracks[p.getActiveTracks()(i)];
        EXPECT_NEAR(t.positions(kFrame, 0), pts(i, 0), 1e-3);
        EXPECT_NEAR(t.positions(kFrame, 1), pts(i, 1), 1e-3);
    }
    KrGenVector<float> back;
    p.yToVector(pts, back);
    for (int i = 0; i < 12; ++i)
        EXPECT_NEAR(y(i), back(i), 2 * FLT_EPSILON * std::abs(y(i)));
}

// The outputs are w·u/s and w·v/s, so the numerator parameters enter
// linearly and their forward difference is exact but for rounding. The
// perspective parameters h2 and h5 move s by 0.0001·X (or Y): the forward
// difference of 1/s is off the derivative by a factor s/(s + 0.0001·X), which
// bounds the tolerance.
TEST_F(KrMatchmoveProblemTest, JacobianMatchesAnalyticDerivative) {
    KrMatchmoveProblem p(&mm, kFrame);
    const Mat3 truth = clip.truth(kBase, kFrame);
    KrGenMatrix<float> H(3, 3);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            H(i, j) = float(truth.m[i][j] / truth.m[2][2]);
    KrGenVector<float> x;
    KrMatchmoveProblem::xToVector(H, x);
    p.setX(x);
    KrGenMatrix<float> dy;
    p.evalDy(dy);
    ASSERT_EQ(12, dy.rows());
    ASSERT_EQ(8, dy.cols());
    const Mat3 h = fromFloat(H);
    for (int i = 0; i < 6; ++i) {
        const KrMatchmoveTrack& t = clip.tracks[p.getActiveTracks()(i)];
        const double w = t.weights(kFrame);
        const double X = t.positions(kBase, 0), Y = t.positions(kBase, 1);
        const double u = h.m[0][0] * X + h.m[0][1] * Y + h.m[0][2];
        const double v = h.m[1][0] * X + h.m[1][1] * Y + h.m[1][2];
        const double s = h.m[2][0] * X + h.m[2][1] * Y + 1;
        // Parameter order: H(0,0), H(1,0), H(2,0), H(0,1), H(1,1), H(2,1), H(0,2), H(1,2).
        const double dx[8] = {
            w * X / s, 0, -w * u * X / (s * s), w * Y / s, 0, -w * u * Y / (s * s), w / s, 0};
        const double dyv[8] = {
            0, w * X / s, -w * v * X / (s * s), 0, w * Y / s, -w * v * Y / (s * s), 0, w / s};
        for (int k = 0; k < 8; ++k) {
            const bool perspective = k == 2 || k == 5;
            const double lever = k == 2 ? X : Y;
            for (int c = 0; c < 2; ++c) {
                const double exact = c == 0 ? dx[k] : dyv[k];
                const double truncation =
                    perspective ? 2 * 0.0001 * std::abs(lever / s) * std::abs(exact) : 0;
                EXPECT_NEAR(exact, dy(2 * i + c, k),
                            truncation + 4 * FLT_EPSILON * std::abs(exact) + 1e-6)
                    << "track " << i << " coordinate " << c << " parameter " << k;
            }
        }
    }
}

TEST(KrMatchmoveProblem, ParametersAreColumnMajorWithUnitCorner) {
    KrGenVector<float> v(8);
    for (int k = 0; k < 8; ++k)
        v(k) = float(k + 2);
    KrGenMatrix<float> H(2, 5, KrGenMatrix<float>::RowMajor);
    KrMatchmoveProblem::xToMatrix(v, H);
    ASSERT_EQ(3, H.rows());
    ASSERT_EQ(3, H.cols());
    EXPECT_EQ(1, H.rowStride());
    EXPECT_EQ(3, H.colStride());
    for (int k = 0; k < 8; ++k)
        EXPECT_EQ(v(k), H.data()[k]);
    EXPECT_EQ(1.0f, H(2, 2));

    // Read back through element positions, whatever the layout.
    KrGenMatrix<float> rowMajor = H.copy(KrGenMatrix<float>::RowMajor);
    KrGenVector<float> back;
    KrMatchmoveProblem::xToVector(rowMajor, back);
    ASSERT_EQ(8, back.length());
    for (int k = 0; k < 8; ++k)
        EXPECT_EQ(v(k), back(k));

    expectThrows<KrMatrixError>(
        [&] { KrMatchmoveProblem::xToVector(KrGenMatrix<float>(2, 3), back); },
        "KrMatchmoveProblem::xToVector: H is 2 by 3, not 3 by 3");
    expectThrows<KrMatrixError>([&] { KrMatchmoveProblem::xToMatrix(KrGenVector<float>(7), H); },
                                "KrMatchmoveProblem::xToMatrix: 7 parameters, not 8");
}

TEST_F(KrMatchmoveProblemTest, RejectsBadArguments) {
    expectThrows<NullPointerException>([] { KrMatchmoveProblem(nullptr, 0); },
                                       "KrMatchmoveProblem: no matchmove");
    expectThrows<IllegalArgumentException>([&] { KrMatchmoveProblem(&mm, 10); },
                                           "KrMatchmoveProblem: frame 10 outside 0..9");
    KrMatchmove unsolved;
    addAll(unsolved, clip);
    expectThrows<IllegalArgumentException>([&] { KrMatchmoveProblem(&unsolved, 0); },
                                           "KrMatchmoveProblem: base points not set up");

    KrMatchmoveProblem p(&mm, kFrame);
    KrGenVector<float> v;
    KrGenMatrix<float> pts;
    expectThrows<KrMatrixError>([&] { p.yToVector(KrGenMatrix<float>(5, 2), v); },
                                "KrMatchmoveProblem::yToVector: points are 5 by 2, not 6 by 2");
    expectThrows<KrMatrixError>([&] { p.yToMatrix(KrGenVector<float>(11), pts); },
                                "KrMatchmoveProblem::yToMatrix: 11 outputs, not 12");
    expectThrows<KrMatrixError>([&] { p.project(KrGenMatrix<float>(3, 2), v); },
                                "KrMatchmoveProblem::project: H is 3 by 2, not 3 by 3");
}
