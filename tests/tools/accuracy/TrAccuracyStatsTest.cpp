#include "tools/accuracy/TrAccuracyStats.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>

using Orvane::GenPoint;

namespace {

// A clip of `frames` frames whose tracks all stand still at (10, 10).
TrAccuracyClip stillClip(int tracks, int frames) {
    TrAccuracyClip clip;
    clip.truth.assign(std::size_t(tracks),
                      std::vector<GenPoint<double>>(std::size_t(frames), GenPoint<double>(10, 10)));
    return clip;
}

// A pass over `clip` that reports the truth moved by `offset[k][f]` along x.
TrPassResult passWithErrors(const TrAccuracyClip& clip,
                            const std::vector<std::vector<double>>& offset) {
    TrPassResult pass;
    for (std::size_t k = 0; k < clip.truth.size(); ++k) {
        std::vector<GenPoint<double>> path;
        std::vector<bool> alive;
        for (std::size_t f = 0; f < clip.truth[k].size(); ++f) {
            const bool has = !std::isnan(offset[k][f]);
            path.emplace_back(clip.truth[k][f].x + (has ? offset[k][f] : 0), clip.truth[k][f].y);
            alive.push_back(has);
        }
        pass.path.push_back(path);
        pass.alive.push_back(alive);
        pass.last.push_back(alive.back() ? TrStepStatus::Tracked : TrStepStatus::Lost);
    }
    pass.cpuSeconds = 0.003;
    pass.steps = 6;
    return pass;
}

const double lost = std::nan("");

} // namespace

TEST(TrAccuracyStats, CountsMissingSamplesAgainstTheSharesOnly) {
    // Frame 0 is where tracks are placed and is not measured.
    const TrAccuracyClip clip = stillClip(2, 4);
    TrAccuracyStats stats;
    stats.addClip(clip, passWithErrors(clip, {{0, 0.05, 0.5, 2}, {0, 0.2, lost, lost}}));
    EXPECT_EQ(stats.getExpected(), 6);
    EXPECT_EQ(stats.getMeasured(), 4);
    // Sorted 0.05 0.2 0.5 2: the median halfway between the middle two.
    EXPECT_NEAR(stats.median(), 0.35, 4 * DBL_EPSILON);
    EXPECT_DOUBLE_EQ(stats.quantile(1), 2);
    EXPECT_DOUBLE_EQ(stats.rms(), std::sqrt((0.0025 + 0.04 + 0.25 + 4) / 4));
    EXPECT_DOUBLE_EQ(stats.within(0.1), 1.0 / 6);
    EXPECT_DOUBLE_EQ(stats.within(1), 3.0 / 6);
    EXPECT_DOUBLE_EQ(stats.kept(), 0.5);
    EXPECT_DOUBLE_EQ(stats.held(), 0);
    EXPECT_DOUBLE_EQ(stats.microsPerStep(), 500);
}

TEST(TrAccuracyStats, FollowingMeansFarOffWhileReportedTracked) {
    const TrAccuracyClip clip = stillClip(3, 3);
    TrPassResult pass = passWithErrors(clip, {{0, 1, 3.5}, {0, 1, 3.5}, {0, 4, 0.9}});
    pass.last[1] = TrStepStatus::Coasted;
    TrAccuracyStats stats;
    stats.addClip(clip, pass);
    EXPECT_EQ(stats.getFollowing(), 1);
    EXPECT_DOUBLE_EQ(stats.held(), 1.0 / 3);
    EXPECT_EQ(stats.getOccluded(), 0);
}

TEST(TrAccuracyStats, RecoveredAreCoveredTracksEndingWithinAPixel) {
    TrAccuracyClip clip = stillClip(3, 4);
    clip.covered = {
        {false, true, false, false}, {false, false, true, false}, {false, false, false, false}};
    TrAccuracyStats stats;
    stats.addClip(clip, passWithErrors(clip, {{0, 9, 9, 0.3}, {0, 0, lost, lost}, {0, 0, 0, 0}}));
    EXPECT_EQ(stats.getOccluded(), 2);
    EXPECT_EQ(stats.getRecovered(), 1);
}

TEST(TrAccuracyStats, RoundTripsMeasureTheDistanceBack) {
    TrAccuracyStats stats;
    stats.addRoundTrip(GenPoint<double>(0, 0), GenPoint<double>(3, 4), true, true);
    stats.addRoundTrip(GenPoint<double>(1, 1), GenPoint<double>(1.3, 1.4), true, true);
    stats.addRoundTrip(GenPoint<double>(1, 1), GenPoint<double>(1, 1), false, false);
    EXPECT_EQ(stats.getTracks(), 3);
    EXPECT_EQ(stats.getMeasured(), 2);
    EXPECT_DOUBLE_EQ(stats.quantile(1), 5);
    EXPECT_DOUBLE_EQ(stats.within(1), 1.0 / 3);
    EXPECT_EQ(stats.getFollowing(), 1);
    EXPECT_TRUE(std::isnan(TrAccuracyStats().median()));
}
