#include "krovel/KrVectorKernels.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace {

// Mean and standard deviation by two passes in long double.
void twoPass(const std::vector<float>& v, long double& mean, long double& sigma) {
    long double sum = 0, squares = 0;
    for (float x : v)
        sum += x;
    mean = sum / v.size();
    for (float x : v)
        squares += (x - mean) * (x - mean);
    sigma = std::sqrt(squares / v.size());
}

} // namespace

TEST(KrVectorKernels, OnePassMomentsAgreeWithTwoPassOnesToRounding) {
    // Lengths with every remainder of four, spreads from 1e-3 to 1e3 of the
    // mean and means far from zero, where offsets from the first value keep
    // the spread from cancelling.
    std::mt19937 rng(31);
    std::uniform_int_distribution<int> length(1, 600);
    std::normal_distribution<double> noise;
    for (int trial = 0; trial < 40; ++trial) {
        const int n = trial < 4 ? trial + 1 : length(rng);
        const double mean = std::pow(10.0, trial % 7 - 2),
                     spread = mean * std::pow(10.0, trial % 7 - 3);
        std::vector<float> v(static_cast<size_t>(n));
        for (float& x : v)
            x = float(mean + spread * noise(rng));
        long double m, s;
        twoPass(v, m, s);
        double fm = 0, fs = 0;
        const bool resolved = Krovel::_moments(v.data(), n, fm, fs);
        if (n == 1 || s == 0) {
            EXPECT_FALSE(resolved) << "trial " << trial;
            continue;
        }
        ASSERT_TRUE(resolved) << "trial " << trial;
        // A double's rounding of the mean square, magnified by the
        // cancellation against the mean offset, stays far below float's.
        EXPECT_NEAR(double(m), fm, 1e-12 * std::fabs(double(m)) + 1e-9 * double(s))
            << "trial " << trial;
        EXPECT_NEAR(double(s), fs, 1e-9 * double(s)) << "trial " << trial;
    }
}

TEST(KrVectorKernels, MomentsLeaveFlatAndNonFiniteRunsToTheTwoPassRoute) {
    double mean = 7, sigma = 7;
    const std::vector<float> flat(37, 2.5f);
    EXPECT_FALSE(Krovel::_moments(flat.data(), 37, mean, sigma));
    EXPECT_FALSE(Krovel::_moments(flat.data(), 0, mean, sigma));
    // A spread of one float step on 1e4 is kept: it is a spread.
    std::vector<float> step(flat.size(), 1e4f);
    step[20] = std::nextafter(1e4f, 2e4f);
    EXPECT_TRUE(Krovel::_moments(step.data(), int(step.size()), mean, sigma));
    EXPECT_GT(sigma, 0);
    mean = sigma = 7;
    for (float bad :
         {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()}) {
        std::vector<float> v(flat);
        v[5] = float(v[5] + 1);
        v[30] = bad;
        EXPECT_FALSE(Krovel::_moments(v.data(), int(v.size()), mean, sigma)) << bad;
    }
    EXPECT_EQ(7, mean);
    EXPECT_EQ(7, sigma);
}

TEST(KrVectorKernels, NormalisedDifferencesAreTheNormalisedValuesDifferenced) {
    // Written both ways, each element must come out the same to the bit:
    // normalise, then difference against a base, in either stride.
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> value(0, 4);
    const int n = 53;
    std::vector<float> p(n), base(n);
    for (int i = 0; i < n; ++i) {
        p[i] = value(rng);
        base[i] = value(rng) - 2;
    }
    double mean, sigma;
    ASSERT_TRUE(Krovel::_moments(p.data(), n, mean, sigma));
    std::vector<float> normalised(p);
    Krovel::_normalise(normalised.data(), n, mean, sigma);
    std::vector<float> packed(n), strided(3 * n);
    Krovel::_normalisedDifference(p.data(), n, mean, sigma, base.data(), 0.001f, packed.data(), 1);
    Krovel::_normalisedDifference(p.data(), n, mean, sigma, base.data(), 0.001f, strided.data(), 3);
    for (int i = 0; i < n; ++i) {
        const float expected = (normalised[i] - base[i]) / 0.001f;
        EXPECT_EQ(float((p[i] - mean) / sigma), normalised[i]) << i;
        EXPECT_EQ(expected, packed[i]) << i;
        EXPECT_EQ(expected, strided[3 * i]) << i;
    }
}
