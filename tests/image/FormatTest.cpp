#include "image/Format.h"

#include "image/Color.h"
#include "image/DatatypeSwitch.h"

#include "support/ExpectThrows.h"

#include <memory>
#include <sstream>
#include <string>
#include <type_traits>

using Orvane::Color;
using Orvane::Format;

namespace {

std::string order(const Format& f) {
    return f.getChannelOrder().str();
}

} // namespace

TEST(Format, DefaultHasNoChannelsAndNoDatatype) {
    Format f;
    EXPECT_EQ(0, f.getNumChannels());
    EXPECT_EQ(Orvane::UNKNOWN, f.getDatatype());
    for (char c : {'r', 'g', 'b', 'a', 'l'})
        EXPECT_EQ(-1, f.getIndex(c));
    EXPECT_TRUE(f.getChannelOrder().empty());
    EXPECT_EQ(8u, sizeof(Format));
}

TEST(Format, BgraHasBlueFirst) {
    Format f("bgra", Orvane::UB1, false);
    EXPECT_EQ(4, f.getNumChannels());
    EXPECT_EQ(2, f.getChannel('r'));
    EXPECT_EQ(1, f.getChannel('g'));
    EXPECT_EQ(0, f.getChannel('b'));
    EXPECT_EQ(3, f.getChannel('a'));
    EXPECT_EQ(-1, f.getChannel('l'));
    EXPECT_EQ("BGRA", order(f));
    EXPECT_TRUE(f.BGRorder());
    EXPECT_FALSE(f.RGBorder());
    EXPECT_TRUE(Format::getRGB().RGBorder());
    EXPECT_FALSE(Format::getRGB().BGRorder());
}

TEST(Format, ParsingCountsPaddingAndRepeats) {
    Format xrgb("XrGb", Orvane::UB1, false);
    EXPECT_EQ(4, xrgb.getNumChannels());
    EXPECT_EQ(1, xrgb.getChannel('R'));
    EXPECT_EQ(3, xrgb.getChannel('B'));
    EXPECT_EQ("RGB", order(xrgb));
    EXPECT_EQ(0x1907u, xrgb.glGetFormat()); // GL_RGB for a four-channel pixel

    Format rr("rr", Orvane::UB1, false);
    EXPECT_EQ(2, rr.getNumChannels());
    EXPECT_EQ(1, rr.getChannel('r'));
    EXPECT_EQ("R", order(rr));

    Format none("", Orvane::FLOAT, true);
    EXPECT_EQ(0, none.getNumChannels());
    EXPECT_TRUE(none.getChannelOrder().empty());
    EXPECT_EQ(Orvane::FLOAT, none.getDatatype());

    EXPECT_EQ("LAGB", order(Format("xlxaxgxb", Orvane::UB1, false)));
    EXPECT_EQ("ABGR", order(Format("abgr", Orvane::UB1, false)));
}

TEST(Format, ParsingRejectsUnknownLettersWithTheWholeString) {
    expectThrows<IllegalArgumentException>([] { Format("rgbq", Orvane::UB1, false); }, "rgbq");
    expectThrows<IllegalArgumentException>([] { Format("r g", Orvane::UB1, false); }, "r g");
    expectThrows<IllegalArgumentException>([] { Format("y", Orvane::FLOAT, true); }, "y");
}

TEST(Format, GetIndexTakesLowerCaseOnlyAndGetChannelThrows) {
    const Format& f = Format::getRGBA();
    EXPECT_EQ(-1, f.getIndex('R'));
    EXPECT_EQ(0, f.getChannel('R'));
    EXPECT_EQ(0, f.getIndex('r'));
    EXPECT_EQ(3, f.getIndex('a'));
    EXPECT_EQ(-1, f.getIndex('x'));
    EXPECT_EQ(-1, f.getIndex('q'));
    expectThrows<IllegalArgumentException>([&] { f.getChannel('x'); }, "no such channel \"x\"");
    expectThrows<IllegalArgumentException>([&] { f.getChannel('?'); }, "no such channel \"?\"");
}

TEST(Format, IdentifyChannelComparesBeforeTestingTheSign) {
    Format xl("xl", Orvane::UB1, false);
    EXPECT_EQ('x', xl.identifyChannel(0));
    EXPECT_EQ('l', xl.identifyChannel(1));
    EXPECT_EQ(0, xl.identifyChannel(2));
    EXPECT_EQ('r', xl.identifyChannel(-1)); // red is the first absent channel
    EXPECT_EQ(0, xl.identifyChannel(-2));

    const Format& bgra = Format::getBGRA();
    EXPECT_EQ('b', bgra.identifyChannel(0));
    EXPECT_EQ('r', bgra.identifyChannel(2));
    EXPECT_EQ('a', bgra.identifyChannel(3));
    EXPECT_EQ('l', bgra.identifyChannel(-1));
    EXPECT_EQ(0, Format("rgbal", Orvane::UB1, false).identifyChannel(-1));
}

