#include "track/Matcher.h"

#include "support/ExpectThrows.h"
#include "track/Correlator.h"
#include "track/DoubleImageSum.h"
#include "track/TrackImages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

using namespace trackimages;

namespace {

// Hands the matcher a copy of a fixed surface and keeps a handle on it, so a
// test can read the normalised surface the matcher leaves behind.
class FixedCorrelator : public Correlator {
public:
    FixedCorrelator(const Image& surface, float scale) : surface(surface), scale(scale) {}
    void setPattern(const Image&) override {}
    void setSearch(const Image&) override {}
    void correlate(Image& out, float& k) override {
        last = Image(surface.getBounds(), surface.getFormat());
        const int bytes = surface.getBounds().w * surface.getFormat().getBytesPerPixel();
        for (int y = 0; y < surface.getBounds().h; ++y)
            std::copy_n(static_cast<char*>(surface.getBuffer()) + y * surface.getStride(), bytes,
                        static_cast<char*>(last.getBuffer()) + y * last.getStride());
        out = last;
        k = scale;
    }

    Image surface;
    float scale;
    Image last;
};

// Wraps another correlator and keeps the surface it made.
class Recorder : public Correlator {
public:
    explicit Recorder(Correlator* inner) : inner(inner) {}
    ~Recorder() override { delete inner; }
    void setPattern(const Image& p) override { inner->setPattern(p); }
    void setSearch(const Image& s) override { inner->setSearch(s); }
    void correlate(Image& out, float& k) override {
        inner->correlate(out, k);
        last = out;
    }

    Correlator* inner;
    Image last;
};

// Mean 0 and variance 1 for every window: with a 1 x 1 pattern the
// normalised cell is the raw cell divided by the scale.
class UnitSum : public ImageSumIntf {
public:
    UnitSum() { ++alive; }
    ~UnitSum() override { --alive; }
    void info(const GenRect<int>& r, ImageSumInfo& out) const override {
        out.count = float(r.w * r.h);
        out.sum = 0.0f;
        out.sumSq = out.count;
        out.mean = 0.0f;
        out.variance = 1.0f;
    }
    ImageSumIntf* clone() const override { return new UnitSum(); }
    static int alive;

protected:
    void onSetImage() override {}
};
int UnitSum::alive = 0;

struct Result {
    GenPoint<float> offset{-99.0f, -99.0f};
    double score = -99.0;
};

// A matcher over a fixed surface: 1 x 1 pattern at (10, 20), search of the
// surface's size at (-3, 5).
Result matchSurface(const Image& surface, float scale = 1.0f) {
    const GenRect<int>& cb = surface.getBounds();
    Matcher matcher;
    matcher.setCorrelator(new FixedCorrelator(surface, scale));
    matcher.setImageSumIntf(new UnitSum());
    matcher.setPattern(Image(GenRect<int>(10, 20, 1, 1), luminance()));
    matcher.setSearch(Image(GenRect<int>(-3, 5, cb.w, cb.h), luminance()));
    Result r;
    matcher.match(r.offset, r.score);
    return r;
}

Image surfaceOf(int w, int h, std::vector<float> cells) {
    return makeFloat(GenRect<int>(0, 0, w, h), [&](int x, int y) { return cells[y * w + x]; });
}

// A smooth texture: a sum of sinusoids with periods from 5 to 16 pixels,
// exact at any real position, so sub-pixel shifts need no interpolator.
struct Waves {
    explicit Waves(unsigned seed) {
        std::mt19937 rng(seed);
        std::uniform_real_distribution<double> angle(0.0, 2.0 * M_PI);
        std::uniform_real_distribution<double> period(5.0, 16.0);
        for (int i = 0; i < 12; ++i) {
            const double a = angle(rng);
            const double f = 2.0 * M_PI / period(rng);
            waves.push_back({f * std::cos(a), f * std::sin(a), angle(rng)});
        }
    }
    double operator()(double x, double y) const {
        double v = 0.5;
        for (const Wave& w : waves)
            v += 0.04 * std::sin(w.fx * x + w.fy * y + w.phase);
        return v;
    }
    struct Wave {
        double fx, fy, phase;
    };
    std::vector<Wave> waves;
};

} // namespace

