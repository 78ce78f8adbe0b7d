#include "track/Correlator.h"

#include "support/ExpectThrows.h"
#include "track/CorrelatorKernels.h"
#include "track/TrackImages.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <random>

using namespace trackimages;

namespace {

// Checks every cell against a double-precision sum. Fused or not, a float
// sum of n products is within n * eps of the sum of their magnitudes.
void expectSurfaceMatches(const Image& out, const Image& pattern, const Image& search) {
    const GenRect<int> pb = pattern.getBounds();
    const GenRect<int> sb = search.getBounds();
    ASSERT_EQ(GenRect<int>(sb.x - pb.x, sb.y - pb.y, sb.w - pb.w + 1, sb.h - pb.h + 1),
              out.getBounds());
    const Plane p(pattern);
    const Plane s(search);
    const Plane o(out);
    const double n = double(pb.w) * pb.h;
    for (int y = 0; y < o.h; ++y)
        for (int x = 0; x < o.w; ++x) {
            double sum = 0.0;
            double magnitude = 0.0;
            for (int r = 0; r < p.h; ++r)
                for (int c = 0; c < p.w; ++c) {
                    sum += p(c, r) * s(x + c, y + r);
                    magnitude += std::abs(p(c, r) * s(x + c, y + r));
                }
            ASSERT_NEAR(sum, o(x, y), n * FLT_EPSILON * magnitude) << "cell " << x << "," << y;
        }
}

} // namespace

TEST(NaiveCorrelator, SurfaceIsTheSumOfProductsOnBothKernels) {
    std::mt19937 rng(7);
    // Views into larger images, so strides differ from the widths.
    const Image patternParent = randomImage(GenRect<int>(-8, 3, 30, 20), rng, -1.0f, 1.0f);
    const Image searchParent = randomImage(GenRect<int>(100, -40, 90, 60), rng);
    const Image pattern = patternParent.clip(GenRect<int>(-5, 5, 13, 11));
    const Image search = searchParent.clip(GenRect<int>(110, -35, 43, 29));
    for (bool simd : {false, true}) {
        NaiveCorrelator correlator(simd);
        correlator.setPattern(pattern);
        correlator.setSearch(search);
        Image out;
        float scale = 0.0f;
        correlator.correlate(out, scale);
        EXPECT_EQ(1.0f, scale);
        EXPECT_EQ(luminance(), out.getFormat());
        expectSurfaceMatches(out, pattern, search);
    }
}

TEST(NaiveCorrelator, EqualSizesGiveOneCellHoldingThePlainSum) {
    std::mt19937 rng(8);
    const Image pattern = randomImage(GenRect<int>(4, 9, 17, 6), rng);
    const Image search = randomImage(GenRect<int>(-2, 1, 17, 6), rng);
    NaiveCorrelator correlator;
    correlator.setPattern(pattern);
    correlator.setSearch(search);
    Image out;
    float scale;
    correlator.correlate(out, scale);
    EXPECT_EQ(GenRect<int>(-6, -8, 1, 1), out.getBounds());
    expectSurfaceMatches(out, pattern, search);
}

TEST(NaiveCorrelator, VectorAndScalarKernelsAgreeOverRandomSizes) {
    if (!CorrelatorKernels::avx2Supported())
        GTEST_SKIP() << "no AVX2 on this processor";
    std::mt19937 rng(20240611);
    std::uniform_int_distribution<int> patternSize(1, 25);
    std::uniform_int_distribution<int> extra(0, 45);
    for (int trial = 0; trial < 60; ++trial) {
        const int pw = patternSize(rng);
        const int ph = patternSize(rng);
        const Image pattern = randomImage(GenRect<int>(0, 0, pw, ph), rng);
        const Image search = randomImage(GenRect<int>(0, 0, pw + extra(rng), ph + extra(rng)), rng);
        Image surfaces[2];
        for (int simd = 0; simd < 2; ++simd) {
            NaiveCorrelator correlator(simd == 1);
            correlator.setPattern(pattern);
            correlator.setSearch(search);
            float scale;
            correlator.correlate(surfaces[simd], scale);
        }
        const Plane scalar(surfaces[0]);
        const Plane vector(surfaces[1]);
        const Plane p(pattern);
        const Plane s(search);
        for (int y = 0; y < scalar.h; ++y)
            for (int x = 0; x < scalar.w; ++x) {
                ASSERT_NEAR(scalar(x, y), vector(x, y), 1e-5 * scalar(x, y))
                    << "size " << pw << "x" << ph << " in " << s.w << "x" << s.h << ", cell " << x
                    << "," << y;
                // The scalar kernel is a plain float accumulation, bit for bit.
                float plain = 0.0f;
                for (int r = 0; r < ph; ++r)
                    for (int c = 0; c < pw; ++c)
                        plain += float(p(c, r)) * float(s(x + c, y + r));
                ASSERT_EQ(plain, float(scalar(x, y)));
            }
    }
}

