#include "track/Matcher.h"

#include "track/Correlator.h"
#include "track/CorrelatorKernels.h"
#include "track/DoubleImageSum.h"
#include "track/ImageSum.h"
#include "track/TrackImages.h"

#include <string>
#include <tuple>

using namespace trackimages;

namespace {

class FixedCorrelator : public Correlator {
public:
    FixedCorrelator(const Image& surface, float scale) : surface(surface), scale(scale) {}
    void setPattern(const Image&) override {}
    void setSearch(const Image&) override {}
    void correlate(Image& out, float& k) override {
        out = surface;
        k = scale;
    }
    Image surface;
    float scale;
};

// Mean 0 and variance 1 for every window: with a 1 x 1 pattern the
// normalised cell is the raw cell divided by the scale.
class UnitSum : public ImageSumIntf {
public:
    void info(const GenRect<int>& r, ImageSumInfo& out) const override {
        out.count = out.sumSq = float(r.w * r.h);
        out.sum = out.mean = 0.0f;
        out.variance = 1.0f;
    }
    ImageSumIntf* clone() const override { return new UnitSum(); }

protected:
    void onSetImage() override {}
};

struct Result {
    GenPoint<float> offset{-99.0f, -99.0f};
    double score = -99.0;
};

// Matches a 1 x 1 pattern at (10, 20) in a w x h search region at (-3, 5),
// the correlator handing over `surface`.
void matchSurface(const Image& surface, int w, int h, Result& r, float scale = 1) {
    Matcher matcher;
    matcher.setCorrelator(new FixedCorrelator(surface, scale));
    matcher.setImageSumIntf(new UnitSum());
    matcher.setPattern(Image(GenRect<int>(10, 20, 1, 1), luminance()));
    matcher.setSearch(Image(GenRect<int>(-3, 5, w, h), luminance()));
    matcher.match(r.offset, r.score);
}

Result matchCells(int w, int h, std::vector<float> v, float scale = 1) {
    Result r;
    matchSurface(makeImage({0, 0, w, h}, [&](int x, int y) { return v[y * w + x]; }), w, h, r,
                 scale);
    return r;
}

} // namespace

// Widths of every remainder modulo 8, on padded views with offset origins:
// the scalar kernel is a plain float accumulation, bit for bit, the vector
// kernel agrees with it within 1e-5, and matchers using either find the same
// peak cell and the same step from it.
TEST(NaiveCorrelator, VectorAndScalarKernelsAgreeOverRandomSizes) {
    if (!CorrelatorKernels::avx2Supported())
        GTEST_SKIP() << "no AVX2 on this processor";
    std::mt19937 rng(20240611);
    std::uniform_int_distribution<int> size(3, 25), extra(0, 45);
    for (int trial = 0; trial < 60; ++trial) {
        const int pw = size(rng), ph = size(rng);
        const Image pattern = randomImage(GenRect<int>(-3, 5, pw, ph), rng);
        const Image search =
            randomImage(GenRect<int>(7, -2, pw + extra(rng), ph + extra(rng)), rng);
        const Plane p(pattern), s(search);
        const int w = s.w - pw + 1;
        std::vector<double> raw[2];
        Result found[2];
        for (int simd = 0; simd < 2; ++simd) {
            NaiveCorrelator correlator(simd == 1);
            correlator.setPattern(pattern);
            correlator.setSearch(search);
            Image out;
            float scale;
            correlator.correlate(out, scale);
            ASSERT_EQ(GenRect<int>(10, -7, w, s.h - ph + 1), out.getBounds());
            raw[simd] = Plane(out).v;
            Matcher matcher;
            matcher.setCorrelator(new NaiveCorrelator(simd == 1));
            matcher.setPattern(pattern);
            matcher.setSearch(search);
            matcher.match(found[simd].offset, found[simd].score);
        }
        SCOPED_TRACE(testing::Message() << pw << "x" << ph << " in " << s.w << "x" << s.h);
        EXPECT_NEAR(found[0].offset.x, found[1].offset.x, 1e-3);
        EXPECT_NEAR(found[0].offset.y, found[1].offset.y, 1e-3);
        for (std::size_t i = 0; i < raw[0].size(); ++i) {
            const int x = int(i) % w, y = int(i) / w;
            float plain = 0.0f;
            for (int r = 0; r < ph; ++r)
                for (int c = 0; c < pw; ++c)
                    plain += float(p(c, r)) * float(s(x + c, y + r));
            ASSERT_EQ(plain, float(raw[0][i])) << "cell " << x << "," << y;
            ASSERT_NEAR(raw[0][i], raw[1][i], 1e-5 * raw[0][i]);
        }
    }
}

