#include "krovel/AffineProblem.h"

#include "image/Format.h"
#include "image/Image.h"
#include "krovel/KrMatrixError.h"
#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <iostream>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

using Orvane::Format;
using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::Image;

namespace {

const double kDegree = M_PI / 180;
const Format kFloatL("l", Orvane::FLOAT, false);

// A smooth random texture: plane waves evaluated in closed form, so that
// moved copies are exact and owe nothing to the library's resampling.
struct Texture {
    explicit Texture(unsigned seed) {
        std::mt19937 rng(seed);
        std::uniform_real_distribution<double> wavelength(8, 20), turn(0, 2 * M_PI), amp(0.5, 1);
        for (int i = 0; i < 8; ++i) {
            const double k = 2 * M_PI / wavelength(rng), d = turn(rng);
            waves.push_back({k * std::cos(d), k * std::sin(d), turn(rng), amp(rng)});
        }
    }
    double operator()(double u, double v) const {
        double sum = 2;
        for (const std::array<double, 4>& w : waves)
            sum += w[3] * std::sin(w[0] * u + w[1] * v + w[2]);
        return sum;
    }
    std::vector<std::array<double, 4>> waves;
};

// The search pixel at q shows the pattern at p where q = centre + L (p - anchor) + shift,
// L = scale · rotation(angle). Pixel values are the texture at pixel centres.
void setUp(AffineProblem& problem, const Texture& tex, int w, int h, double angle = 0,
           double scale = 1, double sx = 0, double sy = 0) {
    const GenPoint<float> anchor(3.25f, -2.5f), centre(40.25f, 17.5f); // 37 and 20 apart
    const GenRect<int> pb(3 - w / 2, -3 - h / 2, w, h);
    const GenRect<int> sb(pb.x + 37 - 12, pb.y + 20 - 12, w + 24, h + 24);
    const double c = std::cos(angle) / scale, s = std::sin(angle) / scale;
    Image pattern(pb, kFloatL), search(sb, kFloatL);
    float *pp, *sp;
    pattern.getBuffer(pp);
    search.getBuffer(sp);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            pp[y * w + x] = float(tex(pb.x + x + 0.5, pb.y + y + 0.5));
    for (int y = 0; y < sb.h; ++y)
        for (int x = 0; x < sb.w; ++x) {
            const double du = sb.x + x + 0.5 - centre.x - sx, dv = sb.y + y + 0.5 - centre.y - sy;
            sp[y * sb.w + x] = float(tex(anchor.x + c * du + s * dv, anchor.y - s * du + c * dv));
        }
    problem.setPattern(pattern);
    problem.setSearch(search);
    problem.setAnchor(anchor);
    problem.setCentre(centre);
}

void translationOnly(AffineProblem& problem) {
    problem.setUseRotation(false);
    problem.setUseScale(false);
    problem.setUseStretch(false);
}

std::vector<double> normalised(const std::vector<double>& v) {
    double mean = 0, var = 0;
    for (double e : v)
        mean += e / v.size();
    for (double e : v)
        var += (e - mean) * (e - mean) / v.size();
    std::vector<double> out;
    for (double e : v)
        out.push_back((e - mean) / std::sqrt(var));
    return out;
}

std::vector<double> pixels(const Image& img) {
    float* p;
    img.getBuffer(p);
    return std::vector<double>(p, p + img.getBounds().w * img.getBounds().h);
}

// Records the state that the full-size solve starts from.
struct StartRecorder : AffineProblem {
    void setX(const KrGenVector<float>& v) override {
        if (calls++ == 0)
            first = v.copy();
        AffineProblem::setX(v);
    }
    int calls = 0;
    KrGenVector<float> first;
};

std::string lastReport;
void record(const char* message) {
    lastReport = message;
}

} // namespace

TEST(AffineProblemPacking, FixedOrderAndRoundTripForEveryFlagSet) {
    const AffineTransform source(1, 2, 3, 4, 5, 6), base(-1, -2, -3, -4, -5, -6);
    for (int flags = 0; flags < 16; ++flags) {
        AffineProblem p;
        p.setUseTranslation(flags & 1);
        p.setUseRotation(flags & 2);
        p.setUseScale(flags & 4);
        p.setUseStretch(flags & 8);
        KrGenVector<float> v(7, 9.0f);
        p.pack(v, source);
        // The free values of (1, ..., 6) in ascending order, and nothing else.
        std::vector<float> expected;
        for (int field = 0; field < 6; ++field)
            if (flags & (field < 2 ? 1 : field < 3 ? 2 : field < 4 ? 4 : 8))
                expected.push_back(float(field + 1));
        EXPECT_EQ(int(expected.size()), p.xlength());
        ASSERT_EQ(int(expected.size()), v.length());
        for (int i = 0; i < v.length(); ++i)
            EXPECT_EQ(expected[i], v(i)) << flags;
        AffineTransform t = base;
        p.unpack(v, t);
        EXPECT_EQ(AffineTransform(flags & 1 ? 1 : -1, flags & 1 ? 2 : -2, flags & 2 ? 3 : -3,
                                  flags & 4 ? 4 : -4, flags & 8 ? 5 : -5, flags & 8 ? 6 : -6),
                  t);
    }
}

