#include "krovel/KrMatchmove.h"

#include "krovel/KrMatrixError.h"
#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <vector>

namespace {

const double kWidth = 640, kHeight = 480;

// Frame f of a camera drifting over a plane: about the frame centre, a
// growing tilt, then a slow turn and zoom and a translation, so that nothing
// is affine. Both directions in closed form, in double, for the ground truth.
struct Camera {
    explicit Camera(int f)
        : c(std::cos(0.004 * f)), s(std::sin(0.004 * f)), k(1 + 0.003 * f), a(2.0e-6 * f),
          b(-1.5e-6 * f + 1.0e-5), tx(2.5 * f + 0.05 * f * f + kWidth / 2),
          ty(-1.5 * f + kHeight / 2) {}
    void toPixel(double X, double Y, double& x, double& y) const {
        const double u = X - kWidth / 2, v = Y - kHeight / 2, w = a * u + b * v + 1;
        x = k * (c * u - s * v) / w + tx;
        y = k * (s * u + c * v) / w + ty;
    }
    void toPlane(double x, double y, double& X, double& Y) const {
        const double u = (c * (x - tx) + s * (y - ty)) / k, v = (c * (y - ty) - s * (x - tx)) / k;
        const double w = 1 / (1 - a * u - b * v);
        X = u * w + kWidth / 2;
        Y = v * w + kHeight / 2;
    }
    double c, s, k, a, b, tx, ty;
};

// Tracks of points on a jittered grid over the plane, each position with
// Gaussian noise of `sigma` pixels; every weight 1.
std::vector<KrMatchmoveTrack> makeTracks(int points, int frames, double sigma) {
    std::mt19937 rng(11);
    std::uniform_real_distribution<double> jitter(-20, 20);
    std::normal_distribution<double> noise(0, sigma);
    std::vector<KrMatchmoveTrack> tracks;
    const int rows = (points + 3) / 4;
    for (int i = 0; i < points; ++i) {
        const int column = i % 4, row = i / 4;
        const double X = (column + 0.5) * kWidth / 4 + jitter(rng);
        const double Y = (row + 0.5) * kHeight / rows + jitter(rng);
        KrMatchmoveTrack track(KrGenMatrix<float>(frames, 2), KrGenVector<float>(frames, 1.0f));
        for (int f = 0; f < frames; ++f) {
            double x, y;
            Camera(f).toPixel(X, Y, x, y);
            track.positions(f, 0) = float(x + (sigma > 0 ? noise(rng) : 0));
            track.positions(f, 1) = float(y + (sigma > 0 ? noise(rng) : 0));
        }
        tracks.push_back(track);
    }
    return tracks;
}

// Records the frames in solving order.
struct Recorder : KrMatchmove {
    std::vector<int> order;
    void solveFrame(int frame) override {
        order.push_back(frame);
        KrMatchmove::solveFrame(frame);
    }
};

void solve(KrMatchmove& mm, const std::vector<KrMatchmoveTrack>& tracks, int base) {
    for (const KrMatchmoveTrack& t : tracks)
        mm.addTrack(t);
    mm.setBaseFrame(base);
    mm.solve();
}

// The largest distance, in pixels, between the frame corners carried by the
// solved and by the true homography from frame `base` to frame `f`.
double cornerError(const KrMatchmove& mm, int base, int f) {
    const KrGenMatrix<float>& h = mm.getHomography(f);
    double worst = 0;
    for (double x : {0.0, kWidth})
        for (double y : {0.0, kHeight}) {
            double X, Y, tx, ty;
            Camera(base).toPlane(x, y, X, Y);
            Camera(f).toPixel(X, Y, tx, ty);
            const double w = h(2, 0) * x + h(2, 1) * y + h(2, 2);
            worst = std::max(worst, std::hypot((h(0, 0) * x + h(0, 1) * y + h(0, 2)) / w - tx,
                                               (h(1, 0) * x + h(1, 1) * y + h(1, 2)) / w - ty));
        }
    return worst;
}

bool equal(const KrGenMatrix<float>& a, const KrGenMatrix<float>& b) {
    return std::equal(a.data(), a.data() + 9, b.data()) && a.rowStride() == b.rowStride();
}

} // namespace

// The fit stops once six trials in a row gain less than 1% of ε + 1, so
// without noise up to about 0.01 px of residual norm may remain; the corners
// lie outside the points' hull and amplify that a few times. With noise of
// σ = 0.05 px on both ends, the extrapolated corners have a standard error of
// about σ·√2 times a leverage of 1 to 2; 0.4 px is four of those.
TEST(KrMatchmove, RecoversHomographiesWithExactIdentityAtTheBase) {
    for (double sigma : {0.0, 0.05})
        for (int base : {0, 9, 19}) {
            KrMatchmove mm;
            solve(mm, makeTracks(12, 20, sigma), base);
            ASSERT_EQ(20, mm.getFrameCount());
            for (int k = 0; k < 9; ++k)
                EXPECT_EQ(k % 4 == 0, mm.getHomography(base)(k / 3, k % 3)) << sigma << base;
            for (int f = 0; f < 20; ++f)
                EXPECT_LT(cornerError(mm, base, f), sigma > 0 ? 0.4 : 0.05)
                    << sigma << " base " << base << " frame " << f;
        }
}