TEST(NaiveCorrelator, RefusesBadShapesBeforeMakingOutput) {
    const Format rgb("rgb", Orvane::FLOAT, false);
    const char* tooSmall = "NaiveCorrelator: search bounds must be larger than pattern bounds";
    const char* channels = "NaiveCorrelator: only 1 channel supported";
    const std::tuple<Image, Image, const char*> cases[] = {
        {Image({0, 0, 5, 5}, luminance()), Image({0, 0, 4, 9}, luminance()), tooSmall},
        {Image({0, 0, 9, 9}, rgb), Image({0, 0, 4, 4}, rgb), tooSmall}, // size comes first
        {Image({0, 0, 5, 5}, luminance()), Image({0, 0, 9, 9}, rgb), channels},
    };
    for (const auto& [pattern, search, text] : cases) {
        NaiveCorrelator correlator;
        correlator.setPattern(pattern);
        correlator.setSearch(search);
        Image out = search;
        float scale = 3.0f;
        expectThrows<IllegalArgumentException>([&] { correlator.correlate(out, scale); }, text);
        EXPECT_TRUE(out == search);
        EXPECT_EQ(3.0f, scale);
    }
}

namespace {

// Count, sum and variance over the part of `r` inside the image at `b`, in
// double.
std::vector<double> bruteForce(const Plane& p, const GenRect<int>& b, const GenRect<int>& r) {
    std::vector<double> v;
    const GenRect<int> in = r & b;
    for (int y = in.y; y < in.y + in.h; ++y)
        for (int x = in.x; x < in.x + in.w; ++x)
            v.push_back(p(x - b.x, y - b.y));
    double sum = 0, variance = 0;
    for (double s : v)
        sum += s;
    for (double s : v)
        variance += (s - sum / v.size()) * (s - sum / v.size()) / v.size();
    return {double(v.size()), sum, variance};
}

bool missing(const ImageSumInfo& i) {
    return i.count == 0 && i.sum == 0 && std::isnan(i.mean) && std::isnan(i.variance);
}

} // namespace

TEST(ImageSum, WindowQueriesEqualBruteForceSums) {
    std::mt19937 rng(31);
    const GenRect<int> b(-5, 11, 37, 29);
    const Image img = randomImage(b, rng);
    const Plane p(img);
    ImageSum tables;
    ImageSumInfo t;
    tables.info(b, t);
    EXPECT_TRUE(missing(t)); // no image yet
    tables.setImage(img);
    // Every table entry, sums and squares of samples in 0..1, is at most
    // twice the image's sum and carries a few roundings per step across it.
    const double tolerance = 8.0 * (b.w + b.h) * FLT_EPSILON * bruteForce(p, b, b)[1];
    // Corners up to 4 pixels beyond the image: windows touch and cross
    // every edge, and some miss it.
    std::uniform_int_distribution<int> xs(b.x - 4, b.x + b.w + 3), ys(b.y - 4, b.y + b.h + 3);
    int missed = 0;
    for (int i = 0; i < 400; ++i) {
        const int x0 = xs(rng), x1 = xs(rng), y0 = ys(rng), y1 = ys(rng);
        const GenRect<int> r(std::min(x0, x1), std::min(y0, y1), std::abs(x1 - x0) + 1,
                             std::abs(y1 - y0) + 1);
        const std::vector<double> e = bruteForce(p, b, r);
        tables.info(r, t);
        if (e[0] == 0) {
            ++missed;
            EXPECT_TRUE(missing(t)) << r;
            continue;
        }
        EXPECT_EQ(e[0], t.count);
        EXPECT_NEAR(e[1], t.sum, tolerance) << r;
        EXPECT_NEAR(e[1] / e[0], t.mean, tolerance / e[0]) << r;
        EXPECT_NEAR(e[2], t.variance, 3.0 * tolerance / e[0]) << r;
    }
    EXPECT_GT(missed, 0);
}