TEST(AffineProblemPacking, ShortVectorTrustAndInitialState) {
    AffineProblem p;
    p.setUseTranslation(false);
    p.setUseStretch(false);
    AffineTransform t;
    expectThrows<KrMatrixError>([&] { p.unpack(KrGenVector<float>(1, 0.5f), t); },
                                "KrVector index 1 out of range 0");
    p.setXform(AffineTransform(1, 2, 3, 4, 5, 6));
    const KrGenVector<float> s = p.initState();
    ASSERT_EQ(2, s.length());
    EXPECT_EQ(4.0f, s(1));
    p.setPattern(Image(GenRect<int>(-3, 7, 19, 18), kFloatL));
    const float r = float(1 / std::sqrt(342.0));
    EXPECT_EQ(AffineTransform(0.5f, 0.5f, r, r, r, r), p.getTrust());
}

template <class T> class FlattenImage : public ::testing::Test {};
using SampleTypes = ::testing::Types<unsigned char, unsigned short, unsigned int, float, double>;
TYPED_TEST_SUITE(FlattenImage, SampleTypes);

TYPED_TEST(FlattenImage, CopiesRowsWithoutPadding) {
    using T = TypeParam;
    const int datatype = std::is_same<T, unsigned char>::value    ? Orvane::UB1
                         : std::is_same<T, unsigned short>::value ? Orvane::UB2
                         : std::is_same<T, unsigned int>::value   ? Orvane::UB4
                         : std::is_same<T, float>::value          ? Orvane::FLOAT
                                                                  : Orvane::DOUBLE;
    const int w = 5, h = 4, nc = 2, rowSamples = w * nc + 3;
    std::vector<T> buffer(rowSamples * h, T(250));
    for (int y = 0; y < h; ++y)
        for (int i = 0; i < w * nc; ++i)
            buffer[y * rowSamples + i] = T(7 * y + 2 * i + 1);
    const Image img(GenRect<int>(10, -4, w, h), Format("la", datatype, false), buffer.data(),
                    int(rowSamples * sizeof(T)));
    KrGenVector<float> v(3, -1.0f);
    flattenImage(img, v);
    ASSERT_EQ(w * h * nc, v.length());
    for (int y = 0; y < h; ++y)
        for (int i = 0; i < w * nc; ++i)
            EXPECT_EQ(float(7 * y + 2 * i + 1), v(y * w * nc + i)) << y << "," << i;
}

TEST(FlattenImage, UnknownDatatype) {
    float buffer[4] = {};
    const Image img(GenRect<int>(0, 0, 2, 2), Format("l", 7, false), buffer, 8);
    KrGenVector<float> v;
    expectThrows<IllegalArgumentException>([&] { flattenImage(img, v); }, "image datatype unknown");
}

TEST(Unbias, ZeroMeanUnitVarianceOnALargeOffset) {
    // An offset where a one-pass float variance would lose most digits.
    std::mt19937 rng(11);
    std::normal_distribution<float> noise(0, 3);
    KrGenVector<float> v(500);
    std::vector<double> raw;
    for (int i = 0; i < 500; ++i)
        raw.push_back(v(i) = 1000 + noise(rng));
    unbias(v);
    const std::vector<double> expected = normalised(raw);
    for (int i = 0; i < 500; ++i)
        EXPECT_NEAR(expected[i], v(i), 4 * FLT_EPSILON * std::max(1.0, std::fabs(expected[i])));
}

TEST(Unbias, WritesThroughAStridedView) {
    KrGenMatrix<double> m(3, 4, KrGenMatrix<double>::ColumnMajor);
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 4; ++c)
            m(r, c) = r * 10 + c * c;
    KrGenVector<double> row = m.row(1);
    unbias(row);
    const std::vector<double> expected = normalised({10, 11, 14, 19});
    for (int c = 0; c < 4; ++c) {
        EXPECT_NEAR(expected[c], m(1, c), 8 * DBL_EPSILON);
        EXPECT_EQ(20 + c * c, m(2, c));
    }
}

