#include "track/TrTexture.h"

#include "image/Format.h"
#include "image/ImageRows.h"
#include "support/ExpectThrows.h"
#include "track/TrFollow.h"
#include "track/TrShotImpl.h"
#include "track/TrackImages.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <functional>
#include <limits>
#include <random>

using Orvane::Format;
using Orvane::GenRect;
using Orvane::Image;
using Orvane::ImageRows;

namespace {

// A one-channel w x h image of type T whose samples are `level(x, y)` on
// the 0..255 scale, stored as T holds 0..1.
template <class T> Image levels(int w, int h, const std::function<double(int, int)>& level) {
    const int datatype = std::is_same_v<T, unsigned char>    ? Orvane::UB1
                         : std::is_same_v<T, unsigned short> ? Orvane::UB2
                                                             : Orvane::FLOAT;
    Image img(GenRect<int>(0, 0, w, h), Format("l", datatype, false));
    const ImageRows<T> rows(img);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const double v = level(x, y);
            if constexpr (std::is_same_v<T, unsigned char>)
                rows.row(y)[x] = static_cast<unsigned char>(v);
            else if constexpr (std::is_same_v<T, unsigned short>)
                rows.row(y)[x] = static_cast<unsigned short>(v * 257);
            else
                rows.row(y)[x] = static_cast<T>(v / 255);
        }
    return img;
}

// A wave of period 4, 0 +s 0 -s: its central differences are s, 0, -s, 0,
// so the mean squared gradient over whole periods is s² / 2.
double wave(int i, double s) {
    const int k = i % 4;
    return k == 1 ? s : k == 3 ? -s : 0;
}

template <class T> class TrTextureTyped : public ::testing::Test {};
using SampleTypes = ::testing::Types<unsigned char, unsigned short, float>;
TYPED_TEST_SUITE(TrTextureTyped, SampleTypes);

} // namespace

// Waves of 40 and 24 grey levels across and down: the tensor is diagonal,
// its smaller eigenvalue (24/255)² / 2, the same for every sample type and
// for every size whose inner pixels span whole periods.
TYPED_TEST(TrTextureTyped, WavesGiveHalfTheWeakerSquaredStepOnEveryTypeAndSize) {
    const double expected = 0.5 * (24.0 / 255) * (24.0 / 255);
    for (int size : {6, 10, 22, 42}) {
        const Image img = levels<TypeParam>(
            size, size + 4, [](int x, int y) { return 128 + wave(x, 40) + wave(y, 24); });
        EXPECT_NEAR(expected, TrTexture::measure(img), 8 * FLT_EPSILON * expected) << size;
    }
}

// Random patches of random sizes against the eigenvalue written out from
// the quadratic formula.
TEST(TrTexture, MatchesAReferenceEigenvalueOnRandomPatches) {
    std::mt19937 rng(11);
    std::uniform_int_distribution<int> size(3, 40);
    std::uniform_real_distribution<double> level(0, 255);
    for (int round = 0; round < 20; ++round) {
        const int w = size(rng), h = size(rng);
        std::vector<double> v(size_t(w) * size_t(h));
        for (double& s : v)
            s = level(rng);
        const Image img =
            levels<float>(w, h, [&](int x, int y) { return v[size_t(y) * size_t(w) + size_t(x)]; });
        const ImageRows<const float> rows(img);
        double a = 0, b = 0, c = 0;
        for (int y = 1; y + 1 < h; ++y)
            for (int x = 1; x + 1 < w; ++x) {
                const double gx = (double(rows.row(y)[x + 1]) - rows.row(y)[x - 1]) / 2;
                const double gy = (double(rows.row(y + 1)[x]) - rows.row(y - 1)[x]) / 2;
                a += gx * gx;
                b += gx * gy;
                c += gy * gy;
            }
        const double n = double(w - 2) * (h - 2);
        a /= n, b /= n, c /= n;
        const double expected = (a + c) / 2 - std::sqrt((a - c) * (a - c) / 4 + b * b);
        EXPECT_NEAR(expected, TrTexture::measure(img), 1e-12 * (a + c)) << w << "x" << h;
    }
}

// Flat and one-way patterns hold nothing to lock onto; a NaN is not enough.
TEST(TrTexture, FlatRampsEdgesAndTinyPatternsHaveNone) {
    EXPECT_EQ(0, TrTexture::measure(levels<unsigned char>(21, 21, [](int, int) { return 90; })));
    const double ramp =
        TrTexture::measure(levels<float>(21, 21, [](int x, int y) { return 3.0 * x + 1.5 * y; }));
    EXPECT_NEAR(0, ramp, 1e-12);
    const double edge = TrTexture::measure(
        levels<unsigned char>(21, 21, [](int x, int) { return x < 10 ? 20 : 230; }));
    EXPECT_EQ(0, edge);
    EXPECT_EQ(0, TrTexture::measure(levels<float>(2, 9, [](int x, int) { return 100.0 * x; })));
    Image bad = levels<float>(5, 5, [](int x, int y) { return 40.0 * x * y; });
    ImageRows<float>(bad).row(2)[2] = std::numeric_limits<float>::quiet_NaN();
    EXPECT_TRUE(std::isnan(TrTexture::measure(bad)));
    EXPECT_FALSE(TrTexture::isEnough(bad));
    expectThrows<NullPointerException>([] { TrTexture::measure(Image()); }, "Image::getFormat");
}

