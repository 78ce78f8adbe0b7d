#include "image/XformBicubic.h"
#include "image/XformBilinear.h"

#include "support/ExpectThrows.h"
#include "support/PixelProbe.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

using namespace Orvane;
using testsupport::sampleAt;
using Rect = GenRect<int>;

namespace {

template <class D> KrGenMatrix<D> affine(const float (&m)[6]) {
    KrGenMatrix<D> k(2, 3);
    for (int i = 0; i < 6; ++i)
        k(i / 3, i % 3) = D(m[i]);
    return k;
}

Image floatImage(const Rect& bounds, const char* channels = "l") {
    return Image(bounds, Format(channels, FLOAT, true));
}

// The cubic B-spline as it is usually written, piecewise in |t|.
double bspline(double t) {
    t = std::fabs(t);
    if (t < 1)
        return (4 - 6 * t * t + 3 * t * t * t) / 6;
    if (t < 2)
        return (2 - t) * (2 - t) * (2 - t) / 6;
    return 0;
}

// Either warp through one call, the B-spline one when `spline`.
template <class D> void warp(bool spline, const Image& src, const Image& dst, const float (&m)[6]) {
    if (spline)
        xform_bspline(src, dst, affine<D>(m));
    else
        xform_bicubic(src, dst, affine<D>(m));
}

// The cubic convolution kernel as it is usually written, piecewise in |t|.
double keys(double t) {
    t = std::fabs(t);
    if (t < 1)
        return (1.5 * t - 2.5) * t * t + 1;
    if (t < 2)
        return ((-0.5 * t + 2.5) * t - 4) * t + 2;
    return 0;
}

// Sample k at source index position (u, v) (centres on integers) from
// scratch: the position is clamped into the source, then the 4 x 4 taps
// around it, each clamped to the nearest pixel, are weighed in double by
// `kernel` (for the B-spline, taps of the coefficients).
template <class S>
double reference(const Image& src, double u, double v, int k, double (*kernel)(double) = keys) {
    const Rect& b = src.getBounds();
    u = std::isnan(u) ? 0.0 : std::min(std::max(u - b.x, 0.0), double(b.w - 1));
    v = std::isnan(v) ? 0.0 : std::min(std::max(v - b.y, 0.0), double(b.h - 1));
    const int i0 = int(std::floor(u)), j0 = int(std::floor(v));
    double sum = 0;
    for (int j = j0 - 1; j <= j0 + 2; ++j)
        for (int i = i0 - 1; i <= i0 + 2; ++i) {
            const int ci = std::clamp(i, 0, b.w - 1), cj = std::clamp(j, 0, b.h - 1);
            sum += kernel(u - i) * kernel(v - j) * double(sampleAt<S>(src, b.x + ci, b.y + cj, k));
        }
    return sum;
}

// Where the warp samples for destination pixel (x, y): the contract's
// single-precision position.
void position(const float (&m)[6], int x, int y, float& sx, float& sy) {
    const float cx = x + 0.5f, cy = y + 0.5f;
    sx = m[0] * cx + m[1] * cy + m[2] - 0.5f;
    sy = m[3] * cx + m[4] * cy + m[5] - 0.5f;
}

template <class S> void expectMatchesReference(bool spline, const char* channels, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> size(1, 40), corner(-20, 20);
    std::uniform_real_distribution<float> linear(-1.4f, 1.4f), shift(-25, 25);
    for (int trial = 0; trial < 6; ++trial) {
        const Rect sb(corner(rng), corner(rng), size(rng), size(rng));
        const Rect db(corner(rng), corner(rng), size(rng) + 1, size(rng));
        const Image src = testsupport::randomImage<S>(sb, channels, rng());
        const float m[6] = {linear(rng), linear(rng), shift(rng),
                            linear(rng), linear(rng), shift(rng)};
        Image dst = floatImage(db, channels);
        warp<float>(spline, src, dst, m);
        BSplineCoefficients fitted;
        const Image& taps = spline ? fitted.fit(src) : src;
        int wrong = 0;
        testsupport::forEachSample(dst, [&](int x, int y, int k) {
            float sx, sy;
            position(m, x, y, sx, sy);
            // Samples (and coefficients) within a few units, weights whose
            // magnitudes sum below 1.3 a side, some 20 float operations.
            const double expected =
                spline ? reference<float>(taps, sx, sy, k, bspline) : reference<S>(taps, sx, sy, k);
            wrong += std::fabs(sampleAt<float>(dst, x, y, k) - expected) > 32 * FLT_EPSILON;
        });
        EXPECT_EQ(0, wrong) << channels << " trial " << trial << " source " << sb.w << "x" << sb.h;
    }
}

template <class T> class XformBicubicTyped : public ::testing::Test {};
using FloatingTypes = testing::Types<float, double>;
TYPED_TEST_SUITE(XformBicubicTyped, FloatingTypes);

} // namespace