TEST(Format, PremultipliedOnlyMattersWithAlphaAndColour) {
    EXPECT_TRUE(Format::getRGB().isPremult());
    EXPECT_NE(Format::getRGB(), Format("rgb", Orvane::UB1, true));
    EXPECT_TRUE(Format::getA().isPremult());
    EXPECT_FALSE(Format::getRGBA().isPremult());
    EXPECT_TRUE(Format::getrgba().isPremult());
    EXPECT_FALSE(Format::getLA().isPremult());

    Format f = Format::getRGBA();
    f.setPremult(true);
    EXPECT_EQ(Format::getrgba(), f);
    f.setPremult(false);
    EXPECT_EQ(Format::getRGBA(), f);
}

TEST(Format, PredefinedFormatsAreBuiltOnce) {
    EXPECT_EQ(Format("bgra", Orvane::UB1, true), Format::getbgra());
    EXPECT_EQ(Format("la", Orvane::UB1, false), Format::getLA());
    EXPECT_EQ(&Format::getRGBA(), &Format::getRGBA());
}

TEST(Format, MonoIsPremultipliedUnlikeGetL) {
    Format m = Format::mono(Orvane::FLOAT);
    EXPECT_EQ(Format("l", Orvane::FLOAT, true), m);
    EXPECT_NE(Format::getL().withDatatype(Orvane::FLOAT), m);
    EXPECT_NE(Format::getL(), Format::mono(Orvane::UB1));
    Format d = Format::getBGRA().withDatatype(Orvane::DOUBLE);
    EXPECT_EQ(Orvane::DOUBLE, d.getDatatype());
    EXPECT_EQ("BGRA", order(d));
}

TEST(Format, ChannelBytesMatchTheSampleTypes) {
    EXPECT_EQ(sizeof(unsigned char), Format("l", Orvane::UB1, false).getChannelBytes());
    EXPECT_EQ(sizeof(unsigned short), Format("l", Orvane::UB2, false).getChannelBytes());
    EXPECT_EQ(sizeof(unsigned int), Format("l", Orvane::UB4, false).getChannelBytes());
    EXPECT_EQ(sizeof(float), Format("l", Orvane::FLOAT, false).getChannelBytes());
    EXPECT_EQ(sizeof(double), Format("l", Orvane::DOUBLE, false).getChannelBytes());
    EXPECT_EQ(3 * sizeof(double), Format("rgb", Orvane::DOUBLE, false).getBytesPerPixel());
    for (int bad : {0, 6, 9, 255}) {
        Format f("l", bad, false);
        expectThrows<IllegalArgumentException>([&] { f.getChannelBytes(); }, "datatype");
    }
}

TEST(Format, UnknownDatatypeCountsAsFixed) {
    EXPECT_TRUE(Format("l", Orvane::UNKNOWN, false).isFixed());
    EXPECT_TRUE(Format("l", Orvane::UB4, false).isFixed());
    EXPECT_TRUE(Format("l", Orvane::FLOAT, false).isFloating());
    EXPECT_FALSE(Format("l", Orvane::DOUBLE, false).isFixed());
}

TEST(Format, MasksPlaceEachChannelInAWord) {
    EXPECT_EQ(0x000000FFu, Format::getRGBA().getRMask());
    EXPECT_EQ(0x0000FF00u, Format::getRGBA().getGMask());
    EXPECT_EQ(0x00FF0000u, Format::getRGBA().getBMask());
    EXPECT_EQ(0xFF000000u, Format::getRGBA().getAMask());
    EXPECT_EQ(0u, Format::getRGBA().getLMask());
    EXPECT_EQ(0u, Format::getBGR().getAMask());
    EXPECT_EQ(0x00FF0000u, Format::getBGR().getRMask());

    Format la16("la", Orvane::UB2, false);
    EXPECT_EQ(0x0000FFFFu, la16.getLMask());
    EXPECT_EQ(0xFFFF0000u, la16.getAMask());

    // Runs wider than 32 bits saturate; runs shifted past bit 31 vanish.
    EXPECT_EQ(0xFFFFFFFFu, Format("r", Orvane::DOUBLE, false).getRMask());
    EXPECT_EQ(0xFFFFFFFFu, Format("r", Orvane::FLOAT, false).getRMask());
    EXPECT_EQ(0u, Format("rg", Orvane::UB4, false).getGMask());
    EXPECT_EQ(0u, Format("rg", Orvane::DOUBLE, false).getGMask());
    EXPECT_EQ(0u, Format("xxxxr", Orvane::UB1, false).getRMask());

    Format unknown("rgba", 9, false);
    expectThrows<IllegalArgumentException>([&] { unknown.getRMask(); }, "datatype");
    expectThrows<IllegalArgumentException>([&] { unknown.getLMask(); }, "datatype");
}

TEST(Format, EqualityComparesEveryField) {
    Format a("rgba", Orvane::UB1, false);
    EXPECT_EQ(a, Format::getRGBA());
    EXPECT_NE(a, Format("rgba", Orvane::UB2, false));
    EXPECT_NE(a, Format("rgbax", Orvane::UB1, false));
    EXPECT_NE(a, Format("rbga", Orvane::UB1, false));
    EXPECT_NE(Format("rgb", Orvane::UB1, false), Format("lgb", Orvane::UB1, false));
    EXPECT_FALSE(a != Format::getRGBA());
}