// The threshold between grain on flat sky and detail: 8-bit grain of up to
// two grey levels stays under it by half, faint texture (sinusoids of 9.5 to
// 20 pixels, 6 grey levels each) and strong noise are above it by twice,
// the tool tests' plates (14 levels each) by ten times.
TEST(TrTexture, ThresholdSeparatesGrainFromDetail) {
    std::mt19937 rng(5);
    for (double sigma : {0.5, 1.0, 2.0}) {
        std::normal_distribution<double> grain(0, sigma);
        const Image sky = levels<unsigned char>(
            21, 21, [&](int, int y) { return std::lround(150 + 0.2 * y + grain(rng)); });
        EXPECT_LT(TrTexture::measure(sky), TrTexture::kMinimum / 2) << sigma;
    }
    for (const double amplitude : {6.0, 14.0}) {
        const Image detail = levels<float>(21, 21, [&](int x, int y) {
            double v = 128;
            for (int i = 1; i <= 8; ++i) {
                const double a = 2.4 * i, k = 2 * M_PI / (8 + 1.5 * i);
                v += amplitude * std::sin(k * (std::cos(a) * x + std::sin(a) * y) + i * i);
            }
            return v;
        });
        EXPECT_GT(TrTexture::measure(detail), (amplitude > 10 ? 10 : 2) * TrTexture::kMinimum)
            << amplitude;
    }
    std::normal_distribution<double> noise(0, 20);
    const Image noisy =
        levels<unsigned char>(21, 21, [&](int, int) { return std::lround(128 + noise(rng)); });
    EXPECT_GT(TrTexture::measure(noisy), 10 * TrTexture::kMinimum);
}

// White noise of known deviation on a plane: the estimate finds its variance
// (within the spread of a mean over 99² samples) and the plane adds nothing.
TEST(TrTexture, NoiseEstimateFindsTheVarianceOfWhiteNoise) {
    std::mt19937 rng(17);
    for (const double sigma : {2.0, 8.0}) {
        std::normal_distribution<double> grain(0, sigma);
        const Image img = levels<float>(
            101, 101, [&](int x, int y) { return 100 + 0.7 * x - 0.4 * y + grain(rng); });
        const double expected = (sigma / 255) * (sigma / 255);
        EXPECT_NEAR(expected, TrTexture::noise(img), 0.05 * expected) << sigma;
    }
    EXPECT_NEAR(
        0, TrTexture::noise(levels<float>(21, 21, [](int x, int y) { return 3.0 * x + 1.5 * y; })),
        1e-12);
    EXPECT_EQ(0, TrTexture::noise(levels<float>(2, 9, [](int x, int) { return 100.0 * x; })));
}

// Smooth texture fainter than the minimum, as blurred noise of a few grey
// levels like the timing plate's, is enough by its ratio to the noise;
// grain on flat sky of any level under the minimum is not, nor a noiseless
// pattern under the floor.
TEST(TrTexture, SmoothFaintTexturePassesWhereGrainFails) {
    std::mt19937 rng(23);
    std::uniform_real_distribution<double> uniform(0.35 * 255, 0.65 * 255);
    const int n = 21, r = 3;
    std::vector<double> raw(size_t(n + 2 * r) * size_t(n + 2 * r));
    for (double& v : raw)
        v = uniform(rng);
    // A 7x7 binomial blur, as the plate's 7x7 blur, then 8-bit levels.
    const double w[7] = {1, 6, 15, 20, 15, 6, 1};
    const Image smooth = levels<unsigned char>(n, n, [&](int x, int y) {
        double s = 0;
        for (int j = 0; j < 7; ++j)
            for (int i = 0; i < 7; ++i)
                s += w[i] * w[j] * raw[size_t(y + j) * size_t(n + 2 * r) + size_t(x + i)];
        return std::lround(s / 4096);
    });
    EXPECT_LT(TrTexture::measure(smooth), TrTexture::kMinimum);
    EXPECT_GT(TrTexture::measure(smooth), TrTexture::kFloor);
    EXPECT_TRUE(TrTexture::isEnough(smooth));
    for (const double sigma : {0.5, 1.0, 2.0, 3.0}) {
        std::normal_distribution<double> grain(0, sigma);
        const Image sky = levels<unsigned char>(
            n, n, [&](int, int y) { return std::lround(150 + 0.2 * y + grain(rng)); });
        EXPECT_LT(TrTexture::measure(sky), TrTexture::kMinimum) << sigma;
        EXPECT_FALSE(TrTexture::isEnough(sky)) << sigma;
    }
    const Image faint = levels<float>(
        n, n, [](int x, int y) { return 128 + 0.25 * std::sin(x) + 0.25 * std::cos(y); });
    EXPECT_LT(TrTexture::measure(faint), TrTexture::kFloor);
    EXPECT_FALSE(TrTexture::isEnough(faint));
}
