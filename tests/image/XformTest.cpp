#include "image/Xform.h"

#include "image/Rotate.h"

#include "support/ExpectThrows.h"

#include <cfloat>
#include <cmath>
#include <cstring>
#include <random>

using namespace Orvane;

namespace {

template <class T> struct Traits;
template <> struct Traits<unsigned char> {
    static constexpr int datatype = UB1;
    static constexpr double unit = 1; // one ramp step
};
template <> struct Traits<unsigned short> {
    static constexpr int datatype = UB2;
    static constexpr double unit = 256;
};
template <> struct Traits<unsigned int> {
    static constexpr int datatype = UB4;
    static constexpr double unit = 1 << 20;
};
template <> struct Traits<float> {
    static constexpr int datatype = FLOAT;
    static constexpr double unit = 1.0 / 256;
};
template <> struct Traits<double> {
    static constexpr int datatype = DOUBLE;
    static constexpr double unit = 1.0 / 256;
};

template <class T> T& at(const Image& img, int x, int y, int k = 0) {
    return static_cast<T*>(img.getBuffer(GenPoint<int>(x, y)))[k];
}

template <class T> Image image(const GenRect<int>& b, const char* channels = "l") {
    return Image(b, Format(channels, Traits<T>::datatype, true));
}

template <class T> void expectSamePixels(const Image& a, const Image& b) {
    ASSERT_EQ(a.getBounds(), b.getBounds());
    const GenRect<int>& r = a.getBounds();
    const int nc = a.getFormat().getNumChannels();
    for (int y = r.y; y < r.y + r.h; ++y)
        for (int x = r.x; x < r.x + r.w; ++x)
            for (int k = 0; k < nc; ++k)
                ASSERT_EQ(at<T>(a, x, y, k), at<T>(b, x, y, k)) << x << "," << y << "," << k;
}

template <class T> Image randomImage(const GenRect<int>& b, const char* channels, unsigned seed) {
    Image img = image<T>(b, channels);
    std::mt19937 rng(seed);
    const int nc = img.getFormat().getNumChannels();
    for (int y = b.y; y < b.y + b.h; ++y)
        for (int x = b.x; x < b.x + b.w; ++x)
            for (int k = 0; k < nc; ++k)
                at<T>(img, x, y, k) = T(std::is_integral<T>::value ? rng() : rng() * 0x1p-32);
    return img;
}

// The filtered value may differ from the exact one by the final rounding
// only: half a step for integer samples; for float one unit in the last
// place per pass; for double a few roundings of the handful of products.
template <class T> double tolerance(double expected) {
    if (std::is_integral<T>::value)
        return 0.5;
    if (std::is_same<T, float>::value)
        return 2 * FLT_EPSILON * std::fabs(expected);
    return 16 * DBL_EPSILON * std::fabs(expected);
}

template <class T> class XformTyped : public ::testing::Test {};
using SampleTypes = ::testing::Types<unsigned char, unsigned short, unsigned int, float, double>;
TYPED_TEST_SUITE(XformTyped, SampleTypes);

} // namespace

TYPED_TEST(XformTyped, HalfScaleOfARampIsTheRampAtTheMappedCentres) {
    using T = TypeParam;
    const double unit = Traits<T>::unit;
    const GenRect<int> b(10, 6, 40, 30);
    Image img = image<T>(b);
    // 2 steps a column, 3 a row, indices counted from the corner.
    auto ramp = [&](double i, double j) { return (2 * i + 3 * j + 10) * unit; };
    for (int j = 0; j < b.h; ++j)
        for (int i = 0; i < b.w; ++i)
            at<T>(img, b.x + i, b.y + j) = T(ramp(i, j));

    Image half = scale(img, 0.5, 0.5);
    ASSERT_EQ(GenRect<int>(5, 3, 20, 15), half.getBounds());
    EXPECT_TRUE(half.getFormat().isPremult());
    for (int j = 0; j < 15; ++j)
        for (int i = 0; i < 20; ++i) {
            // Output centre i + 0.5 is source centre 2 i + 1, index 2 i + 0.5;
            // the taps there sit symmetrically, so a ramp comes out exact.
            const double expected = ramp(2 * i + 0.5, 2 * j + 0.5);
            const double got = at<T>(half, 5 + i, 3 + j);
            if (i > 0 && i < 19 && j > 0 && j < 14)
                ASSERT_NEAR(expected, got, tolerance<T>(expected)) << i << "," << j;
            else
                // At the edges the missing taps are left out, not read as
                // black: the weights' centre moves inwards by less than a
                // source pixel on each axis, 2 + 3 steps at most.
                ASSERT_NEAR(expected, got, 5 * unit) << i << "," << j;
        }
}

TYPED_TEST(XformTyped, IdentityAndWholePixelShiftsCopyExactly) {
    using T = TypeParam;
    Image img = randomImage<T>(GenRect<int>(-3, 4, 17, 11), "rgb", 7);
    mat3 id = identity2D();
    expectSamePixels<T>(img, xform(img, id, 0.0));
    mat3 shift = translation2D(vec2(3, -2));
    Image moved = xform(img, shift, 0.0);
    ASSERT_EQ(GenRect<int>(0, 2, 17, 11), moved.getBounds());
    expectSamePixels<T>(img, moved.offset(GenPoint<int>(3, -2)));
}

