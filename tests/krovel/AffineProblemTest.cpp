#include "krovel/AffineProblem.h"
#include "krovel/AffineTransform.h"
#include "krovel/AffineWarp.h"

#include "image/Convert.h"
#include "image/Format.h"
#include "image/Image.h"
#include "image/Xform.h"
#include "krovel/KrLMSolver.h"
#include "krovel/KrMatrixError.h"
#include "krovel/KrVectorKernels.h"
#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <iostream>
#include <random>
#include <sstream>
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
void setUp(AffineProblem& problem, const Texture& tex, int w, int h, double angle, double scale,
           double sx, double sy, bool translationOnly) {
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
    problem.setUseRotation(!translationOnly);
    problem.setUseScale(!translationOnly);
    problem.setUseStretch(!translationOnly);
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

} // namespace

TEST(AffineProblem, PacksTheFreeParametersInFixedOrderAndUnpacksThem) {
    const int flagOf[6] = {1, 1, 2, 4, 8, 8}; // (tx, ty), ro, sc, (st0, st1)
    for (int flags = 0; flags < 16; ++flags) {
        AffineProblem p;
        p.setUseTranslation(flags & 1);
        p.setUseRotation(flags & 2);
        p.setUseScale(flags & 4);
        p.setUseStretch(flags & 8);
        // The free values of (1, ..., 6) in ascending order, and nothing else:
        // none at all for flags 0, (ro, sc) = (3, 4) for flags 6.
        std::vector<float> packed;
        float e[6];
        for (int f = 0; f < 6; ++f) {
            if (flags & flagOf[f])
                packed.push_back(f + 1);
            e[f] = flags & flagOf[f] ? f + 1 : -(f + 1);
        }
        KrGenVector<float> v(7, 9.0f);
        p.pack(v, AffineTransform(1, 2, 3, 4, 5, 6));
        EXPECT_EQ(packed, std::vector<float>(v.data(), v.data() + v.length())) << flags;
        AffineTransform t(-1, -2, -3, -4, -5, -6);
        p.unpack(v, t);
        EXPECT_EQ(AffineTransform(e[0], e[1], e[2], e[3], e[4], e[5]), t);
    }
}

TEST(AffineProblem, UnbiasNormalisesAndRefusesFlatOrUnknownInput) {
    // ±3 about 4096, where a one-pass float variance would lose every digit:
    // the normalised values are exactly ±1.
    KrGenVector<float> v(500);
    for (int i = 0; i < 500; ++i)
        v(i) = 4096 + (i % 2 ? 3 : -3);
    unbias(v);
    for (int i = 0; i < 500; ++i)
        EXPECT_NEAR(i % 2 ? 1 : -1, v(i), 4 * FLT_EPSILON) << i;

    KrGenVector<float> flat(441, 0.1f), empty, out;
    expectThrows<KrMatrixError>([&] { unbias(flat); }, "divide by zero");
    expectThrows<KrMatrixError>([&] { unbias(empty); }, "divide by zero");
    EXPECT_EQ(0.1f, flat(440));
    float buffer[4] = {};
    const Image img(GenRect<int>(0, 0, 2, 2), Format("l", 7, false), buffer, 8);
    expectThrows<IllegalArgumentException>([&] { flattenImage(img, out); },
                                           "image datatype unknown");
}

TEST(AffineProblem, CoarseToFineFromThreeHundredAndTwentyFivePixels) {
    const Texture tex(4);
    const struct {
        int w, h;
        bool coarse;
        float startX, startY;
    } cases[] = {{18, 18, true, 0, 0}, {19, 18, true, 1.0f, -0.6f}, {19, 18, false, 0, 0}};
    for (const auto& c : cases) {
        StartRecorder p;
        setUp(p, tex, c.w, c.h, 0, 1, 2.0, -1.2, true);
        p.setCoarseToFine(c.coarse);
        p.execute();
        ASSERT_EQ(2, p.first.length());
        // The half-size solve finds half the offset in its own pixels, and it
        // is carried over as it is: the full-size solve starts half-way.
        EXPECT_NEAR(c.startX, p.first(0), 0.1) << c.w << "x" << c.h << " " << c.coarse;
        EXPECT_NEAR(c.startY, p.first(1), 0.1) << c.w << "x" << c.h << " " << c.coarse;
    }
}