TYPED_TEST(XformBicubicTyped, MatchesAReferenceOnRandomImagesAndMaps) {
    for (bool spline : {false, true}) {
        expectMatchesReference<TypeParam>(spline, "l", 1);
        expectMatchesReference<TypeParam>(spline, "la", 2);
        expectMatchesReference<TypeParam>(spline, "rgb", 3);
        expectMatchesReference<TypeParam>(spline, "rgba", 4);
    }
}

TYPED_TEST(XformBicubicTyped, TheSplineThroughTheCoefficientsPassesThroughThePixels) {
    std::mt19937 rng(9);
    std::uniform_int_distribution<int> size(1, 30);
    const char* formats[] = {"l", "la", "rgb", "rgba"};
    for (int trial = 0; trial < 8; ++trial) {
        const Rect b(-3, 5, trial < 2 ? trial + 1 : size(rng), trial == 2 ? 2 : size(rng));
        const Image src = testsupport::randomImage<TypeParam>(b, formats[trial % 4], rng());
        BSplineCoefficients fitted;
        const Image& c = fitted.fit(src);
        ASSERT_EQ(FLOAT, c.getFormat().getDatatype());
        int wrong = 0;
        testsupport::forEachSample(src, [&](int x, int y, int k) {
            const double expected = double(sampleAt<TypeParam>(src, x, y, k));
            // The recursion's rounding grows by at most the pole's sum,
            // (1 + 0.27) / (1 - 0.27), along each axis.
            wrong += std::fabs(reference<float>(c, x, y, k, bspline) - expected) > 16 * FLT_EPSILON;
        });
        EXPECT_EQ(0, wrong) << b.w << "x" << b.h;
    }
}

TYPED_TEST(XformBicubicTyped, WholePixelShiftsCopyTheSamplesExactly) {
    const Rect sb(-7, 3, 23, 17);
    const Image src = testsupport::randomImage<TypeParam>(sb, "rgb", 5);
    // Shifted by (3, -2): every destination centre lands on a source centre,
    // the ones beyond the edge on the edge pixel.
    const float m[6] = {1, 0, 3, 0, 1, -2};
    Image dst = floatImage(Rect(-12, 0, 30, 24), "rgb");
    xform_bicubic(src, dst, affine<double>(m));
    int differing = 0;
    testsupport::forEachSample(dst, [&](int x, int y, int k) {
        const int u = std::clamp(x + 3, sb.x, sb.x + sb.w - 1);
        const int v = std::clamp(y - 2, sb.y, sb.y + sb.h - 1);
        differing += sampleAt<float>(dst, x, y, k) != float(sampleAt<TypeParam>(src, u, v, k));
    });
    EXPECT_EQ(0, differing);
}