TYPED_TEST(XformTyped, ConstantsStayConstantAtEveryScale) {
    using T = TypeParam;
    // The largest sample: integer accumulators must not overflow at the
    // widest kernel.
    const T value = std::is_integral<T>::value ? std::numeric_limits<T>::max() : T(0.7);
    Image img = image<T>(GenRect<int>(0, 0, 64, 48), "la");
    for (int y = 0; y < 48; ++y)
        for (int x = 0; x < 64; ++x)
            at<T>(img, x, y, 0) = at<T>(img, x, y, 1) = value;
    for (double s : {2.0, 0.5, 0.3, 1.0 / 16, 1.0 / 32}) {
        Image out = scale(img, s, s);
        const GenRect<int>& r = out.getBounds();
        ASSERT_EQ(std::round(64 * s), r.w) << s;
        for (int y = r.y; y < r.y + r.h; ++y)
            for (int x = r.x; x < r.x + r.w; ++x)
                for (int k = 0; k < 2; ++k)
                    ASSERT_NEAR(double(value), double(at<T>(out, x, y, k)), tolerance<T>(value))
                        << s << " " << x << "," << y;
    }
}

TEST(Xform, MarginAroundTheImageIsZero) {
    Image img = randomImage<unsigned char>(GenRect<int>(0, 0, 6, 5), "l", 3);
    mat3 id = identity2D();
    Image out = xform(img, id, 2.0);
    ASSERT_EQ(GenRect<int>(-2, -2, 10, 9), out.getBounds());
    for (int y = -2; y < 7; ++y)
        for (int x = -2; x < 8; ++x) {
            bool inside = x >= 0 && x < 6 && y >= 0 && y < 5;
            EXPECT_EQ(inside ? at<unsigned char>(img, x, y) : 0, at<unsigned char>(out, x, y));
        }
}

TEST(Xform, LargerOffDiagonalSwapsTheColumnsInPlace) {
    Image img = randomImage<unsigned short>(GenRect<int>(2, 1, 7, 4), "rgba", 5);
    // A quarter turn: |m01| > |m00|, so the map applied is its columns
    // swapped, a mirror in x, and the caller sees it.
    mat3 quarter = rotation2D(vec2(0, 0), 90.0);
    mat3 expected = quarter.swapCols(0, 1);
    Image out = xform(img, quarter, 0.0);
    EXPECT_EQ(expected, quarter);
    ASSERT_EQ(GenRect<int>(-9, 1, 7, 4), out.getBounds());
    expectSamePixels<unsigned short>(flipHorizontal(img).offset(GenPoint<int>(11, 0)), out);
}

TEST(Xform, StraightAlphaIsPremultipliedFirst) {
    Image img(GenRect<int>(0, 0, 8, 6), Format::getRGBA());
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 8; ++x) {
            unsigned char* p = &at<unsigned char>(img, x, y);
            p[0] = 200, p[1] = 100, p[2] = 0, p[3] = 128;
        }
    Image out = scale(img, 0.5, 0.5);
    EXPECT_EQ(Format::getrgba(), out.getFormat());
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 4; ++x) {
            const unsigned char* p = &at<unsigned char>(out, x, y);
            EXPECT_EQ(100, p[0]);
            EXPECT_EQ(50, p[1]);
            EXPECT_EQ(0, p[2]);
            EXPECT_EQ(128, p[3]);
        }
}

TEST(Xform, RejectsSingularAndUnboundedMaps) {
    Image img = image<float>(GenRect<int>(0, 0, 4, 4));
    mat3 flat = scaling2D(vec2(1, 0));
    const mat3 before = flat;
    expectThrows<IllegalArgumentException>([&] { xform(img, flat, 0.0); },
                                           "xform: singular matrix");
    EXPECT_EQ(before, flat);
    expectThrows<IllegalArgumentException>([&] { scale(img, 0.0, 1.0); }, "xform: singular matrix");
    expectThrows<IllegalArgumentException>([&] { hxform(img, scaling2D(vec2(1e300, 1)), 0.0); },
                                           "hxform: output range out of bounds");
    expectThrows<IllegalArgumentException>([&] { vxform(img, scaling2D(vec2(1, NAN)), 0.0); },
                                           "vxform: output range out of bounds");
}

TEST(Xform, MapLeavesUnknownDatatypesAlone) {
    unsigned char src[4] = {1, 2, 3, 4}, dst[4] = {9, 9, 9, 9};
    mat2 id(vec2(1, 0), vec2(0, 1));
    map(src, 1, 0, 4, dst, 1, 0, 4, 1, id, Format("l", 0, true));
    EXPECT_EQ(0, std::memcmp(dst, "\x09\x09\x09\x09", 4));
    map(src, 1, 0, 4, dst, 1, 0, 4, 1, id, Format("l", UB1, true));
    EXPECT_EQ(0, std::memcmp(dst, src, 4));
}
