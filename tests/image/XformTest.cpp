#include "image/Xform.h"
#include "image/Rotate.h"
#include "image/XformBilinear.h"

#include "support/ExpectThrows.h"
#include "support/PixelProbe.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

using namespace Orvane;
using testsupport::expectSamePixels;
using testsupport::sampleAt;
using Rect = GenRect<int>;

namespace {

template <class T> class XformTyped : public ::testing::Test {};
TYPED_TEST_SUITE(XformTyped, testsupport::SampleTypes);

// Bilinear sampling written from scratch: the position (in source pixel
// indices, centres on integers) is clamped into the source, then the four
// neighbours are blended.
template <class S> double reference(const Image& src, double sx, double sy, int k) {
    const Rect& b = src.getBounds();
    double u = std::min(std::max(sx - b.x, 0.0), double(b.w - 1));
    double v = std::min(std::max(sy - b.y, 0.0), double(b.h - 1));
    int i = std::min(int(std::floor(u)), b.w - 2), j = std::min(int(std::floor(v)), b.h - 2);
    double fx = u - i, fy = v - j;
    auto P = [&](int di, int dj) {
        return double(sampleAt<S>(src, b.x + i + di, b.y + j + dj, k));
    };
    return (1 - fy) * ((1 - fx) * P(0, 0) + fx * P(1, 0)) +
           fy * ((1 - fx) * P(0, 1) + fx * P(1, 1));
}

template <class D> KrGenMatrix<D> affine(D a, D b, D c, D d, D e, D f) {
    KrGenMatrix<D> m(2, 3);
    m(0, 0) = a, m(0, 1) = b, m(0, 2) = c;
    m(1, 0) = d, m(1, 1) = e, m(1, 2) = f;
    return m;
}

Image floatImage(const Rect& bounds, const char* channels = "l") {
    return Image(bounds, Format(channels, FLOAT, true));
}

int sample(const Image& img, int column, int row, int k) {
    return sampleAt<uint16_t>(img, img.getBounds().x + column, img.getBounds().y + row, k);
}

template <class S> void expectMatchesReference() {
    const Rect src_b(-5, 4, 40, 30), dst_b(-60, -50, 64, 64);
    Image src = testsupport::randomImage<S>(src_b, "rgb", 4);
    const float cs = 0.6f * std::cos(0.4f), sn = 0.6f * std::sin(0.4f);
    // Identity is exact. Otherwise positions are evaluated in single
    // precision, a few roundings of magnitudes below 128 pixels; samples in
    // [0, 1] change by at most 1 a pixel, and the blend adds a few roundings.
    const struct {
        float a, b, c, d, e, f;
        double tolerance;
    } cases[] = {{1, 0, 0, 0, 1, 0, 0},
                 {1, 0, 0.25f, 0, 1, 0.5f, 4 * FLT_EPSILON},
                 {cs, -sn, 30.25f, sn, cs, 40.5f, 4 * FLT_EPSILON * 129}};
    for (const auto& m : cases) {
        Image dst = floatImage(m.a == 1 ? src_b : dst_b, "rgb");
        xform_bilinear(src, dst, affine<S>(m.a, m.b, m.c, m.d, m.e, m.f));
        testsupport::forEachSample(dst, [&](int x, int y, int k) {
            double cx = x + 0.5, cy = y + 0.5;
            double sx = m.a * cx + m.b * cy + m.c - 0.5, sy = m.d * cx + m.e * cy + m.f - 0.5;
            ASSERT_NEAR(float(reference<S>(src, sx, sy, k)), sampleAt<float>(dst, x, y, k),
                        m.tolerance)
                << x << "," << y << " under " << m.c << "," << m.f;
        });
    }
}

} // namespace