// Bright, low-contrast windows (sky, walls): sumSq / count and mean^2 nearly
// cancel, and the float tables' rounding is the size of the variance.
TEST(DoubleImageSum, KeepsTheVarianceOfBrightLowContrastWindows) {
    for (double sigma : {0.003, 0.005, 0.01}) {
        std::mt19937 rng(35);
        std::normal_distribution<double> noise(0.8, sigma);
        const Image img =
            makeImage(GenRect<int>(0, 0, 71, 71), [&](int, int) { return noise(rng); });
        NaiveImageSum naive;
        ImageSum tables;
        DoubleImageSum doubles;
        for (ImageSumIntf* sums :
             {(ImageSumIntf*)&naive, (ImageSumIntf*)&tables, (ImageSumIntf*)&doubles})
            sums->setImage(img);
        double worstFloat = 0.0, worstDouble = 0.0;
        int nonPositive = 0, windows = 0;
        for (int y = 0; y + 21 <= 71; ++y)
            for (int x = 0; x + 21 <= 71; ++x, ++windows) {
                const GenRect<int> r(x, y, 21, 21);
                ImageSumInfo n, t, d;
                naive.info(r, n);
                tables.info(r, t);
                doubles.info(r, d);
                worstFloat = std::max(worstFloat, std::abs(t.variance / n.variance - 1.0));
                worstDouble = std::max(worstDouble, std::abs(d.variance / n.variance - 1.0));
                nonPositive += t.variance <= 0.0f;
                ASSERT_NEAR(n.variance, d.variance, 1e-6 * n.variance) << r;
                ASSERT_NEAR(n.mean, d.mean, 1e-6 * n.mean) << r;
            }
        std::printf("sigma %.3f: float tables worst relative variance error %.3g, %d of %d "
                    "windows <= 0; double tables worst %.3g\n",
                    sigma, worstFloat, nonPositive, windows, worstDouble);
        // The case really is one the float tables get wrong.
        EXPECT_GT(worstFloat, 1e-2);
    }
}

// Patterns cut from the search image at a known cell, exactly and under
// noise that keeps the best score well short of 1.
TEST(Matcher, ScoreAndOffsetMatchADoublePrecisionReference) {
    std::mt19937 rng(41);
    std::normal_distribution<float> noise(0.0f, 1.0f);
    const Image search = randomImage(GenRect<int>(30, -12, 71, 71), rng);
    const Plane s(search);
    for (float sigma : {0.0f, 0.15f}) {
        const int cx = sigma > 0 ? 17 : 33, cy = sigma > 0 ? 26 : 8;
        const Image pattern = makeImage(GenRect<int>(-4, 6, 21, 21), [&](int x, int y) {
            return s(x + 4 + cx, y - 6 + cy) + sigma * noise(rng);
        });
        const Plane p(pattern);
        std::vector<double> ncc;
        for (int y = 0; y < 51; ++y)
            for (int x = 0; x < 51; ++x)
                ncc.push_back(referenceNcc(p, s, x, y));
        const int best = int(std::max_element(ncc.begin(), ncc.end()) - ncc.begin());
        ASSERT_EQ(cx + cy * 51, best);
        const double dx = referenceStep(ncc[best - 1], ncc[best + 1], ncc[best]);
        const double dy = referenceStep(ncc[best - 51], ncc[best + 51], ncc[best]);
        for (bool doubles : {false, true}) {
            Matcher matcher;
            if (doubles)
                matcher.setImageSumIntf(new DoubleImageSum());
            matcher.setPattern(pattern);
            matcher.setSearch(search);
            Result r;
            matcher.match(r.offset, r.score);
            EXPECT_NEAR(ncc[best], r.score, 1e-5) << sigma;
            EXPECT_EQ(sigma > 0, r.score < 0.95) << r.score;
            EXPECT_NEAR(30 + 4 + cx + dx, r.offset.x, 1e-3) << sigma;
            EXPECT_NEAR(-12 - 6 + cy + dy, r.offset.y, 1e-3) << sigma;
        }
    }
}

// A matcher keeps its correlation surface and window tables from one search
// image to the next; over searches of changing sizes and places it must
// give, bit for bit, what a new matcher gives on each.
TEST(Matcher, AKeptMatcherAgreesWithAFreshOneOnEverySearch) {
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> extra(0, 30), place(-20, 20);
    for (bool doubles : {false, true}) {
        const Image pattern = randomImage(GenRect<int>(-5, -5, 11, 9), rng);
        Matcher kept;
        if (doubles)
            kept.setImageSumIntf(new DoubleImageSum());
        kept.setPattern(pattern);
        for (int trial = 0; trial < 12; ++trial) {
            const Image search = randomImage(
                GenRect<int>(place(rng), place(rng), 11 + extra(rng), 9 + extra(rng)), rng);
            Matcher fresh;
            if (doubles)
                fresh.setImageSumIntf(new DoubleImageSum());
            fresh.setPattern(pattern);
            fresh.setSearch(search);
            Result want;
            fresh.match(want.offset, want.score);
            kept.setSearch(search);
            Result got;
            kept.match(got.offset, got.score);
            EXPECT_EQ(want.offset.x, got.offset.x) << trial;
            EXPECT_EQ(want.offset.y, got.offset.y) << trial;
            EXPECT_EQ(want.score, got.score) << trial;
        }
    }
}