TEST(Format, PrintsOrderDatatypeAndEffectivePremultiplication) {
    EXPECT_EQ("Format(BGRA, ub1, false)", Format::getBGRA().str().str());
    EXPECT_EQ("Format(LA, ub1, true)", Format::getla().str().str());
    EXPECT_EQ("Format(LA, ub2, false)", Format("la", Orvane::UB2, false).str().str());
    EXPECT_EQ("Format(LA, unknown, false)", Format("la", 9, false).str().str());
    // Without alpha the format counts as premultiplied, whatever the flag.
    EXPECT_EQ("Format(L, float, true)", Format("l", Orvane::FLOAT, false).str().str());
    EXPECT_EQ("Format(, double, true)", Format("xx", Orvane::DOUBLE, false).str().str());
    std::ostringstream os;
    os << Format::getRGBA();
    EXPECT_EQ("Format(RGBA, ub1, false)", os.str());
}

TEST(Format, DatatypeNamesFallBackToUnknown) {
    EXPECT_EQ("ub4", Orvane::datatypeString(Orvane::UB4).str());
    EXPECT_EQ("double", Format::datatypeDescription(Orvane::DOUBLE).str());
    EXPECT_EQ("unknown", Orvane::datatypeString(-1).str());
    EXPECT_EQ("unknown", Format::datatypeDescription(6).str());
}

TEST(Format, GlFormatFollowsTheChannelOrder) {
    struct Case {
        const char* channels;
        unsigned int gl;
    };
    const Case cases[] = {
        {"l", 0x1909},   {"la", 0x190A},   {"r", 0x1903},    {"xg", 0x1904},
        {"b", 0x1905},   {"a", 0x1906},    {"rgb", 0x1907},  {"rgba", 0x1908},
        {"bgr", 0x80E0}, {"bgra", 0x80E1}, {"rgbx", 0x1907},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.gl, Format(c.channels, Orvane::UB1, false).glGetFormat()) << c.channels;
    for (const char* bad : {"", "al", "xx", "rg", "abgr", "lrgb"}) {
        Format f(bad, Orvane::UB1, false);
        expectThrows<const char*>([&] { f.glGetFormat(); },
                                  "GL format representation not available");
    }
}

TEST(Format, GlTypeFollowsTheDatatype) {
    const unsigned int types[] = {0x1401, 0x1403, 0x1405, 0x1406, 0x140A};
    for (int t = 1; t <= 5; ++t)
        EXPECT_EQ(types[t - 1], Format::getL().withDatatype(t).glGetType()) << t;
    for (int bad : {0, 6, 200}) {
        Format f("l", bad, false);
        expectThrows<const char*>([&] { f.glGetType(); }, "GL type representation not available");
    }
}

TEST(Format, GetPixelPlacesEachComponentAtItsPosition) {
    Color c(10, 20, 30, 40);
    std::unique_ptr<unsigned char[]> xl(Format("xl", Orvane::UB1, false).getPixel(c));
    EXPECT_EQ(0, xl[0]);
    EXPECT_EQ(c.lightness(), xl[1]);

    std::unique_ptr<unsigned char[]> bgrx(Format("bgrx", Orvane::UB1, false).getPixel(c));
    EXPECT_EQ(30, bgrx[0]);
    EXPECT_EQ(20, bgrx[1]);
    EXPECT_EQ(10, bgrx[2]);
    EXPECT_EQ(0, bgrx[3]);

    std::unique_ptr<unsigned char[]> argb(Format("argb", Orvane::UB1, true).getPixel(c));
    EXPECT_EQ(40, argb[0]);
    EXPECT_EQ(10, argb[1]);

    expectThrows<IllegalArgumentException>(
        [&] { delete[] Format("rgba", Orvane::UB2, false).getPixel(c); }, "only UB1 supported yet");
    expectThrows<IllegalArgumentException>(
        [&] { delete[] Format("rgba", Orvane::FLOAT, false).getPixel(c); },
        "only UB1 supported yet");
    expectThrows<IllegalArgumentException>([&] { delete[] Format().getPixel(c); }, "datatype");
}

TEST(DatatypeSwitch, RunsTheBodyWithTheSampleType) {
    auto size = [](int t) {
        return Orvane::switchDatatype(t, "no such type", [](auto s) {
            using T = typename decltype(s)::type;
            return static_cast<int>(sizeof(T)) * (std::is_floating_point<T>::value ? -1 : 1);
        });
    };
    EXPECT_EQ(1, size(Orvane::UB1));
    EXPECT_EQ(2, size(Orvane::UB2));
    EXPECT_EQ(4, size(Orvane::UB4));
    EXPECT_EQ(-4, size(Orvane::FLOAT));
    EXPECT_EQ(-8, size(Orvane::DOUBLE));
    expectThrows<IllegalArgumentException>([&] { size(Orvane::UNKNOWN); }, "no such type");
    expectThrows<IllegalArgumentException>([&] { size(6); }, "no such type");
}