TYPED_TEST(XformTyped, HalfScaleOfARampIsTheRampAtTheMappedCentresAndIdentityCopies) {
    using T = TypeParam;
    // One ramp step, by datatype: the ramp's 175 steps fit every range.
    const double unit = std::vector<double>{0, 1, 256, 1 << 20, 1.0 / 256, 1.0 / 256}.at(
        testsupport::DatatypeOf<T>::value);
    const Rect b(10, 6, 40, 30);
    Image img(b, Format("l", testsupport::DatatypeOf<T>::value, true));
    // 2 steps a column, 3 a row, indices counted from the corner.
    auto ramp = [&](double i, double j) { return (2 * i + 3 * j + 10) * unit; };
    testsupport::forEachSample(
        img, [&](int x, int y, int) { sampleAt<T>(img, x, y, 0) = T(ramp(x - b.x, y - b.y)); });
    Image half = scale(img, 0.5, 0.5);
    ASSERT_EQ(Rect(5, 3, 20, 15), half.getBounds());
    for (int j = 0; j < 15; ++j)
        for (int i = 0; i < 20; ++i) {
            // Output centre i + 0.5 is source index 2 i + 0.5; the taps sit
            // symmetrically there, so a ramp comes out exact up to the final
            // rounding: half a step for integers, a few ulps for floats.
            const double expected = ramp(2 * i + 0.5, 2 * j + 0.5);
            double tolerance = std::is_integral<T>::value      ? 0.5
                               : std::is_same<T, float>::value ? 2 * FLT_EPSILON * expected
                                                               : 16 * DBL_EPSILON * expected;
            // At the edges the missing taps are left out, not read as black:
            // the weights' centre moves inwards by under a source pixel a
            // axis, 2 + 3 steps at most.
            if (i == 0 || i == 19 || j == 0 || j == 14)
                tolerance = 5 * unit;
            ASSERT_NEAR(expected, sampleAt<T>(half, 5 + i, 3 + j, 0), tolerance) << i << "," << j;
        }
    Image noise = testsupport::randomImage<T>(Rect(-3, 4, 17, 11), "rgb", 7);
    mat3 id = identity2D();
    Image same = xform(noise, id, 0.0);
    EXPECT_EQ(noise.getBounds(), same.getBounds());
    testsupport::expectSamePixels<T>(noise, same);
}

TEST(Rotate, PixelsLandWhereTheTableSaysAndRoundTrip) {
    // A view, whose rows lie further apart than its width.
    Image img =
        testsupport::randomImage<uint16_t>(Rect(0, 0, 9, 8), "rgb", 1).clip(Rect(2, 5, 4, 3));
    const int w = 4, h = 3;
    Image cw = rotateCW(img), ccw = rotateCCW(img), fv = flipVertical(img),
          fh = flipHorizontal(img);
    EXPECT_EQ(Rect(-5, 2, 3, 4), cw.getBounds());
    EXPECT_EQ(Rect(8, -6, 3, 4), ccw.getBounds());
    for (int r = 0; r < h; ++r)
        for (int c = 0; c < w; ++c)
            for (int k = 0; k < 3; ++k) {
                const int v = sample(img, c, r, k);
                ASSERT_EQ(v, sample(cw, h - 1 - r, c, k));
                ASSERT_EQ(v, sample(ccw, r, w - 1 - c, k));
                ASSERT_EQ(v, sample(fv, c, h - 1 - r, k));
                ASSERT_EQ(v, sample(fh, w - 1 - c, r, k));
            }
    Image four = rotateCW(rotateCW(rotateCW(rotateCW(img))));
    EXPECT_EQ(img.getBounds(), four.getBounds());
    expectSamePixels<uint16_t>(img, four);
    Image back = rotateCCW(rotateCW(img));
    EXPECT_EQ(Rect(6, 2, 4, 3), back.getBounds());
    expectSamePixels<uint16_t>(img, back);
    expectSamePixels<uint16_t>(img, flipVertical(flipVertical(img)));
    expectSamePixels<uint16_t>(img, flipHorizontal(flipHorizontal(img)));
}

TEST(XformBilinear, MatchesAnIndependentBilinearReference) {
    expectMatchesReference<float>();
    expectMatchesReference<double>();
}

TEST(XformBilinear, PositionsOutsideRepeatTheEdgePixels) {
    // Column c holds c + 1, row r adds 100 r.
    Image src = floatImage(Rect(0, 0, 5, 4));
    testsupport::forEachSample(
        src, [&](int x, int y, int) { sampleAt<float>(src, x, y, 0) = x + 1 + 100.0f * y; });
    Image dst = floatImage(Rect(0, 0, 20, 4));
    xform_bilinear(src, dst, affine<float>(1, 0, -10, 0, 1, 0));
    testsupport::forEachSample(dst, [&](int x, int y, int) {
        EXPECT_EQ(std::clamp(x - 9, 1, 5) + 100.0f * y, sampleAt<float>(dst, x, y, 0)) << x;
    });
}