TEST(Matcher, SubPixelShiftsOfASmoothTextureAreFoundWithinAThirdOfAPixel) {
    std::vector<double> errors;
    for (unsigned seed : {1u, 2u, 3u, 4u}) {
        const Texture texture(seed, 12, 5.0, 0.04);
        Matcher matcher;
        matcher.setPattern(
            makeImage(GenRect<int>(25, 25, 21, 21), [&](int x, int y) { return texture(x, y); }));
        for (int i = 0; i <= 8; ++i)
            for (int j = 0; j <= 8; ++j) {
                const double sx = -0.5 + i / 8.0, sy = -0.5 + j / 8.0;
                matcher.setSearch(makeImage(GenRect<int>(0, 0, 71, 71),
                                            [&](int x, int y) { return texture(x + sx, y + sy); }));
                Result r;
                matcher.match(r.offset, r.score);
                errors.push_back(std::hypot(r.offset.x + sx, r.offset.y + sy));
            }
    }
    std::sort(errors.begin(), errors.end());
    double sum = 0.0;
    for (double e : errors)
        sum += e;
    std::printf("sub-pixel error over %zu shifts: mean %.3f, median %.3f, 90%% %.3f, max %.3f px\n",
                errors.size(), sum / errors.size(), errors[errors.size() / 2],
                errors[errors.size() * 9 / 10], errors.back());
    EXPECT_LT(errors.back(), 0.35);
}

TEST(Matcher, PeakSearchAndSubPixelStep) {
    // Interior peak: the step is half the neighbours' difference over the
    // peak's height above the lower one; offsets carry the origins.
    Result r = matchCells(4, 3, {0, 0, 0, 0, 0, 0.2f, 1, 0.6f, 0, 0, 0.4f, 0});
    EXPECT_FLOAT_EQ(1.0f, float(r.score));
    EXPECT_FLOAT_EQ(-3 - 10 + 2 + 0.5f * 0.4f / 0.8f, r.offset.x);
    EXPECT_FLOAT_EQ(5 - 20 + 1 + 0.5f * 0.4f / 1.0f, r.offset.y);
    // Border peak: the missing neighbour counts as -1, pulling the step
    // inwards, never beyond half a pixel.
    r = matchCells(3, 2, {0.9f, 0.5f, 0, 0.3f, 0, 0});
    EXPECT_FLOAT_EQ(-13 + 0.5f * (0.5f + 1) / (0.9f + 1), r.offset.x);
    EXPECT_FLOAT_EQ(-15 + 0.5f * (0.3f + 1) / (0.9f + 1), r.offset.y);
    // Equal peaks: the first in row-major order wins; its equal right-hand
    // neighbour steps it exactly half a pixel towards the other.
    r = matchCells(4, 2, {0, 0.7f, 0.7f, 0, 0, 0.7f, 0, 0});
    EXPECT_EQ(GenPoint<float>(-13 + 1.5f, -15 + 0.5f), r.offset);
    // A 1 x 1 surface: both neighbours are -1, so no step; the cell is
    // divided by the correlator's scale.
    r = matchCells(1, 1, {0.25f}, 0.5f);
    EXPECT_EQ(0.5, r.score);
    EXPECT_EQ(GenPoint<float>(-13.0f, -15.0f), r.offset);
}

TEST(Matcher, RefusesBadSurfacesWithoutWritingResults) {
    const std::pair<Image, const char*> cases[] = {
        {Image({0, 0, 4, 3}, luminance(Orvane::UB2)), "must be float or double"},
        {Image({0, 0, 5, 3}, luminance()), "search region exceeded"},
        {Image({0, 0, 4, 4}, luminance(Orvane::DOUBLE)), "search region exceeded"},
        {Image({0, 0, 0, 3}, luminance()), "empty correlation surface"},
    };
    for (const auto& [surface, text] : cases) {
        Result r;
        expectThrows<IllegalArgumentException>(
            [&, surface = surface] { matchSurface(surface, 4, 3, r); }, text);
        EXPECT_EQ(-99.0, r.score);
        EXPECT_EQ(GenPoint<float>(-99.0f, -99.0f), r.offset);
    }
}
