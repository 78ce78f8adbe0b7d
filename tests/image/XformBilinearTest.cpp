#include "image/XformBilinear.h"

#include "image/Format.h"
#include "image/Image.h"

#include "support/ExpectThrows.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <random>
#include <vector>

using namespace Orvane;

namespace {

template <class S> Image randomImage(const GenRect<int>& bounds, int nc, unsigned seed) {
    const char* channels[] = {"", "l", "la", "rgb", "rgba"};
    Image img(bounds, Format(channels[nc], sizeof(S) == 4 ? FLOAT : DOUBLE, true));
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    for (int y = bounds.y; y < bounds.y + bounds.h; ++y) {
        S* row = static_cast<S*>(img.getBuffer(GenPoint<int>(bounds.x, y)));
        for (int k = 0; k < bounds.w * nc; ++k)
            row[k] = static_cast<S>(u(rng));
    }
    return img;
}

template <class S> double sampleAt(const Image& img, int x, int y, int k) {
    const S* p = static_cast<const S*>(img.getBuffer(GenPoint<int>(x, y)));
    return p[k];
}

// Bilinear sampling written from scratch: the position (in source pixel
// indices, centres on integers) is clamped into the source, then the four
// neighbours are blended. Clamping the position is the same as repeating
// the edge pixels.
template <class S> double reference(const Image& src, double sx, double sy, int k) {
    const GenRect<int>& b = src.getBounds();
    double u = std::min(std::max(sx - b.x, 0.0), double(b.w - 1));
    double v = std::min(std::max(sy - b.y, 0.0), double(b.h - 1));
    int i = std::min(int(std::floor(u)), b.w - 2);
    int j = std::min(int(std::floor(v)), b.h - 2);
    double fx = u - i, fy = v - j;
    auto P = [&](int di, int dj) { return sampleAt<S>(src, b.x + i + di, b.y + j + dj, k); };
    return (1 - fy) * ((1 - fx) * P(0, 0) + fx * P(1, 0)) +
           fy * ((1 - fx) * P(0, 1) + fx * P(1, 1));
}

template <class D> KrGenMatrix<D> affine(D a, D b, D c, D d, D e, D f) {
    KrGenMatrix<D> m(2, 3);
    m(0, 0) = a, m(0, 1) = b, m(0, 2) = c;
    m(1, 0) = d, m(1, 1) = e, m(1, 2) = f;
    return m;
}

Image floatImage(const GenRect<int>& bounds, int nc) {
    return Image(bounds, Format(nc == 1 ? "l" : "rgb", FLOAT, true));
}

} // namespace

TEST(XformBilinear, IdentityReproducesFloatAndDoubleSources) {
    const GenRect<int> bounds(3, -2, 9, 7);
    Image fsrc = randomImage<float>(bounds, 3, 1);
    Image dsrc = randomImage<double>(bounds, 3, 2);
    Image fdst = floatImage(bounds, 3), ddst = floatImage(bounds, 3);
    xform_bilinear(fsrc, fdst, affine<float>(1, 0, 0, 0, 1, 0));
    xform_bilinear(dsrc, ddst, affine<double>(1, 0, 0, 0, 1, 0));
    for (int y = bounds.y; y < bounds.y + bounds.h; ++y)
        for (int x = bounds.x; x < bounds.x + bounds.w; ++x)
            for (int k = 0; k < 3; ++k) {
                ASSERT_EQ(sampleAt<float>(fsrc, x, y, k), sampleAt<float>(fdst, x, y, k));
                ASSERT_EQ(float(sampleAt<double>(dsrc, x, y, k)), sampleAt<float>(ddst, x, y, k));
            }
}

TEST(XformBilinear, QuarterAndHalfPixelShiftMatchesReference) {
    const GenRect<int> bounds(0, 0, 8, 6);
    Image src = randomImage<float>(bounds, 1, 3);
    Image dst = floatImage(bounds, 1);
    xform_bilinear(src, dst, affine<float>(1, 0, 0.25f, 0, 1, 0.5f));
    for (int y = 0; y < bounds.h; ++y)
        for (int x = 0; x < bounds.w; ++x)
            // The blend of four float products: a few roundings of values
            // no larger than 1.
            ASSERT_NEAR(reference<float>(src, x + 0.25, y + 0.5, 0), sampleAt<float>(dst, x, y, 0),
                        4 * FLT_EPSILON)
                << x << "," << y;
}

