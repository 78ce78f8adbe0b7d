#include "image/Rescaler.h"
#include "image/Xform.h"

#include "support/ExpectThrows.h"
#include "support/PixelProbe.h"

#include <gtest/gtest.h>

#include <random>

using namespace Orvane;
using Rect = GenRect<int>;

namespace {

template <class T> class RescalerTyped : public ::testing::Test {};
using FloatingTypes = ::testing::Types<float, double>;
TYPED_TEST_SUITE(RescalerTyped, FloatingTypes);

// The two-pass transform walked run by run: the reference the table-driven
// passes must reproduce sample for sample.
Image twoPass(const Image& img, double sx, double sy) {
    mat3 m = scaling2D(vec2(sx, sy));
    return xform(img, m, 0.0);
}

template <class T> void expectSameImage(const Image& expected, const Image& actual) {
    ASSERT_EQ(expected.getBounds(), actual.getBounds());
    EXPECT_EQ(expected.getFormat(), actual.getFormat());
    testsupport::expectSamePixels<T>(expected, actual);
}

} // namespace

TYPED_TEST(RescalerTyped, ScaleGivesTheTwoPassSamplesToTheBit) {
    using T = TypeParam;
    std::mt19937 rng(5);
    std::uniform_int_distribution<int> origin(-40, 40), size(1, 37);
    const double factors[] = {0.5, 0.25, 0.7, 1.0, 1.5, 0.0625};
    for (int i = 0; i < 40; ++i) {
        const Rect b(origin(rng), origin(rng), size(rng), size(rng));
        // Samples of one channel and of three; the latter as a view inside a
        // larger image, so that its rows are padded.
        const Image plain = testsupport::randomImage<T>(b, "l", 100 + i);
        const Image wide =
            testsupport::randomImage<T>(Rect(b.x - 3, b.y - 2, b.w + 7, b.h + 4), "rgb", 200 + i);
        const Image view = wide.clip(b);
        const double sx = factors[i % 6], sy = factors[(i / 6) % 6];
        SCOPED_TRACE(testing::Message()
                     << b.x << "," << b.y << " " << b.w << "x" << b.h << " by " << sx << "," << sy);
        expectSameImage<T>(twoPass(plain, sx, sy), scale(plain, sx, sy));
        expectSameImage<T>(twoPass(view, sx, sy), scale(view, sx, sy));
    }
}

TYPED_TEST(RescalerTyped, ReusedAcrossBoundsAndSizesItMatchesAFreshScale) {
    using T = TypeParam;
    Rescaler halve(0.5, 0.5);
    // Same size moved, new size, then the first again: cached weights and
    // storage must follow the source, never the previous call.
    const Rect bounds[] = {Rect(0, 0, 21, 21), Rect(-7, 3, 21, 21), Rect(5, -9, 33, 18),
                           Rect(0, 0, 21, 21), Rect(1, 1, 1, 1)};
    for (int i = 0; i < 5; ++i) {
        const Image img = testsupport::randomImage<T>(bounds[i], "l", 300 + i);
        const Image& half = halve.apply(img);
        expectSameImage<T>(twoPass(img, 0.5, 0.5), half);
    }
}

TEST(Rescaler, RefusesWhatItCannotTakeAndScaleFallsBack) {
    const Rect b(0, 0, 8, 6);
    const Image bytes = testsupport::randomImage<unsigned char>(b, "l", 1);
    const Image straight = testsupport::randomImage<float>(b, "rgba", 2, false);
    const Image premultiplied = testsupport::randomImage<float>(b, "rgba", 3, true);
    Rescaler halve(0.5, 0.5);
    EXPECT_FALSE(halve.supports(bytes));
    EXPECT_FALSE(halve.supports(straight));
    EXPECT_FALSE(halve.supports(Image()));
    EXPECT_TRUE(halve.supports(premultiplied));
    EXPECT_FALSE(Rescaler(0.0, 0.5).supports(premultiplied));
    EXPECT_FALSE(Rescaler(0.5, -1.0).supports(premultiplied));
    expectThrows<IllegalArgumentException>([&] { halve.apply(bytes); },
                                           "Rescaler: unsupported image");
    // Integer samples keep the fixed-point walk.
    expectSameImage<unsigned char>(twoPass(bytes, 0.5, 0.5), scale(bytes, 0.5, 0.5));
}