TEST(Unbias, FlatOrEmptyIsDivideByZero) {
    KrGenVector<float> flat(441, 0.1f), empty;
    expectThrows<KrMatrixError>([&] { unbias(flat); }, "divide by zero");
    EXPECT_EQ(0.1f, flat(440));
    expectThrows<KrMatrixError>([&] { unbias(empty); }, "divide by zero");

    // With a handler the report is all that happens.
    KrMatrixError::setErrorHandler(record);
    lastReport.clear();
    unbias(flat);
    KrMatrixError::setErrorHandler(nullptr);
    EXPECT_EQ("divide by zero", lastReport);
    EXPECT_EQ(0.1f, flat(440));
}

TEST(AffineProblemWarp, IdentityProjectsTheNormalisedPattern) {
    const Texture tex(1);
    AffineProblem p;
    setUp(p, tex, 15, 11);
    p.setX(p.initState());
    EXPECT_EQ(p.getPattern().getBounds(), p.getProjected().getBounds());
    const std::vector<double> expected = normalised(pixels(p.getPattern()));
    KrGenVector<float> y;
    p.evalY(y);
    ASSERT_EQ(int(expected.size()), y.length());
    for (int i = 0; i < y.length(); ++i)
        EXPECT_NEAR(expected[i], y(i), 16 * FLT_EPSILON * std::max(1.0, std::fabs(expected[i])));
}

TEST(AffineProblemWarp, TranslationColumnsAreNormalisedPixelSlopes) {
    // At the identity every sample falls on a search pixel, so a forward step
    // reads the slope to the next pixel, d; normalising g turns it into
    // (d - mean d)/σ - u·cov(u, d)/σ with u the normalised g.
    const Texture tex(2);
    const int w = 13, h = 9;
    AffineProblem p;
    setUp(p, tex, w, h);
    p.setX(p.initState());
    KrGenVector<float> before, after;
    p.evalY(before);
    KrGenMatrix<float> dy;
    p.evalDy(dy);
    p.evalY(after);
    ASSERT_EQ(w * h, dy.rows());
    ASSERT_EQ(6, dy.cols());
    for (int i = 0; i < w * h; ++i)
        ASSERT_EQ(before(i), after(i)) << "the trials leave the projection alone";

    const GenRect<int>& sb = p.getSearch().getBounds();
    float* s;
    p.getSearch().getBuffer(s);
    std::vector<double> g, slope[2];
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const float* q = s + (12 + y) * sb.w + 12 + x;
            g.push_back(q[0]);
            slope[0].push_back(q[1] - q[0]);
            slope[1].push_back(q[sb.w] - q[0]);
        }
    const std::vector<double> u = normalised(g);
    double mean = 0, var = 0;
    for (double e : g)
        mean += e / g.size();
    for (double e : g)
        var += (e - mean) * (e - mean) / g.size();
    const double sigma = std::sqrt(var);
    for (int k = 0; k < 2; ++k) {
        double dmean = 0, cov = 0;
        for (size_t i = 0; i < g.size(); ++i) {
            dmean += slope[k][i] / g.size();
            cov += u[i] * slope[k][i] / g.size();
        }
        for (int i = 0; i < w * h; ++i) {
            const double expected = (slope[k][i] - dmean) / sigma - u[i] * cov / sigma;
            // Float samples of order 1 differenced over a step of 0.001.
            EXPECT_NEAR(expected, dy(i, k), 2e-3) << "column " << k << " sample " << i;
        }
    }

    // A column-major Jacobian keeps its layout.
    translationOnly(p);
    KrGenMatrix<float> dy2(w * h, 2, KrGenMatrix<float>::ColumnMajor);
    p.evalDy(dy2);
    EXPECT_EQ(1, dy2.rowStride());
    for (int i = 0; i < w * h; ++i)
        EXPECT_EQ(dy(i, 1), dy2(i, 1));
}

TEST(AffineProblemCoarseToFine, HalfSizeFirstFromThreeHundredAndTwentyFivePixels) {
    const Texture tex(4);
    struct Case {
        int w, h;
        bool coarse;
        float startX, startY;
    } cases[] = {{18, 18, true, 0, 0}, {19, 18, true, 1.0f, -0.6f}, {19, 18, false, 0, 0}};
    for (const Case& c : cases) {
        StartRecorder p;
        setUp(p, tex, c.w, c.h, 0, 1, 2.0, -1.2);
        translationOnly(p);
        p.setCoarseToFine(c.coarse);
        p.execute();
        ASSERT_EQ(2, p.first.length());
        // The half-size solve finds half the offset in its own pixels, and it
        // is carried over as it is: the full-size solve starts half-way.
        EXPECT_NEAR(c.startX, p.first(0), 0.1) << c.w << "x" << c.h << " " << c.coarse;
        EXPECT_NEAR(c.startY, p.first(1), 0.1) << c.w << "x" << c.h << " " << c.coarse;
        EXPECT_NEAR(2.0, p.getXform().tx, 0.02);
        EXPECT_NEAR(-1.2, p.getXform().ty, 0.02);
    }
}