TEST(XformBicubic, BothAreExactOnLinearAndQuadraticRampsAwayFromTheBorder) {
    // The spline's fit reaches the edge's repeats, but the pole 0.27 takes
    // their effect below float rounding within 14 pixels.
    const Rect sb(0, 0, 60, 56);
    auto quadratic = [](double u, double v) {
        return 3 + 0.7 * u - 0.4 * v + 0.013 * u * u - 0.021 * u * v + 0.017 * v * v;
    };
    auto linear = [](double u, double v) { return -2 + 0.9 * u + 0.35 * v; };
    for (int ramp = 0; ramp < 2; ++ramp) {
        auto value = [&](double u, double v) { return ramp ? quadratic(u, v) : linear(u, v); };
        Image src(sb, Format("l", DOUBLE, true));
        testsupport::forEachSample(
            src, [&](int x, int y, int) { sampleAt<double>(src, x, y, 0) = value(x, y); });
        // Turned, sheared and scaled so the positions fall between pixels,
        // all at least two pixels inside the source.
        const float m[6] = {0.83f, 0.21f, 15.3f, -0.17f, 0.91f, 18.6f};
        const Rect db(0, 0, 24, 22);
        for (bool spline : {false, true}) {
            Image dst = floatImage(db);
            warp<float>(spline, src, dst, m);
            double largest = 0;
            testsupport::forEachSample(dst, [&](int x, int y, int) {
                float sx, sy;
                position(m, x, y, sx, sy);
                ASSERT_TRUE(sx >= 14 && sx <= sb.w - 15 && sy >= 14 && sy <= sb.h - 15);
                largest =
                    std::max(largest, std::fabs(sampleAt<float>(dst, x, y, 0) - value(sx, sy)));
            });
            // Values reach about 50; weights and products are rounded in float.
            EXPECT_LT(largest, 64 * FLT_EPSILON * 50)
                << (ramp ? "quadratic " : "linear ") << (spline ? "spline" : "cubic");
        }
    }
}

TEST(XformBicubic, VectorRowsMatchTheSamplesOfSinglePixelWarpsBitForBit) {
    // A destination narrower than eight pixels takes the plain loop, so
    // warping pixel by pixel gives the plain loop's result to compare with.
    const Rect sb(-13, -9, 26, 19), db(-40, -30, 61, 40);
    const Image src = testsupport::randomImage<float>(sb, "l", 11);
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> linear(-1.3f, 1.3f), shift(-20, 20);
    for (int trial = 0; trial < 8; ++trial) {
        float m[6] = {linear(rng), linear(rng), shift(rng), linear(rng), linear(rng), shift(rng)};
        if (trial < 2) {
            // Shrunk into the source, so that most blocks have all their
            // taps inside it and take the loads rather than the gathers.
            const float inside[6] = {0.3f, 0.05f, 2.1f, -0.04f, 0.35f, 1.3f};
            std::copy(inside, inside + 6, m);
        }
        const bool spline = trial % 2 == 1;
        Image dst = floatImage(db);
        warp<float>(spline, src, dst, m);
        int differing = 0;
        testsupport::forEachSample(dst, [&](int x, int y, int) {
            Image pixel = floatImage(Rect(x, y, 1, 1));
            warp<float>(spline, src, pixel, m);
            const float expected = sampleAt<float>(pixel, x, y, 0);
            const float actual = sampleAt<float>(dst, x, y, 0);
            differing += std::memcmp(&expected, &actual, sizeof(float)) != 0; // NOLINT
        });
        EXPECT_EQ(0, differing) << "trial " << trial;
    }
}