TEST(XformBilinear, RotationAndScaleMatchReference) {
    const GenRect<int> src_b(-5, 4, 40, 30);
    Image fsrc = randomImage<float>(src_b, 3, 4);
    Image dsrc = randomImage<double>(src_b, 3, 5);
    const GenRect<int> dst_b(-60, -50, 64, 64);
    Image fdst = floatImage(dst_b, 3), ddst = floatImage(dst_b, 3);
    const float a = 0.6f * std::cos(0.4f), b = -0.6f * std::sin(0.4f);
    const float d = 0.6f * std::sin(0.4f), e = 0.6f * std::cos(0.4f);
    const float c = 30.25f, f = 40.5f;
    xform_bilinear(fsrc, fdst, affine<float>(a, b, c, d, e, f));
    xform_bilinear(dsrc, ddst, affine<double>(a, b, c, d, e, f));
    // Positions are evaluated in single precision: a few roundings of
    // magnitudes below 128 pixels. Random samples in [0, 1] change by at most
    // 1 per pixel, and the blend adds a few roundings of its own.
    const double tolerance = 4 * FLT_EPSILON * 128 + 4 * FLT_EPSILON;
    for (int y = dst_b.y; y < dst_b.y + dst_b.h; ++y)
        for (int x = dst_b.x; x < dst_b.x + dst_b.w; ++x) {
            double cx = x + 0.5, cy = y + 0.5;
            double sx = a * cx + b * cy + c - 0.5, sy = d * cx + e * cy + f - 0.5;
            for (int k = 0; k < 3; ++k) {
                ASSERT_NEAR(reference<float>(fsrc, sx, sy, k), sampleAt<float>(fdst, x, y, k),
                            tolerance);
                ASSERT_NEAR(reference<double>(dsrc, sx, sy, k), sampleAt<float>(ddst, x, y, k),
                            tolerance);
            }
        }
}

TEST(XformBilinear, PositionsOutsideRepeatTheEdgePixels) {
    // Column c holds c + 1, row r adds 100 r.
    Image src(GenRect<int>(0, 0, 5, 4), Format("l", FLOAT, true));
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 5; ++x)
            static_cast<float*>(src.getBuffer(GenPoint<int>(x, y)))[0] = x + 1 + 100.0f * y;
    Image dst = floatImage(GenRect<int>(0, 0, 20, 4), 1);
    xform_bilinear(src, dst, affine<float>(1, 0, -10, 0, 1, 0));
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 10; ++x)
            EXPECT_EQ(1 + 100.0f * y, sampleAt<float>(dst, x, y, 0)) << x;
        for (int x = 10; x < 15; ++x)
            EXPECT_EQ(x - 9 + 100.0f * y, sampleAt<float>(dst, x, y, 0)) << x;
        for (int x = 15; x < 20; ++x)
            EXPECT_EQ(5 + 100.0f * y, sampleAt<float>(dst, x, y, 0)) << x;
    }
    // Far above and below, the first and last rows.
    Image far = floatImage(GenRect<int>(0, 0, 1, 2), 1);
    xform_bilinear(src, far, affine<float>(1, 0, 2, 0, 4e9f, -4e9f));
    EXPECT_EQ(3.0f, sampleAt<float>(far, 0, 0, 0));
    EXPECT_EQ(303.0f, sampleAt<float>(far, 0, 1, 0));
}

TEST(XformBilinear, NarrowAndEmptySources) {
    Image column(GenRect<int>(0, 0, 1, 3), Format("l", FLOAT, true));
    float* p = static_cast<float*>(column.getBuffer());
    p[0] = 1, p[1] = 2, p[2] = 4;
    Image dst = floatImage(GenRect<int>(0, 0, 3, 2), 1);
    xform_bilinear(column, dst, affine<float>(1, 0, 0, 0, 1, 0.5f));
    for (int x = 0; x < 3; ++x) {
        EXPECT_EQ(1.5f, sampleAt<float>(dst, x, 0, 0));
        EXPECT_EQ(3.0f, sampleAt<float>(dst, x, 1, 0));
    }
    Image empty(GenRect<int>(0, 0, 0, 0), Format("l", FLOAT, true));
    xform_bilinear(empty, dst, affine<float>(1, 0, 0, 0, 1, 0));
    for (int x = 0; x < 3; ++x)
        EXPECT_EQ(0.0f, sampleAt<float>(dst, x, 1, 0));
}

TEST(XformBilinear, RejectsWhatItCannotWarp) {
    const GenRect<int> b(0, 0, 4, 4);
    Image dst = floatImage(b, 1);
    for (int t : {UB1, UB2, UB4}) {
        Image src(b, Format("l", t, true));
        expectThrows<IllegalArgumentException>(
            [&] { xform_bilinear(src, dst, affine<float>(1, 0, 0, 0, 1, 0)); },
            "xform_bilinear only supports float and double");
    }
    std::vector<unsigned char> bytes(64);
    Image unknown(b, Format("l", 9, true), bytes.data(), 16);
    expectThrows<IllegalArgumentException>(
        [&] { xform_bilinear(unknown, dst, affine<double>(1, 0, 0, 0, 1, 0)); },
        "src datatype unknown");
    Image fsrc = floatImage(b, 1);
    Image ddst(b, Format("l", DOUBLE, false));
    expectThrows<IllegalArgumentException>(
        [&] { xform_bilinear(fsrc, ddst, affine<float>(1, 0, 0, 0, 1, 0)); },
        "wrong datatype float; image is Format(L, double, true)");
    Image rgb = floatImage(b, 3);
    expectThrows<IllegalArgumentException>(
        [&] { xform_bilinear(rgb, dst, affine<double>(1, 0, 0, 0, 1, 0)); },
        "nc == dstfmt.getNumChannels()");
}
