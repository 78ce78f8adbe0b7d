#include "image/Color.h"

#include "support/ExpectThrows.h"

#include <cmath>
#include <limits>
#include <sstream>

using Orvane::Color;

namespace {

void expectColor(const Color& c, int r, int g, int b, int a) {
    EXPECT_EQ(r, c.red);
    EXPECT_EQ(g, c.green);
    EXPECT_EQ(b, c.blue);
    EXPECT_EQ(a, c.alpha);
}

} // namespace

TEST(Color, ConstructorsWithoutAlphaAreOpaque) {
    expectColor(Color(), 0, 0, 0, 255);
    expectColor(Color(static_cast<unsigned char>(7)), 7, 7, 7, 255);
    expectColor(Color(Color(1, 2, 3, 4), 9), 1, 2, 3, 9);
}

TEST(Color, SixDigitFormIsExact) {
    expectColor(Color(dstring("#ff8000")), 255, 128, 0, 255);
    expectColor(Color(dstring("#ff8000"), 10), 255, 128, 0, 10);
    expectColor(Color(dstring("#0A0b0C")), 10, 11, 12, 255);
}

TEST(Color, OtherLengthsFollowTheDigitSplitLiterally) {
    // k = (L + 2) / 3 digits per component, each shifted right by k - 2
    // (mod 32) and cut to 8 bits.
    expectColor(Color(dstring("#fff")), 0, 0, 0, 255);      // k 1: shift 31
    expectColor(Color(dstring("#1")), 0, 0, 0, 255);        // k 1, green and blue empty
    expectColor(Color(dstring("#")), 0, 0, 0, 255);         // k 0: every piece empty
    expectColor(Color(dstring("#ff80")), 255, 128, 0, 255); // k 2, blue empty
    expectColor(Color(dstring("#12345")), 0x12, 0x34, 0x05, 255);
    // k 3, shift 1: 0x123 >> 1 = 0x91; 0x456 >> 1 = 0x22b -> 0x2b; "7" >> 1 = 3.
    expectColor(Color(dstring("#1234567")), 0x91, 0x2b, 0x03, 255);
    // 0x789 >> 1 = 0x3c4 -> 0xc4.
    expectColor(Color(dstring("#123456789")), 0x91, 0x2b, 0xc4, 255);
    // k 4, shift 2: 0xabcd >> 2 = 0x2af3; 0xef01 >> 2 = 0x3bc0; 0x2345 >> 2 = 0x8d1.
    expectColor(Color(dstring("#abcdef012345")), 0xf3, 0xc0, 0xd1, 255);
}

TEST(Color, InvalidDigitsEndAComponentEarly) {
    expectColor(Color(dstring("#fg8000")), 0x0f, 0x80, 0x00, 255);
    expectColor(Color(dstring("#zz80zz")), 0, 0x80, 0, 255);
}

TEST(Color, TextWithoutNumberSignIsRejectedWithABareString) {
    expectThrows<const char*>([] { Color(dstring("red")); }, "unrecognized color");
    expectThrows<const char*>([] { Color(dstring("")); }, "unrecognized color");
    expectThrows<const char*>([] { Color(dstring("ff0000"), 3); }, "unrecognized color");
    expectThrows<const char*>([] { Color(dstring(" #ff0000")); }, "unrecognized color");
}

TEST(Color, AssigningTextKeepsAlpha) {
    Color c(1, 2, 3, 40);
    c = dstring("#102030");
    expectColor(c, 0x10, 0x20, 0x30, 40);
    expectThrows<const char*>([&] { c = dstring("blue"); }, "unrecognized color");
    expectColor(c, 0x10, 0x20, 0x30, 40);
}

TEST(Color, LightnessWeightsSumTo256) {
    EXPECT_EQ(255, Color::getWhite().lightness());
    EXPECT_EQ(0, Color::getBlack().lightness());
    EXPECT_EQ(54 * 255 / 256, Color::getRed().lightness());
    EXPECT_EQ(182, Color::getGreen().lightness());
    EXPECT_EQ(19 * 255 / 256, Color::getBlue().lightness());
    EXPECT_EQ((54 * 10 + 183 * 20 + 19 * 30) / 256, Color(10, 20, 30).lightness());
}