TEST(XformBicubic, BothTakeTheEdgeOutsideAsTheBilinearWarpDoes) {
    const Rect sb(2, -3, 9, 7);
    const Image src = testsupport::randomImage<float>(sb, "l", 8);
    const float inf = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    // Source index positions outside the source on one axis or both, with
    // their clamped twins on the source: beyond the edge the edge repeats.
    const float outside[][4] = {{-0.25f, 0.5f, 2, 0.5f},   {-40, -1.75f, 2, -1.75f},
                                {10.5f, 1.25f, 10, 1.25f}, {9.75f, 3.5f, 9.75f, 3},
                                {1e12f, -1e12f, 10, -3},   {-inf, inf, 2, 3},
                                {nan, 2.0f, 2, 2},         {5.5f, 3.25f, 5.5f, 3}};
    enum Kind { Bilinear, Bicubic, Spline };
    auto at = [&](float u, float v, Kind kind) {
        // A one-pixel destination at the origin samples (m02, m12) - 0.5.
        const float m[6] = {0, 0, u + 0.5f, 0, 0, v + 0.5f};
        Image dst = floatImage(Rect(0, 0, 1, 1));
        if (kind == Bilinear)
            xform_bilinear(src, dst, affine<float>(m));
        else
            warp<float>(kind == Spline, src, dst, m);
        return sampleAt<float>(dst, 0, 0, 0);
    };
    for (const auto& p : outside) {
        const float bicubic = at(p[0], p[1], Bicubic);
        const float spline = at(p[0], p[1], Spline);
        EXPECT_EQ(at(p[2], p[3], Bicubic), bicubic) << p[0] << "," << p[1];
        EXPECT_EQ(at(p[2], p[3], Spline), spline) << p[0] << "," << p[1];
        EXPECT_FLOAT_EQ(float(reference<float>(src, p[2], p[3], 0)), bicubic);
        // On whole pixels every warp gives the pixel itself, the spline up
        // to its fit's rounding.
        if (std::floor(p[2]) == p[2] && std::floor(p[3]) == p[3]) {
            const float pixel = at(p[0], p[1], Bilinear);
            EXPECT_EQ(pixel, bicubic) << p[0] << "," << p[1];
            EXPECT_NEAR(pixel, spline, 16 * FLT_EPSILON) << p[0] << "," << p[1];
        }
    }
}

TEST(XformBicubic, RejectsWhatItCannotWarpAndFillsFromNothingWithZero) {
    const Rect b(0, 0, 4, 4);
    Image dst = floatImage(b);
    const float id[6] = {1, 0, 0, 0, 1, 0};
    std::vector<unsigned char> bytes(64);
    for (int t : {UB1, UB2, UB4})
        expectThrows<IllegalArgumentException>(
            [&] { xform_bicubic(Image(b, Format("l", t, true)), dst, affine<float>(id)); },
            "xform_bicubic only supports float and double");
    expectThrows<IllegalArgumentException>(
        [&] { xform_bspline(Image(b, Format("rgb", UB2, true)), dst, affine<float>(id)); },
        "xform_bspline only supports float and double");
    expectThrows<IllegalArgumentException>(
        [&] { xform_bspline(floatImage(b, "rgb"), dst, affine<float>(id)); },
        "nc == dstfmt.getNumChannels()");
    expectThrows<IllegalArgumentException>(
        [&] {
            xform_bicubic(Image(b, Format("l", 9, true), bytes.data(), 16), dst,
                          affine<double>(id));
        },
        "src datatype unknown");
    expectThrows<IllegalArgumentException>(
        [&] { xform_bicubic(dst, Image(b, Format("l", DOUBLE, false)), affine<float>(id)); },
        "wrong datatype float; image is Format(L, double, true)");
    expectThrows<IllegalArgumentException>(
        [&] { xform_bicubic(floatImage(b, "rgb"), dst, affine<double>(id)); },
        "nc == dstfmt.getNumChannels()");

    testsupport::forEachSample(dst, [&](int x, int y, int) { sampleAt<float>(dst, x, y, 0) = 7; });
    xform_bicubic(floatImage(Rect(0, 0, 0, 3)), dst, affine<float>(id));
    int nonzero = 0;
    testsupport::forEachSample(
        dst, [&](int x, int y, int) { nonzero += sampleAt<float>(dst, x, y, 0) != 0; });
    EXPECT_EQ(0, nonzero);
}