TEST(NaiveCorrelator, ReadsOtherDatatypesAsFloatAndWritesThePatternFormat) {
    const GenRect<int> pb(0, 0, 3, 2);
    const GenRect<int> sb(0, 0, 5, 4);
    auto pf = [](int x, int y) { return 1 + x + 3 * y; };
    auto sf = [](int x, int y) { return (7 * x + 3 * y) % 11; };
    const Image ub1Search = makeImage<unsigned char>(sb, Orvane::UB1, sf);
    const Image floatSearch = makeFloat(sb, sf);
    const Image floatPattern = makeFloat(pb, pf);
    const Image doublePattern = makeImage<double>(pb, Orvane::DOUBLE, pf);

    NaiveCorrelator correlator;
    Image reference;
    Image mixed;
    Image wide;
    float scale;
    correlator.setPattern(floatPattern);
    correlator.setSearch(floatSearch);
    correlator.correlate(reference, scale);
    correlator.setSearch(ub1Search);
    correlator.correlate(mixed, scale);
    correlator.setPattern(doublePattern);
    correlator.correlate(wide, scale);
    ASSERT_EQ(Orvane::DOUBLE, wide.getFormat().getDatatype());
    // Small integers: every sum is exact, so the three agree exactly.
    const Plane r(reference);
    const Plane m(mixed);
    for (int y = 0; y < r.h; ++y)
        for (int x = 0; x < r.w; ++x) {
            EXPECT_EQ(r(x, y), m(x, y));
            double* d;
            wide.getBuffer(d, GenPoint<int>(x, y));
            EXPECT_EQ(r(x, y), *d);
        }

    // An integer pattern gives an integer surface; sums beyond it saturate.
    correlator.setPattern(makeImage<unsigned char>(pb, Orvane::UB1, pf));
    Image narrow;
    correlator.correlate(narrow, scale);
    for (int y = 0; y < r.h; ++y)
        for (int x = 0; x < r.w; ++x) {
            unsigned char* b;
            narrow.getBuffer(b, GenPoint<int>(x, y));
            EXPECT_EQ(std::min(255.0, r(x, y)), double(*b));
        }
}

TEST(NaiveCorrelator, RefusesBadShapesBeforeMakingOutput) {
    const Image rgb(GenRect<int>(0, 0, 9, 9), Format("rgb", Orvane::FLOAT, false));
    auto attempt = [&](const Image& pattern, const Image& search, const char* text) {
        NaiveCorrelator correlator;
        correlator.setPattern(pattern);
        correlator.setSearch(search);
        Image out = rgb;
        float scale = 3.0f;
        expectThrows<IllegalArgumentException>([&] { correlator.correlate(out, scale); }, text);
        EXPECT_TRUE(out == rgb);
        EXPECT_EQ(3.0f, scale);
    };
    const char* tooSmall = "NaiveCorrelator: search bounds must be larger than pattern bounds";
    const char* channels = "NaiveCorrelator: only 1 channel supported";
    const Image pattern(GenRect<int>(0, 0, 5, 5), luminance());
    attempt(pattern, Image(GenRect<int>(0, 0, 4, 9), luminance()), tooSmall);
    attempt(pattern, Image(GenRect<int>(0, 0, 9, 4), luminance()), tooSmall);
    // The size test comes first.
    attempt(rgb, Image(GenRect<int>(0, 0, 4, 4), rgb.getFormat()), tooSmall);
    attempt(Image(GenRect<int>(0, 0, 5, 5), rgb.getFormat()), rgb, channels);
    attempt(pattern, rgb, channels);

    NaiveCorrelator unset;
    Image out;
    float scale;
    expectThrows<NullPointerException>([&] { unset.correlate(out, scale); }, "Image::getBounds");
    EXPECT_FALSE(unset.getDebugImage().exists());
}