TEST(AffineProblemExecute, ResultPartsAndQuality) {
    const Texture tex(5);
    AffineProblem p;
    setUp(p, tex, 21, 21, 4 * kDegree, 1.03, 0.4, -0.3);
    p.execute();
    KrGenMatrix<float> m;
    p.getXform().getMatrix(m);
    EXPECT_EQ(m(0, 2), p.getTranslation().x);
    EXPECT_EQ(m(1, 2), p.getTranslation().y);
    const KrGenMatrix<float>& linear = p.getLinear();
    ASSERT_EQ(2, linear.rows());
    ASSERT_EQ(2, linear.cols());
    for (int r = 0; r < 2; ++r)
        for (int c = 0; c < 2; ++c)
            EXPECT_EQ(m(r, c), linear(r, c));
    // The correlation of what is shown with the pattern.
    const std::vector<double> shown = pixels(p.getProjected());
    const std::vector<double> goal = normalised(pixels(p.getPattern()));
    double cov = 0;
    for (size_t i = 0; i < goal.size(); ++i)
        cov += shown[i] * goal[i] / goal.size();
    EXPECT_NEAR(cov, p.getQuality(), 1e-5);
    EXPECT_GT(p.getQuality(), 0.999f);
}

TEST(AffineProblemExecute, FailuresKeepTheTransform) {
    const Texture tex(6);
    AffineProblem p;
    setUp(p, tex, 10, 10);
    Image flat(p.getPattern().getBounds(), kFloatL);
    float* f;
    flat.getBuffer(f);
    std::fill(f, f + 100, 0.5f);
    p.setPattern(flat);
    const AffineTransform start(0.25f, 0.5f, 0.01f, 1.01f, 1, 1);
    p.setXform(start);
    expectThrows<KrMatrixError>([&] { p.execute(); }, "divide by zero");
    EXPECT_EQ(start, p.getXform());

    // The projection takes the search image's format; the warp writes float only.
    setUp(p, tex, 10, 10);
    p.setSearch(Image(GenRect<int>(0, 0, 8, 8), Format("l", Orvane::DOUBLE, false)));
    expectThrows<IllegalArgumentException>(
        [&] { p.execute(); }, "wrong datatype float; image is Format(L, double, true)");
    EXPECT_EQ(start, p.getXform());
}

TEST(AffineProblemAccuracy, SubPixelShiftWithTranslationOnly) {
    const Texture tex(7);
    std::mt19937 rng(12);
    std::uniform_real_distribution<double> shift(-1.5, 1.5);
    for (bool coarse : {false, true}) {
        double sum2 = 0, worst = 0;
        const int trials = 25;
        for (int i = 0; i < trials; ++i) {
            const double sx = shift(rng), sy = shift(rng);
            AffineProblem p;
            setUp(p, tex, 21, 21, 0, 1, sx, sy);
            translationOnly(p);
            p.setCoarseToFine(coarse);
            p.execute();
            const double e = std::hypot(p.getXform().tx - sx, p.getXform().ty - sy);
            sum2 += e * e;
            worst = std::max(worst, e);
        }
        const double rms = std::sqrt(sum2 / trials);
        std::cout << "[ measured ] shift, coarse to fine " << coarse << ": RMS " << rms
                  << " px, worst " << worst << " px\n";
        EXPECT_LT(rms, 0.02) << "coarse to fine " << coarse;
    }
}

TEST(AffineProblemAccuracy, RotationAndScaleWithEverythingFree) {
    const Texture tex(8);
    double worstAngle = 0, worstScale = 0;
    for (double degrees : {-10.0, -5.0, 5.0, 10.0})
        for (double scale : {0.9, 1.0, 1.1}) {
            AffineProblem p;
            setUp(p, tex, 21, 21, degrees * kDegree, scale, 0.3, -0.2);
            p.execute();
            const AffineTransform& t = p.getXform();
            worstAngle = std::max(worstAngle, std::fabs(t.ro / kDegree - degrees));
            worstScale = std::max(worstScale, std::fabs(t.sc / scale - 1));
            EXPECT_NEAR(degrees, t.ro / kDegree, 0.1) << "scale " << scale << ": " << t;
            EXPECT_NEAR(1, t.sc / scale, 0.003) << degrees << " deg: " << t;
        }
    std::cout << "[ measured ] all free: worst rotation error " << worstAngle
              << " deg, worst scale error " << 100 * worstScale << " %\n";
}
