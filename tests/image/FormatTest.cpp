#include "image/Format.h"

#include "image/Color.h"

#include "support/ExpectThrows.h"

#include <memory>
#include <sstream>
#include <utility>
#include <vector>

using Orvane::Color;
using Orvane::Format;
using Orvane::UB1;

TEST(Format, ParsingPlacesEachChannelAndRejectsUnknownLetters) {
    Format bgra("bgra", UB1, false);
    EXPECT_EQ(2, bgra.getChannel('r'));
    EXPECT_EQ(0, bgra.getChannel('b'));
    // Padding counts as a channel but has no name.
    Format xrgb("XrGb", UB1, false);
    EXPECT_EQ(4, xrgb.getNumChannels());
    EXPECT_EQ(1, xrgb.getChannel('R'));
    EXPECT_EQ(3, xrgb.getChannel('B'));
    EXPECT_EQ("LAGB", Format("xlxaxgxb", UB1, false).getChannelOrder().str());
    for (const char* bad : {"rgbq", "r g", "y"})
        expectThrows<IllegalArgumentException>([&] { Format(bad, UB1, false); }, bad);
}

TEST(Format, ChannelQueries) {
    // getIndex takes lower case only and answers -1; getChannel throws.
    const Format& f = Format::getRGBA();
    EXPECT_EQ(-1, f.getIndex('R'));
    EXPECT_EQ(0, f.getChannel('R'));
    EXPECT_EQ(3, f.getIndex('a'));
    expectThrows<IllegalArgumentException>([&] { f.getChannel('x'); }, "no such channel \"x\"");
    // identifyChannel(-1) names the first absent channel.
    Format xl("xl", UB1, false);
    EXPECT_EQ('x', xl.identifyChannel(0));
    EXPECT_EQ('l', xl.identifyChannel(1));
    EXPECT_EQ('r', xl.identifyChannel(-1));
    EXPECT_EQ(0, xl.identifyChannel(-2));
    EXPECT_EQ('l', Format::getBGRA().identifyChannel(-1));
    EXPECT_EQ(0, Format("rgbal", UB1, false).identifyChannel(-1));
}

TEST(Format, PremultipliedFlagPrintingAndMasks) {
    EXPECT_TRUE(Format::getRGB().isPremult());
    EXPECT_NE(Format::getRGB(), Format("rgb", UB1, true));
    EXPECT_FALSE(Format::getRGBA().isPremult());
    Format f = Format::getRGBA();
    f.setPremult(true);
    EXPECT_EQ(Format::getrgba(), f);
    EXPECT_NE(Format::getL().withDatatype(Orvane::FLOAT), Format::mono(Orvane::FLOAT));
    // Without alpha the printout shows it premultiplied, whatever the flag.
    std::ostringstream os;
    os << Format("l", Orvane::FLOAT, false) << Format("xx", Orvane::DOUBLE, false)
       << Format("la", 9, false) << Format::getBGRA() << Color(1, 22, 133, 0);
    EXPECT_EQ("Format(L, float, true)Format(, double, true)Format(LA, unknown, false)"
              "Format(BGRA, ub1, false)Color[1,22,133,0]",
              os.str());
    EXPECT_EQ(0x000000FFu, Format::getRGBA().getRMask());
    EXPECT_EQ(0xFF000000u, Format::getRGBA().getAMask());
    EXPECT_EQ(0u, Format::getRGBA().getLMask());
    EXPECT_EQ(0xFFFF0000u, Format("la", Orvane::UB2, false).getAMask());
    // Runs wider than 32 bits saturate; runs shifted past bit 31 vanish.
    EXPECT_EQ(0xFFFFFFFFu, Format("r", Orvane::DOUBLE, false).getRMask());
    EXPECT_EQ(0u, Format("rg", Orvane::DOUBLE, false).getGMask());
    expectThrows<IllegalArgumentException>([] { Format("rgba", 9, false).getRMask(); }, "datatype");
}