TEST(Matcher, ScoreIsTheNormalisedCrossCorrelationOfTheBestCell) {
    std::mt19937 rng(41);
    std::normal_distribution<float> noise(0.0f, 0.15f);
    const Image search = randomImage(GenRect<int>(30, -12, 71, 71), rng);
    const Plane s(search);
    // The pattern resembles the search image at (17, 26), blurred by noise,
    // so the best score is well short of 1.
    const Image pattern = makeFloat(GenRect<int>(-4, 6, 21, 21), [&](int x, int y) {
        return s(x + 4 + 17, y - 6 + 26) + noise(rng);
    });
    const Plane p(pattern);
    std::vector<double> ncc;
    for (int y = 0; y < 51; ++y)
        for (int x = 0; x < 51; ++x)
            ncc.push_back(referenceNcc(p, s, x, y));
    const int best = int(std::max_element(ncc.begin(), ncc.end()) - ncc.begin());
    const int bx = best % 51;
    const int by = best / 51;
    ASSERT_EQ(17, bx);
    ASSERT_EQ(26, by);

    Matcher matcher;
    matcher.setPattern(pattern);
    matcher.setSearch(search);
    Result r;
    matcher.match(r.offset, r.score);
    EXPECT_NEAR(ncc[best], r.score, 1e-5);
    EXPECT_LT(r.score, 0.95);
    const double dx = referenceStep(ncc[best - 1], ncc[best + 1], ncc[best]);
    const double dy = referenceStep(ncc[best - 51], ncc[best + 51], ncc[best]);
    EXPECT_NEAR(30 + 4 + bx + dx, r.offset.x, 1e-3);
    EXPECT_NEAR(-12 - 6 + by + dy, r.offset.y, 1e-3);

    // The whole surface, not only its peak, is the coefficient. Double sums
    // leave only the correlator's float rounding. Each float table lookup is
    // off by a few roundings of the image's total, scaled into a cell by
    // mean(P) / (N sd(P) sd(S)).
    double total = 0.0;
    for (double v : s.v)
        total += v;
    double meanP = 0.0;
    double varP = 0.0;
    for (double v : p.v)
        meanP += v / p.v.size();
    for (double v : p.v)
        varP += (v - meanP) * (v - meanP) / p.v.size();
    const double floatTolerance =
        32 * FLT_EPSILON * total * meanP / (p.v.size() * std::sqrt(varP / 12.0));
    for (bool doubles : {false, true}) {
        Matcher m;
        Recorder* recorder = new Recorder(new NaiveCorrelator());
        m.setCorrelator(recorder);
        if (doubles)
            m.setImageSumIntf(new DoubleImageSum());
        m.setPattern(pattern);
        m.setSearch(search);
        Result again;
        m.match(again.offset, again.score);
        const Plane normalised(recorder->last);
        double worst = 0.0;
        for (int i = 0; i < 51 * 51; ++i)
            worst = std::max(worst, std::abs(ncc[i] - normalised(i % 51, i / 51)));
        std::printf("%s sums: worst surface error %.3g\n", doubles ? "double" : "float", worst);
        EXPECT_LT(worst, doubles ? 1e-5 : floatTolerance);
    }

    Result naive;
    naive_match(pattern, search, naive.offset, naive.score);
    EXPECT_EQ(r.offset, naive.offset);
    EXPECT_EQ(r.score, naive.score);
}

TEST(Matcher, FindsAPatternCutAtAnIntegerOffset) {
    std::mt19937 rng(42);
    const Image search = randomImage(GenRect<int>(0, 0, 71, 71), rng);
    const Plane s(search);
    const Image pattern = makeFloat(GenRect<int>(100, 200, 21, 21),
                                    [&](int x, int y) { return s(x - 100 + 33, y - 200 + 8); });
    const Plane p(pattern);
    for (bool doubles : {false, true}) {
        Matcher matcher;
        if (doubles)
            matcher.setImageSumIntf(new DoubleImageSum());
        matcher.setPattern(pattern);
        matcher.setSearch(search);
        Result r;
        matcher.match(r.offset, r.score);
        EXPECT_NEAR(1.0, r.score, 1e-5);
        const double m = referenceNcc(p, s, 33, 8);
        const double dx = referenceStep(referenceNcc(p, s, 32, 8), referenceNcc(p, s, 34, 8), m);
        const double dy = referenceStep(referenceNcc(p, s, 33, 7), referenceNcc(p, s, 33, 9), m);
        EXPECT_NEAR(33 - 100 + dx, r.offset.x, 1e-3);
        EXPECT_NEAR(8 - 200 + dy, r.offset.y, 1e-3);
    }
}

