#include "image/Arithmetic.h"

#include "image/DatatypeSwitch.h"
#include "support/ExpectThrows.h"
#include "support/PixelProbe.h"

#include <cstdint>
#include <random>
#include <type_traits>
#include <vector>

using namespace Orvane;
using testsupport::DatatypeOf;
using testsupport::sampleAt;
using Rect = GenRect<int>;
using Pixel = std::vector<int>;

namespace {

template <class T> class SubtractPerType : public testing::Test {};
TYPED_TEST_SUITE(SubtractPerType, testsupport::SampleTypes);

Image row(const Format& f, const std::vector<double>& values) {
    const int nc = f.getNumChannels();
    Image img(Rect(0, 0, static_cast<int>(values.size()) / nc, 1), f);
    for (size_t i = 0; i < values.size(); ++i)
        switchDatatype(f.getDatatype(), "test", [&](auto s) {
            using T = typename decltype(s)::type;
            sampleAt<T>(img, static_cast<int>(i) / nc, 0, static_cast<int>(i) % nc) = T(values[i]);
        });
    return img;
}

Pixel rgbAt(const Image& img, int x) {
    auto* p = static_cast<unsigned char*>(img.getBuffer(GenPoint<int>(x, 0)));
    return Pixel(p, p + 3);
}

} // namespace

TYPED_TEST(SubtractPerType, DifferenceWrapsForUnsignedTypes) {
    using T = TypeParam;
    std::mt19937 rng(23);
    const Format f("rgb", DatatypeOf<T>::value, false);
    // b lies elsewhere and is larger: pixels pair by offset from the corner.
    Image a(Rect(1, 1, 4, 3), f), b(Rect(-7, 20, 6, 5), f);
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 6; ++x)
            for (int k = 0; k < 3; ++k) {
                sampleAt<T>(b, x - 7, y + 20, k) = static_cast<T>(rng() % 50000) / T(7);
                if (x < 4 && y < 3)
                    sampleAt<T>(a, x + 1, y + 1, k) = static_cast<T>(rng() % 50000) / T(7);
            }
    Image out;
    subtract(a, b, out);
    EXPECT_EQ(a.getBounds(), out.getBounds());
    EXPECT_EQ(f, out.getFormat());
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 4; ++x)
            for (int k = 0; k < 3; ++k) {
                T va = sampleAt<T>(a, x + 1, y + 1, k), vb = sampleAt<T>(b, x - 7, y + 20, k);
                T expected = va - vb;
                if constexpr (!std::is_floating_point<T>::value) {
                    const uint64_t modulus = uint64_t(1) << (8 * sizeof(T));
                    expected = static_cast<T>((uint64_t(va) + modulus - uint64_t(vb)) % modulus);
                }
                ASSERT_EQ(expected, sampleAt<T>(out, x + 1, y + 1, k));
            }
}

TEST(Subtract, ConvertsBReusesOutAndWraps) {
    Image a = row(Format::getRGB(), {10, 101, 102});
    Image b = row(Format::getBGR(), {5, 20, 30});
    Image out(a.getBounds(), Format::getRGB());
    Image keep = out;
    subtract(a, b, out);
    EXPECT_TRUE(out == keep);
    // b is blue 5, green 20, red 30, taken by meaning; 10 - 30 wraps to 236.
    EXPECT_EQ(Pixel({236, 81, 97}), rgbAt(out, 0));

    expectThrows<IllegalArgumentException>(
        [&] {
            subtract(row(Format::getL(), {1, 2}), row(Format::getL(), {1}), out);
        },
        "image bounds mismatch");
    Image unknown = row(Format::getL(), {1});
    unknown.setFormat(Format("l", 8, false));
    expectThrows<IllegalArgumentException>([&] { subtract(unknown, unknown, out); },
                                           "src datatype unknown");
}

TEST(DisplayNumeric, SignedValuesShowAsRedGreenAndBlue) {
    Image img = display_numeric(row(Format("l", FLOAT, false), {-1, 4, 0, 1, -6}), -1, 2.0);
    EXPECT_EQ(Format::getRGB(), img.getFormat());
    EXPECT_EQ(Rect(0, 0, 5, 1), img.getBounds());
    // v = sample / 2: red 255 (-v), green 255 v, blue 255 (|v| - 1), clamped.
    std::vector<Pixel> expected = {
        {127, 0, 0}, {0, 255, 255}, {0, 0, 0}, {0, 127, 0}, {255, 0, 255}};
    for (int x = 0; x < 5; ++x)
        EXPECT_EQ(expected[x], rgbAt(img, x));

    Image la = row(Format("la", DOUBLE, false), {0.5, -1.5});
    EXPECT_EQ(Pixel({0, 127, 0}), rgbAt(display_numeric(la, 0, 1.0), 0));
    EXPECT_EQ(Pixel({255, 0, 127}), rgbAt(display_numeric(la, 1, 1.0), 0));
}

TEST(DisplayNumeric, RejectsFixedPointAndBadChannels) {
    Image la = row(Format("la", FLOAT, false), {0, 0});
    expectThrows<IllegalArgumentException>([&] { display_numeric(la, -1, 1.0); }, "snc == 1");
    for (int c : {2, -2})
        expectThrows<IllegalArgumentException>([&] { display_numeric(la, c, 1.0); },
                                               "(c >= 0) && (c < snc)");
    for (int dt : {UB1, UB2, UB4})
        expectThrows<IllegalArgumentException>(
            [&] { display_numeric(row(Format("l", dt, false), {0}), -1, 1.0); },
            "display_numeric only supports float and double");
    Image unknown = row(Format::getL(), {1});
    unknown.setFormat(Format("l", 0, false));
    expectThrows<IllegalArgumentException>([&] { display_numeric(unknown, -1, 1.0); },
                                           "src datatype unknown");
}