TEST(Color, BrightenAndScaleWrapInsteadOfClamping) {
    expectColor(Color(200, 100, 50).brighten(2.0), 144, 200, 100, 255);
    expectColor(Color(200, 100, 50, 7).brighten(0.5), 100, 50, 25, 7);
    // -100 keeps its two's complement low byte.
    expectColor(Color(100, 0, 1, 9).brighten(-1.0), 156, 0, 255, 9);
    // Far out of int range still yields the low byte of the integer: 2^40 has none.
    expectColor(Color(1, 2, 3).brighten(std::ldexp(1.0, 40)), 0, 0, 0, 255);
    expectColor(Color(1, 2, 3).brighten(std::numeric_limits<double>::quiet_NaN()), 0, 0, 0, 255);

    expectColor(Color(200, 100, 50, 200) * 2.0, 144, 200, 100, 144);
    expectColor(Color(9, 19, 29, 39) * 0.5, 4, 9, 14, 19);
}

TEST(Color, SumAndDifferenceSaturate) {
    expectColor(Color::getRed() + Color::getGreen(), 255, 255, 0, 255);
    expectColor(Color::getWhite() - Color::getRed(), 0, 255, 255, 0);
    expectColor(Color(10, 20, 30, 40) + Color(1, 2, 3, 4), 11, 22, 33, 44);
    expectColor(Color(10, 20, 30, 40) - Color(1, 30, 3, 4), 9, 0, 27, 36);
}

TEST(Color, MixTruncatesAndClampsTheParameter) {
    expectColor(Color::mix(Color::getBlack(), Color::getWhite(), 0.5), 127, 127, 127, 255);
    expectColor(Color::mix(Color(0, 0, 0, 0), Color(100, 200, 40, 80), 0.25), 25, 50, 10, 20);
    EXPECT_EQ(Color::getRed(), Color::mix(Color::getRed(), Color::getBlue(), 0.0));
    EXPECT_EQ(Color::getRed(), Color::mix(Color::getRed(), Color::getBlue(), -3.0));
    EXPECT_EQ(Color::getBlue(), Color::mix(Color::getRed(), Color::getBlue(), 1.0));
    EXPECT_EQ(Color::getBlue(), Color::mix(Color::getRed(), Color::getBlue(), 7.0));
    EXPECT_EQ(Color::getRed(), Color::mix(Color::getRed(), Color::getBlue(),
                                          std::numeric_limits<double>::quiet_NaN()));
}

TEST(Color, DifferenceIsEuclideanOverFourComponents) {
    EXPECT_DOUBLE_EQ(5.0, Color::difference(Color(0, 0, 0, 0), Color(3, 4, 0, 0)));
    EXPECT_DOUBLE_EQ(13.0, Color::difference(Color(0, 0, 0, 255), Color(0, 0, 12, 250)));
    EXPECT_DOUBLE_EQ(255.0 * std::sqrt(3.0),
                     Color::difference(Color::getWhite(), Color::getBlack()));
    EXPECT_EQ(0.0, Color::difference(Color::getCyan(), Color::getCyan()));
}

TEST(Color, NamedColoursAreOpaquePrimariesAndTheirSums) {
    expectColor(Color::getRed(), 255, 0, 0, 255);
    expectColor(Color::getGreen(), 0, 255, 0, 255);
    expectColor(Color::getBlue(), 0, 0, 255, 255);
    EXPECT_EQ(Color::getYellow(), Color::getRed() + Color::getGreen());
    EXPECT_EQ(Color::getMagenta(), Color::getRed() + Color::getBlue());
    EXPECT_EQ(Color::getCyan(), Color::getGreen() + Color::getBlue());
    EXPECT_EQ(Color::getWhite(), Color::getYellow() + Color::getBlue());
    EXPECT_EQ(Color::getBlack(), Color(Color::getWhite() - Color::getWhite(), 255));
}

TEST(Color, PrintsComponentsInDecimal) {
    EXPECT_EQ("Color[255,0,0,255]", Color::getRed().str().str());
    std::ostringstream os;
    os << Color(1, 22, 133, 0);
    EXPECT_EQ("Color[1,22,133,0]", os.str());
    expectColor(Color(1, 2, 3, 4).opaque(), 1, 2, 3, 255);
    EXPECT_NE(Color(1, 2, 3, 4), Color(1, 2, 3, 5));
}
