#include "track/TrMotionCheck.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <random>
#include <vector>

using Orvane::GenPoint;

namespace {

// The root mean square length of the last `keep` misses, summed plainly.
double referenceSpread(const std::vector<GenPoint<double>>& misses, size_t keep) {
    const size_t from = misses.size() > keep ? misses.size() - keep : 0;
    double sum = 0;
    for (size_t k = from; k < misses.size(); ++k)
        sum += misses[k].x * misses[k].x + misses[k].y * misses[k].y;
    return std::sqrt(sum / double(misses.size() - from));
}

TEST(TrMotionCheck, SpreadIsTheRmsOfTheLastEightMisses) {
    std::mt19937 rng(5);
    std::normal_distribution<double> miss(0, 0.7);
    TrMotionCheck check;
    EXPECT_EQ(0, check.spread());
    std::vector<GenPoint<double>> seen;
    for (int n = 1; n <= 20; ++n) {
        seen.emplace_back(miss(rng), miss(rng));
        check.learn(seen.back());
        const double expected = referenceSpread(seen, 8);
        EXPECT_NEAR(expected, check.spread(), 8 * DBL_EPSILON * expected) << n;
    }
    check.reset();
    EXPECT_EQ(0, check.spread());
}

TEST(TrMotionCheck, AgreesWithinTheLargerOfSpreadsAndFloorTimesWiden) {
    TrMotionCheck check;
    // Too few misses to judge by: anything agrees.
    check.learn(GenPoint<double>(0.3, 0.4));
    check.learn(GenPoint<double>(0.3, 0.4));
    EXPECT_TRUE(check.agrees(GenPoint<double>(100, 0), 4, 1.5, 1));
    check.learn(GenPoint<double>(0.3, 0.4));
    // Spread 0.5: four spreads is 2 pixels, above a floor of 1.5.
    EXPECT_TRUE(check.agrees(GenPoint<double>(1.2, 1.6), 4, 1.5, 1));
    EXPECT_FALSE(check.agrees(GenPoint<double>(1.2, 1.61), 4, 1.5, 1));
    // A floor above it rules; widening scales whichever rules.
    EXPECT_TRUE(check.agrees(GenPoint<double>(0, 2.9), 4, 3, 1));
    EXPECT_FALSE(check.agrees(GenPoint<double>(0, 3.1), 4, 3, 1));
    EXPECT_TRUE(check.agrees(GenPoint<double>(0, 4.4), 4, 1.5, 2.25));
    EXPECT_FALSE(check.agrees(GenPoint<double>(0, 4.6), 4, 1.5, 2.25));
    EXPECT_FALSE(check.agrees(GenPoint<double>(NAN, 0), 4, 1.5, 1));
}

} // namespace