TEST(KrMatchmove, SolvesOutwardFromBaseFrame) {
    const auto tracks = makeTracks(12, 6, 0);
    const struct {
        int base;
        std::vector<int> order;
    } cases[] = {{0, {1, 2, 3, 4, 5}}, {5, {4, 3, 2, 1, 0}}, {2, {3, 4, 5, 1, 0}}};
    for (const auto& c : cases) {
        Recorder mm;
        solve(mm, tracks, c.base);
        EXPECT_EQ(c.order, mm.order) << "base " << c.base;
    }
}

// A frame without active tracks keeps the copy of the frame it was reached
// from, which shows the direction of each pass; the chain goes on past it.
TEST(KrMatchmove, FrameWithoutTracksCopiesNeighbour) {
    auto tracks = makeTracks(12, 20, 0);
    for (KrMatchmoveTrack& t : tracks) {
        t.weights(3) = 0;
        t.weights(15) = -1;
    }
    KrMatchmove mm;
    solve(mm, tracks, 10);
    EXPECT_TRUE(equal(mm.getHomography(3), mm.getHomography(4)));
    EXPECT_TRUE(equal(mm.getHomography(15), mm.getHomography(14)));
    EXPECT_FALSE(equal(mm.getHomography(3), mm.getHomography(2)));
    EXPECT_FALSE(equal(mm.getHomography(15), mm.getHomography(16)));
    EXPECT_LT(cornerError(mm, 10, 16), 0.05) << "the chain goes on";
}

TEST(KrMatchmove, ZeroWeightExcludesTrack) {
    auto tracks = makeTracks(12, 20, 0);
    // A thirteenth track that wanders off the plane from frame 12 on.
    KrMatchmoveTrack stray(tracks[0].positions.copy(), tracks[0].weights.copy());
    for (int f = 12; f < 20; ++f) {
        stray.positions(f, 0) += 40.0f * float(f - 11);
        stray.positions(f, 1) -= 25.0f * float(f - 11);
    }
    tracks.push_back(stray);
    KrMatchmove trusting;
    solve(trusting, tracks, 0);
    EXPECT_GT(cornerError(trusting, 0, 19), 5.0) << "the stray track should pull";

    for (int f = 12; f < 20; ++f)
        stray.weights(f) = 0;
    KrMatchmove excluding;
    solve(excluding, tracks, 0);
    for (int f = 0; f < 20; ++f)
        EXPECT_LT(cornerError(excluding, 0, f), 0.05) << "frame " << f;
}

TEST(KrMatchmove, RejectsBadInput) {
    KrMatchmove mm;
    const auto track = [](int frames, int cols, int weights) {
        return KrMatchmoveTrack(KrGenMatrix<float>(frames, cols), KrGenVector<float>(weights, 1));
    };
    const std::string add = "KrMatchmove::addTrack: ";
    expectThrows<IllegalArgumentException>([&] { mm.solve(); }, "KrMatchmove::solve: no tracks");
    expectThrows<IllegalArgumentException>(
        [&] { mm.setBaseFrame(-1); },
        "KrMatchmove::setBaseFrame: frame -1 outside the 0 frames of the tracks");
    mm.setBaseFrame(7); // accepted while there are no tracks
    KrMatchmoveTrack bad = track(5, 2, 5);
    const struct {
        std::function<void()> call;
        std::string text;
    } cases[] = {
        {[&] { mm.addTrack(KrMatchmoveTrack()); }, add + "track has no frames"},
        {[&] { mm.addTrack(track(5, 3, 5)); }, add + "positions are 5 by 3, not 5 by 2"},
        // The first good track fixes the frame count.
        {[&] { mm.addTrack(track(5, 2, 5)), mm.addTrack(track(6, 2, 6)); },
         add + "track has 6 frames, not 5 like the first"},
        {[&] { bad.weights(2) = INFINITY, mm.addTrack(bad); },
         add + "weight of frame 2 is infinite"},
        {[&] { bad.weights(2) = 1, bad.positions(3, 1) = NAN, mm.addTrack(bad); },
         add + "position of frame 3 is not finite"},
        {[&] { mm.solve(); },
         "KrMatchmove::solve: base frame 7 outside the 5 frames of the tracks"},
        {[&] { mm.setBaseFrame(5); },
         "KrMatchmove::setBaseFrame: frame 5 outside the 5 frames of the tracks"},
    };
    for (const auto& c : cases)
        expectThrows<IllegalArgumentException>(c.call, c.text);
    EXPECT_EQ(1, mm.getTrackCount());
    EXPECT_EQ(7, mm.getBaseFrame());
}