TEST(AffineProblem, MeasuredAccuracyOfShiftRotationAndScale) {
    const Texture tex(7);
    std::mt19937 rng(12);
    std::uniform_real_distribution<double> shift(-1.5, 1.5);
    for (bool coarse : {false, true}) {
        double sum2 = 0;
        const int trials = 25;
        for (int i = 0; i < trials; ++i) {
            const double sx = shift(rng), sy = shift(rng);
            AffineProblem p;
            setUp(p, tex, 21, 21, 0, 1, sx, sy, true);
            p.setCoarseToFine(coarse);
            p.execute();
            const double e = std::hypot(p.getXform().tx - sx, p.getXform().ty - sy);
            sum2 += e * e;
        }
        const double rms = std::sqrt(sum2 / trials);
        std::cout << "[ measured ] shift, coarse to fine " << coarse << ": RMS " << rms << " px\n";
        EXPECT_LE(rms, 0.02) << "coarse to fine " << coarse;
    }
    const Texture tex8(8);
    double worstAngle = 0, worstScale = 0;
    for (double degrees : {-10.0, -5.0, 5.0, 10.0})
        for (double scale : {0.9, 1.0, 1.1}) {
            AffineProblem p;
            setUp(p, tex8, 21, 21, degrees * kDegree, scale, 0.3, -0.2, false);
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

TEST(AffineTransform, MatricesMatchHandValuesWithDeterminantScaleSquared) {
    const double c = std::cos(0.3), s = std::sin(0.3);
    const struct {
        AffineTransform t;
        double m[2][2];
    } cases[] = {
        {AffineTransform(), {{1, 0}, {0, 1}}},
        {AffineTransform(5, -7, 0, 2, 1, 1), {{2, 0}, {0, 2}}},
        // st1 = 1 makes b = 0: diag(sc·st0, sc/st0) · R, here diag(1.875, 1/1.2).
        {AffineTransform(0, 0, 0.3f, 1.25f, 1.5f, 1),
         {{1.875 * c, -1.875 * s}, {s / 1.2, c / 1.2}}},
        // st1 = 2 without rotation: a = 1.25, b = 0.75.
        {AffineTransform(0, 0, 0, 1, 1, 2), {{1.25, 0.75}, {0.75, 1.25}}},
        {AffineTransform(0, 0, float(M_PI / 2), 1, 1, 1), {{0, -1}, {1, 0}}},
    };
    for (const auto& k : cases) {
        KrGenMatrix<float> m;
        k.t.getMatrix(m);
        for (int r = 0; r < 2; ++r)
            for (int col = 0; col < 2; ++col)
                EXPECT_NEAR(k.m[r][col], m(r, col), 8 * FLT_EPSILON) << k.t;
        EXPECT_EQ(k.t.tx, m(0, 2));
        EXPECT_EQ(k.t.ty, m(1, 2));
        const double det = double(m(0, 0)) * m(1, 1) - double(m(0, 1)) * m(1, 0);
        EXPECT_NEAR(double(k.t.sc) * k.t.sc, det, 32 * FLT_EPSILON * k.t.sc * k.t.sc) << k.t;
    }
}

TEST(AffineTransform, Printing) {
    std::ostringstream os;
    os << AffineTransform();
    EXPECT_EQ("(tx 0, ty 0, ro 0, sc 1, st0 1, st1 1)", os.str());
}

TEST(AffineWarp, CentredWarpMapsAnchorOffsetsToCentreOffsets) {
    // A plane sampled at pixel centres, which bilinear sampling reproduces
    // exactly wherever it does not clamp.
    const auto plane = [](double u, double v) { return 0.75 * u - 0.5 * v + 3; };
    const GenRect<int> sb(20, 30, 40, 40);
    Image src(sb, kFloatL), dst(GenRect<int>(-5, -5, 11, 11), kFloatL);
    float *s, *p;
    src.getBuffer(s);
    dst.getBuffer(p);
    for (int y = 0; y < sb.h; ++y)
        for (int x = 0; x < sb.w; ++x)
            s[y * sb.w + x] = float(plane(sb.x + x + 0.5, sb.y + y + 0.5));

    const GenPoint<float> anchor(0.25f, -0.5f), centre(40.5f, 49.75f);
    const double c = std::cos(0.4), sn = std::sin(0.4);
    KrGenMatrix<float> m(2, 3, KrGenMatrix<float>::RowMajor);
    m(0, 0) = float(1.1 * c), m(0, 1) = float(-1.1 * sn), m(0, 2) = 1.5f;
    m(1, 0) = float(0.9 * sn), m(1, 1) = float(0.9 * c), m(1, 2) = -0.75f;
    Orvane::xform_bilinear<float>(src, dst, m, centre, anchor);
    // The dst pixel centre q samples src at centre + M (q - anchor).
    for (int y = 0; y < 11; ++y)
        for (int x = 0; x < 11; ++x) {
            const double dx = -5 + x + 0.5 - anchor.x, dy = -5 + y + 0.5 - anchor.y;
            const double u = centre.x + m(0, 0) * dx + m(0, 1) * dy + m(0, 2);
            const double v = centre.y + m(1, 0) * dx + m(1, 1) * dy + m(1, 2);
            // Positions are formed in float, about 50 pixels from the origin.
            EXPECT_NEAR(plane(u, v), p[y * 11 + x], 16 * FLT_EPSILON * 50) << x << "," << y;
        }
}

namespace {

// The refinement written the plain way, as a yardstick for the kept storage
// and fused warps of AffineProblem: every warp into a fresh image, converted,
// flattened and normalised; halving by the two-pass transform; a new solver
// and a new half-size problem for every solve.
class ReferenceProblem : public KrLMProblem {
public:
    Image pattern, search;
    GenPoint<float> anchor, centre;
    bool flags[4] = {true, true, true, true}; // translation, rotation, scale, stretch
    bool coarseToFine = true;
    AffineTransform xform;
    float quality = 0;
    int iterations = 0, halfIterations = 0;

    void setX(const KrGenVector<float>& v) override {
        x = v.copy();
        projected = warped(x);
    }
    void evalY(KrGenVector<float>& y) override { y = projected.copy(); }
    void evalDy(KrGenMatrix<float>& dy) override {
        dy.resize(projected.length(), x.length());
        for (int j = 0; j < x.length(); ++j) {
            KrGenVector<float> moved = x.copy();
            moved(j) += 0.001f;
            const KrGenVector<float> trial = warped(moved);
            for (int i = 0; i < projected.length(); ++i)
                dy(i, j) = (trial(i) - projected(i)) / 0.001f;
        }
    }

    void execute() {
        const GenRect<int> b = pattern.getBounds();
        iterations = halfIterations = 0;
        if (coarseToFine && b.w * b.h >= 325) {
            ReferenceProblem half;
            half.pattern = halved(pattern);
            half.search = halved(search);
            half.anchor = GenPoint<float>(anchor.x * 0.5f, anchor.y * 0.5f);
            half.centre = GenPoint<float>(centre.x * 0.5f, centre.y * 0.5f);
            std::copy(flags, flags + 4, half.flags);
            half.xform = xform;
            half.execute();
            halfIterations = half.iterations + half.halfIterations;
            xform = half.xform;
        }
        KrGenVector<float> goal, y;
        flattenImage(pattern, goal);
        unbias(goal);
        KrLMSolver solver;
        solver.setProblem(this);
        solver.setGoal(goal);
        solver.setState(packed(xform));
        const float r = 1 / std::sqrt(float(b.w * b.h));
        solver.setTrust(packed(AffineTransform(0.5f, 0.5f, r, r, r, r)));
        solver.solve();
        iterations = solver.getIterations();
        setX(solver.getState());
        xform = unpacked(x);
        evalY(y);
        quality = float(covariance(y, goal));
    }

private:
    static Image halved(const Image& img) {
        mat3 m = scaling2D(vec2(0.5, 0.5));
        return Orvane::xform(img, m, 0.0);
    }
    // pack and unpack of a problem with the same free parameters.
    void configure(AffineProblem& p) const {
        p.setUseTranslation(flags[0]);
        p.setUseRotation(flags[1]);
        p.setUseScale(flags[2]);
        p.setUseStretch(flags[3]);
    }
    KrGenVector<float> packed(const AffineTransform& t) const {
        AffineProblem p;
        configure(p);
        KrGenVector<float> v;
        p.pack(v, t);
        return v;
    }
    AffineTransform unpacked(const KrGenVector<float>& v) const {
        AffineProblem p;
        configure(p);
        AffineTransform t = xform;
        p.unpack(v, t);
        return t;
    }
    // The search image warped under v, as normalised pixels.
    KrGenVector<float> warped(const KrGenVector<float>& v) const {
        KrGenMatrix<float> m;
        unpacked(v).getMatrix(m);
        Image out(pattern.getBounds(), search.getFormat());
        Orvane::xform_bilinear<float>(search, out, m, centre, anchor);
        KrGenVector<float> pixels;
        flattenImage(Orvane::convertToDatatype(out, Orvane::FLOAT), pixels);
        unbias(pixels);
        return pixels;
    }

    KrGenVector<float> x;
    KrGenVector<float> projected;
};

} // namespace

TEST(AffineProblem, KeptAndFusedSolveMatchesThePlainOneOnRandomProblems) {
    std::mt19937 rng(2024);
    std::uniform_int_distribution<int> size(12, 33), coin(0, 1);
    std::uniform_real_distribution<double> angle(-6 * kDegree, 6 * kDegree), scale(0.95, 1.05),
        shift(-1.5, 1.5);
    // One problem for every case: what an execute keeps for the next must
    // not change the next one's answer.
    AffineProblem kept;
    for (int i = 0; i < 24; ++i) {
        const Texture tex(100 + i);
        const int w = size(rng), h = size(rng);
        setUp(kept, tex, w, h, angle(rng), scale(rng), shift(rng), shift(rng), false);
        const bool flags[4] = {i % 5 != 4, bool(coin(rng)), bool(coin(rng)), bool(coin(rng))};
        kept.setUseTranslation(flags[0]);
        kept.setUseRotation(flags[1]);
        kept.setUseScale(flags[2]);
        kept.setUseStretch(flags[3]);
        kept.setCoarseToFine(i % 3 != 2);
        kept.setXform(AffineTransform(0.25f, -0.25f, 0.01f, 1.01f, 0.99f, 1.0f));

        ReferenceProblem plain;
        plain.pattern = kept.getPattern();
        plain.search = kept.getSearch();
        plain.anchor = kept.getAnchor();
        plain.centre = kept.getCentre();
        std::copy(flags, flags + 4, plain.flags);
        plain.coarseToFine = kept.getCoarseToFine();
        plain.xform = kept.getXform();

        kept.execute();
        plain.execute();
        SCOPED_TRACE(testing::Message()
                     << "case " << i << ": " << w << "x" << h << " " << plain.xform);
        EXPECT_EQ(plain.iterations, kept.getIterations());
        EXPECT_EQ(plain.halfIterations, kept.getHalfSizeIterations());
        const AffineTransform& t = kept.getXform();
        // Positions to 1e-4 pixel; the shape parameters, near 1 or near 0
        // radians, to 1e-5 of their size or of 1.
        EXPECT_NEAR(plain.xform.tx, t.tx, 1e-4);
        EXPECT_NEAR(plain.xform.ty, t.ty, 1e-4);
        KrGenMatrix<float> m;
        plain.xform.getMatrix(m);
        EXPECT_NEAR(m(0, 2), kept.getResultTx(), 1e-4);
        EXPECT_NEAR(m(1, 2), kept.getResultTy(), 1e-4);
        const float shape[4][2] = {{plain.xform.ro, t.ro},
                                   {plain.xform.sc, t.sc},
                                   {plain.xform.st0, t.st0},
                                   {plain.xform.st1, t.st1}};
        for (const auto& p : shape)
            EXPECT_NEAR(p[0], p[1], 1e-5 * std::max(1.0f, std::fabs(p[0])));
        EXPECT_NEAR(plain.quality, kept.getQuality(), 1e-5);
        EXPECT_GT(kept.getIterations(), 0);
    }
}

namespace {

// A random case with `channels` interleaved channels, each its own texture:
// the search image is the pattern turned, scaled and shifted about the
// centre, as in setUp, and the start is a random nearby transform.
void randomCase(AffineProblem& p, std::mt19937& rng, int channels) {
    std::uniform_int_distribution<int> size(12, 33);
    std::uniform_real_distribution<double> unit(-1, 1);
    const int w = size(rng), h = size(rng);
    const double angle = 6 * kDegree * unit(rng), scale = 1 + 0.05 * unit(rng);
    const double sx = 1.5 * unit(rng), sy = 1.5 * unit(rng);
    std::vector<Texture> tex;
    tex.reserve(channels);
    for (int k = 0; k < channels; ++k)
        tex.emplace_back(unsigned(rng()));
    const GenPoint<float> anchor(3.25f, -2.5f), centre(40.25f, 17.5f);
    const GenRect<int> pb(3 - w / 2, -3 - h / 2, w, h);
    const GenRect<int> sb(pb.x + 37 - 12, pb.y + 20 - 12, w + 24, h + 24);
    const Format f(channels == 1 ? "l" : "rgb", Orvane::FLOAT, false);
    Image pattern(pb, f), search(sb, f);
    float *pp, *sp;
    pattern.getBuffer(pp);
    search.getBuffer(sp);
    const double c = std::cos(angle) / scale, s = std::sin(angle) / scale;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int k = 0; k < channels; ++k)
                *pp++ = float(tex[k](pb.x + x + 0.5, pb.y + y + 0.5));
    for (int y = 0; y < sb.h; ++y)
        for (int x = 0; x < sb.w; ++x) {
            const double du = sb.x + x + 0.5 - centre.x - sx, dv = sb.y + y + 0.5 - centre.y - sy;
            for (int k = 0; k < channels; ++k)
                *sp++ = float(tex[k](anchor.x + c * du + s * dv, anchor.y - s * du + c * dv));
        }
    p.setPattern(pattern);
    p.setSearch(search);
    p.setAnchor(anchor);
    p.setCentre(centre);
    p.setXform(AffineTransform(float(unit(rng)), float(unit(rng)), float(0.03 * unit(rng)),
                               float(1 + 0.03 * unit(rng)), float(1 + 0.03 * unit(rng)),
                               float(1 + 0.03 * unit(rng))));
}

void copySettings(const AffineProblem& from, AffineProblem& to) {
    to.setPattern(from.getPattern());
    to.setSearch(from.getSearch());
    to.setAnchor(from.getAnchor());
    to.setCentre(from.getCentre());
    to.setUseTranslation(from.getUseTranslation());
    to.setUseRotation(from.getUseRotation());
    to.setUseScale(from.getUseScale());
    to.setUseStretch(from.getUseStretch());
    to.setCoarseToFine(from.getCoarseToFine());
    to.setXform(from.getXform());
}

// The largest |element| of `v`.
float largest(const KrGenVector<float>& v) {
    float m = 0;
    for (int i = 0; i < v.length(); ++i)
        m = std::max(m, std::fabs(v(i)));
    return m;
}

} // namespace

TEST(AffineProblem, DefaultPathMatchesTheReferencePathOnRandomProblems) {
    // Every combination of free parameters (none free included), coarse to
    // fine on and off, one and three channels. One fast problem serves all
    // cases, so nothing it keeps may leak into the next answer.
    std::mt19937 rng(4242);
    AffineProblem fast;
    for (int c = 0; c < 64; ++c) {
        const int channels = c & 32 ? 3 : 1;
        randomCase(fast, rng, channels);
        fast.setUseTranslation(c & 1);
        fast.setUseRotation(c & 2);
        fast.setUseScale(c & 4);
        fast.setUseStretch(c & 8);
        fast.setCoarseToFine(c & 16);
        AffineProblem reference;
        copySettings(fast, reference);
        reference.setReferencePath(true);
        SCOPED_TRACE(testing::Message()
                     << "case " << c << ": " << channels << " channels "
                     << fast.getPattern().getBounds().w << "x" << fast.getPattern().getBounds().h);

        // The Jacobian at the start: the samples are the same, so only the
        // normalisation's rounding, an ulp of a normalised value, can differ,
        // and the difference quotient magnifies it by 1/0.001.
        KrGenVector<float> start = fast.initState(), y;
        KrGenMatrix<float> fastDy, referenceDy;
        fast.setX(start);
        fast.evalDy(fastDy);
        reference.setX(start);
        reference.evalDy(referenceDy);
        reference.evalY(y);
        const float quotientTolerance = 2 * FLT_EPSILON * std::max(1.0f, largest(y)) / 0.001f;
        ASSERT_EQ(referenceDy.rows(), fastDy.rows());
        ASSERT_EQ(referenceDy.cols(), fastDy.cols());
        float worst = 0;
        for (int j = 0; j < fastDy.cols(); ++j)
            for (int i = 0; i < fastDy.rows(); ++i)
                worst = std::max(worst, std::fabs(fastDy(i, j) - referenceDy(i, j)));
        EXPECT_LE(worst, quotientTolerance);

        fast.execute();
        reference.execute();
        EXPECT_EQ(reference.getIterations(), fast.getIterations());
        EXPECT_EQ(reference.getHalfSizeIterations(), fast.getHalfSizeIterations());
        EXPECT_NEAR(reference.getResultTx(), fast.getResultTx(), 1e-4);
        EXPECT_NEAR(reference.getResultTy(), fast.getResultTy(), 1e-4);
        const AffineTransform &r = reference.getXform(), &t = fast.getXform();
        const float shape[4][2] = {{r.ro, t.ro}, {r.sc, t.sc}, {r.st0, t.st0}, {r.st1, t.st1}};
        for (const auto& p : shape)
            EXPECT_NEAR(p[0], p[1], 1e-5 * std::max(1.0f, std::fabs(p[0])));
        EXPECT_NEAR(reference.getQuality(), fast.getQuality(), 1e-5);
    }
}

TEST(AffineProblem, TheProjectionAfterExecuteIsTheWarpAtTheResult) {
    // The final warp may be copied from the last Jacobian's base rather than
    // made again: it must be the warp at the result to the bit, whether the
    // solve ended there or not, with and without the half-size start.
    std::mt19937 rng(515);
    AffineProblem p;
    for (int c = 0; c < 12; ++c) {
        randomCase(p, rng, c % 4 == 3 ? 3 : 1);
        p.setCoarseToFine(c % 2 == 0);
        p.setUseStretch(c % 3 != 0);
        p.execute();
        // The projection's store is reused by setX: keep its pixels apart.
        const GenRect<int>& b = p.getProjected().getBounds();
        const size_t count = size_t(p.getProjected().getFormat().getNumChannels()) * b.w * b.h;
        float* pixels;
        p.getProjected().getBuffer(pixels);
        const std::vector<float> after(pixels, pixels + count);
        p.setX(p.initState());
        p.getProjected().getBuffer(pixels);
        EXPECT_EQ(0, std::memcmp(after.data(), pixels, sizeof(float) * count)) // NOLINT
            << "case " << c;
        EXPECT_GT(p.getIterations(), 0) << "case " << c;
    }
}
