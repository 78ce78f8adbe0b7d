#include "image/Arithmetic.h"
#include "image/Copy.h"
#include "image/DatatypeSwitch.h"
#include "image/Fill.h"

#include "support/ExpectThrows.h"
#include "support/PixelProbe.h"

#include <cstring>
#include <vector>

using namespace Orvane;
using testsupport::pixelAt;
using testsupport::sampleAt;
using Rect = GenRect<int>;
using Point = GenPoint<int>;
using Pixel = std::vector<int>;

namespace {

// The pixel `in` of format `from` copied over a pixel of 9s of format `to`.
Pixel copied(const Format& from, const Pixel& in, const Format& to) {
    Image src(Rect(0, 0, 1, 1), from);
    std::copy_n(in.begin(), from.getBytesPerPixel(), static_cast<unsigned char*>(src.getBuffer()));
    Image dst(src.getBounds(), to);
    std::memset(dst.getBuffer(), 9, to.getBytesPerPixel());
    Orvane::copy(src, dst);
    return pixelAt(dst, Point(0, 0));
}

Image row(const Format& f, const std::vector<double>& values) {
    const int nc = f.getNumChannels();
    Image img(Rect(0, 0, static_cast<int>(values.size()) / nc, 1), f);
    switchDatatype(f.getDatatype(), "test", [&](auto s) {
        for (size_t i = 0; i < values.size(); ++i)
            sampleAt<typename decltype(s)::type>(img, int(i) / nc, 0, int(i) % nc) = values[i];
    });
    return img;
}

} // namespace