TEST(Matcher, VectorAndScalarCorrelatorsPickTheSameCell) {
    if (!NaiveCorrelator().isSimd())
        GTEST_SKIP() << "no AVX2 on this processor";
    std::mt19937 rng(43);
    std::uniform_int_distribution<int> size(3, 24);
    std::uniform_int_distribution<int> extra(0, 40);
    for (int trial = 0; trial < 40; ++trial) {
        const int pw = size(rng);
        const int ph = size(rng);
        const Image pattern = randomImage(GenRect<int>(0, 0, pw, ph), rng);
        const Image search = randomImage(GenRect<int>(0, 0, pw + extra(rng), ph + extra(rng)), rng);
        int cells[2];
        for (int simd = 0; simd < 2; ++simd) {
            Matcher matcher;
            Recorder* recorder = new Recorder(new NaiveCorrelator(simd == 1));
            matcher.setCorrelator(recorder);
            matcher.setPattern(pattern);
            matcher.setSearch(search);
            Result r;
            matcher.match(r.offset, r.score);
            const Plane c(recorder->last);
            cells[simd] = int(std::max_element(c.v.begin(), c.v.end()) - c.v.begin());
        }
        EXPECT_EQ(cells[0], cells[1]) << pw << "x" << ph << " in " << search.getBounds();
    }
}