TEST(XformBilinear, RejectsWhatItCannotWarp) {
    const Rect b(0, 0, 4, 4);
    Image dst = floatImage(b);
    const auto idf = affine<float>(1, 0, 0, 0, 1, 0);
    const auto idd = affine<double>(1, 0, 0, 0, 1, 0);
    std::vector<unsigned char> bytes(64);
    for (int t : {UB1, UB2, UB4})
        expectThrows<IllegalArgumentException>(
            [&] { xform_bilinear(Image(b, Format("l", t, true)), dst, idf); },
            "xform_bilinear only supports float and double");
    expectThrows<IllegalArgumentException>(
        [&] { xform_bilinear(Image(b, Format("l", 9, true), bytes.data(), 16), dst, idd); },
        "src datatype unknown");
    expectThrows<IllegalArgumentException>(
        [&] { xform_bilinear(dst, Image(b, Format("l", DOUBLE, false)), idf); },
        "wrong datatype float; image is Format(L, double, true)");
    expectThrows<IllegalArgumentException>([&] { xform_bilinear(floatImage(b, "rgb"), dst, idd); },
                                           "nc == dstfmt.getNumChannels()");
}

namespace {

// One sample of the warp as its contract writes it, with the library's floor
// and every product and sum in float in the contract's order.
float literalSample(const Image& src, int x, int y, const float (&m)[6]) {
    const Rect& b = src.getBounds();
    const float cx = x + 0.5f, cy = y + 0.5f;
    const float sx = m[0] * cx + m[1] * cy + m[2] - 0.5f;
    const float sy = m[3] * cx + m[4] * cy + m[5] - 0.5f;
    auto axis = [](float s, int origin, int size, int& i, float& f) {
        i = int(std::floor(s)) - origin;
        f = i >= 0 ? s - std::floor(s) : 0.0f;
        i = std::max(i, 0);
        if (i > size - 2) {
            i = size - 2;
            f = 1.0f;
        }
    };
    int ix, iy;
    float fx, fy;
    axis(sx, b.x, b.w, ix, fx);
    axis(sy, b.y, b.h, iy, fy);
    auto P = [&](int i, int j) { return sampleAt<float>(src, b.x + i, b.y + j, 0); };
    return P(ix + 1, iy + 1) * fx * fy + P(ix, iy + 1) * (1 - fx) * fy +
           P(ix + 1, iy) * fx * (1 - fy) + P(ix, iy) * (1 - fx) * (1 - fy);
}

} // namespace

TEST(XformBilinear, SamplesAreTheContractsFloatArithmeticBitForBit) {
    // Positions on both sides of zero, on whole pixels, between them and
    // outside the source: the floor the warp uses must agree with the
    // library's everywhere.
    const Rect sb(-13, -9, 26, 19), db(-40, -30, 80, 60);
    const Image src = testsupport::randomImage<float>(sb, "l", 11);
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> linear(-1.3f, 1.3f), shift(-20, 20);
    for (int trial = 0; trial < 12; ++trial) {
        float m[6] = {linear(rng), linear(rng), shift(rng), linear(rng), linear(rng), shift(rng)};
        if (trial == 0) // whole-pixel positions, -0.5 + 0.5 included
            m[0] = 1, m[1] = 0, m[2] = 0, m[3] = 0, m[4] = 1, m[5] = 0;
        if (trial == 1) // whole and half-pixel positions, halved
            m[0] = 0.5f, m[1] = 0, m[2] = 0.25f, m[3] = 0, m[4] = 0.5f, m[5] = 0.25f;
        Image dst = floatImage(db);
        xform_bilinear(src, dst, affine<float>(m[0], m[1], m[2], m[3], m[4], m[5]));
        int differing = 0;
        testsupport::forEachSample(dst, [&](int x, int y, int) {
            const float expected = literalSample(src, x, y, m);
            const float actual = sampleAt<float>(dst, x, y, 0);
            // Bit for bit on purpose: the fast warp must round as the plain one.
            differing += std::memcmp(&expected, &actual, sizeof(float)) != 0; // NOLINT
        });
        EXPECT_EQ(0, differing) << "trial " << trial;
    }
}