TEST(Copy, ChannelsAreMappedByMeaningAndAlphaByItsFlag) {
    const Format xargb("xargb", UB1, false);
    const struct {
        Format from;
        Pixel in;
        Format to;
        Pixel out;
    } cases[] = {
        {Format::getRGB(), {10, 20, 30}, Format::getBGRA(), {30, 20, 10, 255}},
        {Format::getL(), {77}, Format::getRGB(), {77, 77, 77}},
        {Format::getA(), {90}, Format::getRGB(), {90, 90, 90}},
        // 0.299 R + 0.587 G + 0.114 B, truncated: 59.8 + 58.7 + 5.7.
        {Format::getRGB(), {200, 100, 50}, Format::getLA(), {124, 255}},
        // Straight into premultiplied: v * a / 255 rounded.
        {Format::getRGBA(), {200, 100, 0, 128}, Format::getrgba(), {100, 50, 0, 128}},
        // Back: v * 255 / a truncated, unclamped: 510 wraps to 254.
        {Format::getrgba(), {100, 50, 0, 128}, Format::getRGBA(), {199, 99, 0, 128}},
        {Format::getrgba(), {200, 0, 0, 100}, Format::getRGBA(), {254, 0, 0, 100}},
        // Alpha 0 gives colour 0; channels without a source, luminance included, 255.
        {Format::getrgba(), {9, 9, 9, 0}, xargb, {255, 0, 0, 0, 0}},
        {Format::getrgba(), {10, 20, 30, 64}, Format::getLA(), {255, 64}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.out, copied(c.from, c.in, c.to)) << c.from << " -> " << c.to;

    const Pixel rgb = {1, 2, 3};
    expectThrows<UnsupportedOperationException>(
        [&] { copied(Format::getRGB(), rgb, Format::getL()); }, "not implemented");
    const std::pair<const char*, const char*> missing[] = {{"a", "lightness channel failed"},
                                                           {"gb", "red channel failed"},
                                                           {"rb", "green channel failed"},
                                                           {"rg", "blue channel failed"}};
    for (const auto& [from, text] : missing)
        expectThrows<const char*>(
            [&, from = from] {
                copied(Format(from, UB1, false), rgb, Format(from[1] ? "rgb" : "l", UB1, false));
            },
            text);
}

TEST(Copy, RegionLandsAtTheTranslationAndOnlyRemappingNotifies) {
    Image src(Rect(0, 0, 3, 3), Format::getL());
    for (int i = 0; i < 9; ++i)
        static_cast<unsigned char*>(src.getBuffer())[i] = static_cast<unsigned char>(10 + i);
    auto* root = new testsupport::RecordingImpl(Rect(10, 10, 4, 4), Format::getRGB());
    Image dst(root);
    std::memset(dst.getBuffer(), 0, 48);
    Orvane::copy(src, dst, Rect(0, 0, 3, 2), Point(11, 12));
    for (int y = 10; y < 14; ++y)
        for (int x = 10; x < 14; ++x) {
            int sx = x - 11, sy = y - 12;
            int v = sx >= 0 && sx < 3 && sy >= 0 && sy < 2 ? 10 + sy * 3 + sx : 0;
            EXPECT_EQ(Pixel({v, v, v}), pixelAt(dst, Point(x, y))) << x << "," << y;
        }
    // Through a shifted view the report reaches the root in its coordinates.
    Orvane::copy(src, dst.offset(Point(-2, -2)), Point(13, 13));
    EXPECT_EQ(std::vector<Rect>({Rect(11, 12, 3, 2), Rect(11, 11, 3, 3)}), root->rects);

    // Converting datatypes, or copying nothing, does not notify.
    root->rects.clear();
    Image floats(dst.getBounds(), Format::getRGB().withDatatype(FLOAT));
    std::fill_n(static_cast<float*>(floats.getBuffer()), 48, 0.5f);
    Orvane::copy(floats, dst);
    Orvane::copy(src, dst, Point(20, 0));
    EXPECT_TRUE(root->rects.empty());
    EXPECT_EQ(Pixel({127, 127, 127}), pixelAt(dst, Point(13, 13)));
}

TEST(Fill, ClearWritesThePixelFillBlendsAndBothReportTheRegion) {
    auto* root = new testsupport::RecordingImpl(Rect(3, 4, 5, 2), Format::getBGRA());
    Image img(root);
    std::memset(img.getBuffer(), 17, 40);
    Orvane::fill(img, Color(1, 2, 3, 0)); // nothing to add: not even a report
    EXPECT_EQ(Pixel({17, 17, 17, 17}), pixelAt(img, Point(3, 4)));
    Orvane::clear(img, Color(10, 20, 30, 0));
    EXPECT_EQ(Pixel({30, 20, 10, 0}), pixelAt(img, Point(7, 5)));
    Orvane::fill(img, Rect(6, 3, 5, 2), Color(5, 6, 7));
    EXPECT_EQ(Pixel({7, 6, 5, 255}), pixelAt(img, Point(7, 4)));
    EXPECT_EQ(Pixel({30, 20, 10, 0}), pixelAt(img, Point(7, 5)));
    EXPECT_EQ(std::vector<Rect>({Rect(3, 4, 5, 2), Rect(6, 4, 2, 1)}), root->rects);
}

TEST(Fill, TranslucentColourIsAddedOverTheScaledOldValue) {
    Image img(Rect(0, 0, 256, 1), Format::getla());
    auto* p = static_cast<unsigned char*>(img.getBuffer());
    for (int alpha : {1, 64, 128, 254}) {
        for (int v = 0; v < 256; ++v)
            p[2 * v] = p[2 * v + 1] = static_cast<unsigned char>(v);
        // Grey 10 is taken as premultiplied: added as it is.
        Orvane::fill(img, Color(10, alpha));
        for (int v = 0; v < 256; ++v) {
            // old * (255 - alpha) / 255 rounded to nearest, then the colour, mod 256.
            int kept = (2 * v * (255 - alpha) + 255) / 510;
            ASSERT_EQ((kept + 10) % 256, p[2 * v]) << v << " under " << alpha;
            ASSERT_EQ((kept + alpha) % 256, p[2 * v + 1]) << v << " under " << alpha;
        }
    }
}

TEST(Arithmetic, SubtractWrapsAndDisplayNumericShowsSignsAsColours) {
    Image a = row(Format::getRGB(), {10, 101, 102});
    Image out;
    // b is blue 5, green 30, red 20: 10 - 20 wraps to 246.
    subtract(a, row(Format::getBGR(), {5, 30, 20}), out);
    EXPECT_EQ(Pixel({246, 71, 97}), pixelAt(out, {0, 0}));
    Image img = display_numeric(row(Format("l", FLOAT, false), {-1, 4, 0, 1, -6}), -1, 2.0);
    // v = sample / 2: red 255 (-v), green 255 v, blue 255 (|v| - 1), clamped and truncated.
    const Pixel expected[] = {{127, 0, 0}, {0, 255, 255}, {0, 0, 0}, {0, 127, 0}, {255, 0, 255}};
    for (int x = 0; x < 5; ++x)
        EXPECT_EQ(expected[x], pixelAt(img, {x, 0})) << x;
    Image la = row(Format("la", DOUBLE, false), {0.5, -1.5});
    expectThrows<IllegalArgumentException>([&] { display_numeric(la, -1, 1.0); }, "snc == 1");
    expectThrows<IllegalArgumentException>([&] { display_numeric(la, 2, 1.0); },
                                           "(c >= 0) && (c < snc)");
    for (int dt : {UB1, UB2, UB4})
        expectThrows<IllegalArgumentException>(
            [&] { display_numeric(row(Format("l", dt, false), {0}), -1, 1.0); },
            "display_numeric only supports float and double");
}