TEST(Matcher, SubPixelShiftsOfASmoothTextureAreFoundWithinAThirdOfAPixel) {
    std::vector<double> errors;
    for (unsigned seed : {1u, 2u, 3u, 4u}) {
        const Waves texture(seed);
        const Image pattern =
            makeFloat(GenRect<int>(25, 25, 21, 21), [&](int x, int y) { return texture(x, y); });
        Matcher matcher;
        matcher.setPattern(pattern);
        for (int i = 0; i <= 8; ++i)
            for (int j = 0; j <= 8; ++j) {
                const double sx = -0.5 + i / 8.0;
                const double sy = -0.5 + j / 8.0;
                matcher.setSearch(makeFloat(GenRect<int>(0, 0, 71, 71),
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
    Result r = matchSurface(surfaceOf(4, 3, {0, 0, 0, 0, 0, 0.2f, 1, 0.6f, 0, 0, 0.4f, 0}));
    EXPECT_FLOAT_EQ(1.0f, float(r.score));
    EXPECT_FLOAT_EQ(-3 - 10 + 2 + 0.5f * 0.4f / 0.8f, r.offset.x);
    EXPECT_FLOAT_EQ(5 - 20 + 1 + 0.5f * 0.4f / 1.0f, r.offset.y);

    // Border peak: the missing neighbour counts as -1, pulling the step
    // inwards, never beyond half a pixel.
    r = matchSurface(surfaceOf(3, 2, {0.9f, 0.5f, 0, 0.3f, 0, 0}));
    EXPECT_FLOAT_EQ(-13 + 0.5f * (0.5f + 1) / (0.9f + 1), r.offset.x);
    EXPECT_FLOAT_EQ(-15 + 0.5f * (0.3f + 1) / (0.9f + 1), r.offset.y);

    // Equal peaks: the first in row-major order wins; its equal right-hand
    // neighbour steps it exactly half a pixel towards the other.
    r = matchSurface(surfaceOf(4, 2, {0, 0.7f, 0.7f, 0, 0, 0.7f, 0, 0}));
    EXPECT_EQ(-13 + 1.5f, r.offset.x);
    EXPECT_EQ(-15 + 0.5f, r.offset.y);

    // Neighbours level with the peak (only possible at -1) give no
    // direction: no step rather than 0 / 0.
    r = matchSurface(surfaceOf(1, 1, {-1.0f}));
    EXPECT_EQ(GenPoint<float>(-13.0f, -15.0f), r.offset);

    // A 1 x 1 surface: both neighbours are -1, so no step.
    r = matchSurface(surfaceOf(1, 1, {0.25f}), 0.5f);
    EXPECT_EQ(0.5, r.score);
    EXPECT_EQ(GenPoint<float>(-13.0f, -15.0f), r.offset);
}

TEST(Matcher, DoubleSurfacesTakeTheSameSteps) {
    const Image cells =
        makeImage<double>(GenRect<int>(0, 0, 3, 3), Orvane::DOUBLE,
                          [](int x, int y) { return x == 1 && y == 1 ? 0.9 : 0.1 * (x + 3 * y); });
    const Result r = matchSurface(cells, 2.0f);
    EXPECT_DOUBLE_EQ(0.45, r.score);
    EXPECT_FLOAT_EQ(-12 + 0.5f * (0.25f - 0.15f) / (0.45f - 0.15f), r.offset.x);
    EXPECT_FLOAT_EQ(-14 + 0.5f * (0.35f - 0.05f) / (0.45f - 0.05f), r.offset.y);
}

TEST(Matcher, RefusesBadSurfacesWithoutWritingResults) {
    auto attempt = [](const Image& surface, const char* text) {
        Matcher matcher;
        matcher.setCorrelator(new FixedCorrelator(surface, 1.0f));
        matcher.setPattern(Image(GenRect<int>(0, 0, 3, 3), luminance()));
        matcher.setSearch(Image(GenRect<int>(0, 0, 6, 5), luminance()));
        Result r;
        expectThrows<IllegalArgumentException>([&] { matcher.match(r.offset, r.score); }, text);
        EXPECT_EQ(-99.0, r.score);
        EXPECT_EQ(GenPoint<float>(-99.0f, -99.0f), r.offset);
    };
    attempt(Image(GenRect<int>(0, 0, 4, 3), luminance(Orvane::UB2)), "must be float or double");
    attempt(Image(GenRect<int>(0, 0, 5, 3), luminance()), "search region exceeded");
    attempt(Image(GenRect<int>(0, 0, 4, 4), luminance(Orvane::DOUBLE)), "search region exceeded");
    attempt(Image(GenRect<int>(0, 0, 0, 3), luminance()), "empty correlation surface");

    // The default correlator gives an integer pattern an integer surface.
    std::mt19937 rng(44);
    Result r;
    expectThrows<IllegalArgumentException>(
        [&] {
            naive_match(Image(GenRect<int>(0, 0, 3, 3), luminance(Orvane::UB1)),
                        randomImage(GenRect<int>(0, 0, 9, 9), rng), r.offset, r.score);
        },
        "must be float or double");
}

TEST(Matcher, OwnsItsPartsAndHandsThemTheImages) {
    std::mt19937 rng(45);
    const Image search = randomImage(GenRect<int>(0, 0, 40, 40), rng);
    const Plane s(search);
    const Image pattern =
        makeFloat(GenRect<int>(0, 0, 9, 9), [&](int x, int y) { return s(x + 20, y + 5); });
    {
        Matcher matcher;
        matcher.setPattern(pattern);
        matcher.setSearch(search);
        // Parts replaced after the images were set still see them.
        matcher.setCorrelator(new NaiveCorrelator(false));
        matcher.setImageSumIntf(new UnitSum());
        EXPECT_EQ(2, UnitSum::alive);
        matcher.setImageSumIntf(new DoubleImageSum());
        EXPECT_EQ(0, UnitSum::alive);
        matcher.setImageSumIntf(matcher.getPatternSum());
        Result r;
        matcher.match(r.offset, r.score);
        EXPECT_NEAR(1.0, r.score, 1e-5);
        EXPECT_NEAR(20.0f, r.offset.x, 0.5f);
        EXPECT_NEAR(5.0f, r.offset.y, 0.5f);
        matcher.setImageSumIntf(new UnitSum());
        EXPECT_EQ(2, UnitSum::alive);
    }
    EXPECT_EQ(0, UnitSum::alive);
}