TEST(XformBilinear, ManyWarpsInOnePassAreEachWarpBitForBit) {
    // Eleven warps, more than one pass carries: trial warps a small step
    // apart (most blocks share their pixels), one far off (every block loads
    // afresh) and one whose positions pass 1e9 (the plain loop's blocks).
    // Rows of 21 pixels end in an overlapping block.
    const Rect sb(-20, -16, 47, 41), db(-10, -7, 21, 17);
    const Image src = testsupport::randomImage<float>(sb, "l", 5);
    std::mt19937 rng(8);
    std::uniform_real_distribution<float> turn(-0.1f, 0.1f), shift(-3, 3);
    const float start[6] = {std::cos(turn(rng)), turn(rng), shift(rng),
                            turn(rng),           1.02f,     shift(rng)};
    const int count = 11;
    float m[count][6];
    for (int k = 0; k < count; ++k) {
        std::copy(start, start + 6, m[k]);
        m[k][k % 6] += 0.001f * float(k + 1);
    }
    m[7][2] += 9.5f;
    m[9][5] = 2e9f;
    std::vector<std::vector<float>> out(count, std::vector<float>(size_t(db.w) * db.h));
    float* rows[count];
    for (int k = 0; k < count; ++k)
        rows[k] = out[k].data();
    _bilinearRowsMany<float>(static_cast<const unsigned char*>(src.getBuffer()), sb,
                             src.getStride(), 1, db, count, m, rows);
    for (int k = 0; k < count; ++k) {
        int differing = 0;
        for (int y = 0; y < db.h; ++y)
            for (int x = 0; x < db.w; ++x) {
                const float expected = literalSample(src, db.x + x, db.y + y, m[k]);
                const float actual = out[k][size_t(y) * db.w + x];
                differing += std::memcmp(&expected, &actual, sizeof(float)) != 0; // NOLINT
            }
        EXPECT_EQ(0, differing) << "warp " << k;
    }
}

TEST(XformBilinear, WarpsNearATranslationMatchTheContractAtEverySourceEdge) {
    // Near-translations, whose blocks read rows rather than gather, over
    // sources from the narrowest that allow it (nine by three) down to the
    // smallest the vector loop takes, and a destination that runs past every
    // edge, where the row window is pulled back inside. One or several warps
    // at a time, turned either way.
    const Rect sizes[] = {Rect(-4, 2, 8, 2), Rect(-4, 2, 9, 3), Rect(3, -1, 10, 4),
                          Rect(-7, -6, 31, 12)};
    std::mt19937 rng(19);
    std::uniform_real_distribution<float> turn(-0.12f, 0.12f), scale(0.96f, 1.04f);
    for (const Rect& sb : sizes) {
        const Image src = testsupport::randomImage<float>(sb, "l", 23);
        const Rect db(sb.x - 6, sb.y - 5, sb.w + 12, sb.h + 10);
        const int count = 4;
        float m[count][6];
        for (int k = 0; k < count; ++k) {
            const float s = scale(rng), t = turn(rng);
            const float row[6] = {s, t, 0.37f * float(k) - 0.6f, -t, s, 0.29f - 0.21f * float(k)};
            std::copy(row, row + 6, m[k]);
        }
        std::vector<std::vector<float>> many(count, std::vector<float>(size_t(db.w) * db.h));
        float* rows[count];
        for (int k = 0; k < count; ++k)
            rows[k] = many[k].data();
        _bilinearRowsMany<float>(static_cast<const unsigned char*>(src.getBuffer()), sb,
                                 src.getStride(), 1, db, count, m, rows);
        for (int k = 0; k < count; ++k) {
            Image dst = floatImage(db);
            xform_bilinear(src, dst,
                           affine<float>(m[k][0], m[k][1], m[k][2], m[k][3], m[k][4], m[k][5]));
            int differing = 0;
            testsupport::forEachSample(dst, [&](int x, int y, int) {
                const float expected = literalSample(src, x, y, m[k]);
                const float one = sampleAt<float>(dst, x, y, 0);
                const float inGroup = many[k][size_t(y - db.y) * db.w + (x - db.x)];
                differing += std::memcmp(&expected, &one, sizeof(float)) != 0;     // NOLINT
                differing += std::memcmp(&expected, &inGroup, sizeof(float)) != 0; // NOLINT
            });
            EXPECT_EQ(0, differing) << sb.w << "x" << sb.h << " warp " << k;
        }
    }
}