TEST(Format, GlEnumsAndPixels) {
    const std::pair<const char*, unsigned> cases[] = {
        {"l", 0x1909},   {"la", 0x190A},   {"r", 0x1903},    {"xg", 0x1904},
        {"b", 0x1905},   {"a", 0x1906},    {"rgb", 0x1907},  {"rgba", 0x1908},
        {"bgr", 0x80E0}, {"bgra", 0x80E1}, {"rgbx", 0x1907}, {"xrgb", 0x1907},
    };
    for (const auto& [channels, gl] : cases)
        EXPECT_EQ(gl, Format(channels, UB1, false).glGetFormat()) << channels;
    for (const char* bad : {"", "al", "rg", "abgr"})
        expectThrows<const char*>([&] { Format(bad, UB1, false).glGetFormat(); },
                                  "GL format representation not available");
    const unsigned types[] = {0x1401, 0x1403, 0x1405, 0x1406, 0x140A};
    for (int t = 1; t <= 5; ++t)
        EXPECT_EQ(types[t - 1], Format::getL().withDatatype(t).glGetType()) << t;
    for (int bad : {0, 6})
        expectThrows<const char*>([&] { Format("l", bad, false).glGetType(); },
                                  "GL type representation not available");
    const Color c(10, 20, 30, 40);
    std::unique_ptr<unsigned char[]> bgrx(Format("bgrx", UB1, false).getPixel(c));
    std::unique_ptr<unsigned char[]> al(Format("al", UB1, true).getPixel(c));
    EXPECT_EQ(std::vector<int>({30, 20, 10, 0, 40, c.lightness()}),
              std::vector<int>({bgrx[0], bgrx[1], bgrx[2], bgrx[3], al[0], al[1]}));
    expectThrows<IllegalArgumentException>(
        [&] { delete[] Format("rgba", Orvane::UB2, false).getPixel(c); }, "only UB1 supported yet");
}

TEST(Color, ParsingAndArithmetic) {
    // k = (L + 2) / 3 digits a component, each shifted right by k - 2
    // (mod 32) and cut to 8 bits. Text without a leading # is refused with
    // a bare string.
    // clang-format off
    const std::pair<const char*, Color> cases[] = {
        {"#ff8000", Color(255, 128, 0)}, {"#ff80", Color(255, 128, 0)}, // k 2, blue empty
        {"#fff", Color(0, 0, 0)},                                       // k 1: shift 31
        {"#123456789", Color(0x91, 0x2b, 0xc4)}, // k 3: 0x123 >> 1 = 0x91, 0x456 >> 1, 0x789 >> 1
        {"#abcdef012345", Color(0xf3, 0xc0, 0xd1)}, // k 4: 0xabcd >> 2 = 0x2af3, ...
    };
    // clang-format on
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(expected, Color(dstring(text))) << text;
    for (const char* bad : {"red", "", " #ff0000"})
        expectThrows<const char*>([&] { Color(dstring(bad)); }, "unrecognized color");
    // brighten and * keep the low byte of the integer rather than clamping.
    EXPECT_EQ(Color(144, 200, 100), Color(200, 100, 50).brighten(2.0));
    EXPECT_EQ(Color(156, 0, 255, 9), Color(100, 0, 1, 9).brighten(-1.0));
    EXPECT_EQ(Color(144, 200, 100, 144), Color(200, 100, 50, 200) * 2.0);
    // + and - saturate.
    EXPECT_EQ(Color(9, 0, 27, 36), Color(10, 20, 30, 40) - Color(1, 30, 3, 4));
    EXPECT_EQ(Color(255, 22, 33, 254), Color(200, 20, 30, 250) + Color(100, 2, 3, 4));
    // mix truncates and clamps its parameter.
    EXPECT_EQ(Color(25, 50, 10, 20), Color::mix(Color(0, 0, 0, 0), Color(100, 200, 40, 80), 0.25));
    EXPECT_EQ(Color::getRed(), Color::mix(Color::getRed(), Color::getBlue(), -3.0));
    EXPECT_EQ(Color::getBlue(), Color::mix(Color::getRed(), Color::getBlue(), 7.0));
    // Lightness weighs 54, 183 and 19 out of 256.
    EXPECT_EQ(182, Color::getGreen().lightness());
    EXPECT_EQ((54 * 10 + 183 * 20 + 19 * 30) / 256, Color(10, 20, 30).lightness());
}
