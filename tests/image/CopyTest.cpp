#include "image/Copy.h"

#include "support/ExpectThrows.h"
#include "support/PixelProbe.h"

#include <cstring>
#include <initializer_list>
#include <vector>

using namespace Orvane;
using testsupport::RecordingImpl;
using Rect = GenRect<int>;
using Point = GenPoint<int>;
using Pixel = std::vector<int>;

namespace {

Image filled(const Rect& bounds, const Format& f, unsigned char v) {
    Image img(bounds, f);
    std::memset(img.getBuffer(), v, size_t(bounds.w) * bounds.h * f.getBytesPerPixel());
    return img;
}

Image onePixel(const Format& f, std::initializer_list<int> values) {
    Image img(Rect(0, 0, 1, 1), f);
    auto* p = static_cast<unsigned char*>(img.getBuffer());
    for (int v : values)
        *p++ = static_cast<unsigned char>(v);
    return img;
}

Pixel pixelAt(const Image& img, const Point& at) {
    auto* p = static_cast<unsigned char*>(img.getBuffer(at));
    return Pixel(p, p + img.getFormat().getNumChannels());
}

Pixel copied(const Image& src, const Format& to) {
    Image dst = filled(src.getBounds(), to, 9);
    Orvane::copy(src, dst);
    return pixelAt(dst, Point(0, 0));
}

} // namespace

TEST(CopyRemap, ChannelsAreMappedByMeaning) {
    EXPECT_EQ(Pixel({30, 20, 10, 255}),
              copied(onePixel(Format::getRGB(), {10, 20, 30}), Format::getBGRA()));
    EXPECT_EQ(Pixel({77, 77, 77}), copied(onePixel(Format::getL(), {77}), Format::getRGB()));
    EXPECT_EQ(Pixel({90, 90, 90}), copied(onePixel(Format::getA(), {90}), Format::getRGB()));
    EXPECT_EQ(Pixel({255, 1, 2, 3}),
              copied(onePixel(Format::getRGB(), {1, 2, 3}), Format("xrgb", UB1, false)));
    EXPECT_EQ(Pixel({5}), copied(onePixel(Format::getla(), {66, 5}), Format::getA()));
    EXPECT_EQ(Pixel({255}), copied(onePixel(Format::getRGB(), {1, 2, 3}), Format::getA()));
    // A UB2 source is narrowed first, then remapped.
    Image wide(Rect(0, 0, 1, 1), Format::getRGB().withDatatype(UB2));
    unsigned short* w;
    wide.getBuffer(w);
    w[0] = 0x80FF, w[1] = 0x10FF, w[2] = 0xFFFF;
    EXPECT_EQ(Pixel({0xFF, 0x10, 0x80, 255}), copied(wide, Format::getBGRA()));
}

TEST(CopyRemap, LuminanceIsSynthesisedButNotIntoOneChannel) {
    // 0.299 R + 0.587 G + 0.114 B truncated, worked in thousandths.
    for (Pixel c : {Pixel{200, 100, 50}, Pixel{255, 255, 255}, Pixel{13, 250, 7}}) {
        int expected = (299 * c[0] + 587 * c[1] + 114 * c[2]) / 1000;
        EXPECT_EQ(Pixel({expected, 255}),
                  copied(onePixel(Format::getRGB(), {c[0], c[1], c[2]}), Format::getLA()));
    }
    Image dst = filled(Rect(0, 0, 1, 1), Format::getL(), 9);
    expectThrows<UnsupportedOperationException>(
        [&] {
            Orvane::copy(onePixel(Format::getRGB(), {1, 2, 3}), dst);
        },
        "not implemented");
    EXPECT_EQ(Pixel({9}), pixelAt(dst, Point(0, 0)));
}

TEST(CopyRemap, FailuresKeepTheirExactTexts) {
    expectThrows<const char*>([] { copied(onePixel(Format::getA(), {1}), Format::getL()); },
                              "lightness channel failed");
    const char* texts[] = {"red channel failed", "green channel failed", "blue channel failed"};
    const char* sources[] = {"gb", "rb", "rg"};
    for (int i = 0; i < 3; ++i)
        expectThrows<const char*>(
            [&] {
                copied(onePixel(Format(sources[i], UB1, false), {1, 2}), Format::getRGB());
            },
            texts[i]);
    Image bgraFloat(Rect(0, 0, 1, 1), Format::getBGRA().withDatatype(FLOAT));
    expectThrows<IllegalArgumentException>(
        [&] { Orvane::copy(onePixel(Format::getL(), {1}), bgraFloat); }, "only ub1 supported yet");
}

TEST(CopyPremult, StraightIntoPremultipliedRoundsEveryProductExactly) {
    EXPECT_EQ(Pixel({100, 50, 0, 128}),
              copied(onePixel(Format::getRGBA(), {200, 100, 0, 128}), Format::getrgba()));
    // Without alpha a destination counts as premultiplied.
    EXPECT_EQ(Pixel({100, 50, 0}),
              copied(onePixel(Format::getRGBA(), {200, 100, 0, 128}), Format::getRGB()));
    Image src(Rect(0, 0, 256, 256), Format::getLA());
    auto* p = static_cast<unsigned char*>(src.getBuffer());
    for (int i = 0; i < 65536; ++i)
        p[2 * i] = static_cast<unsigned char>(i % 256),
              p[2 * i + 1] = static_cast<unsigned char>(i / 256);
    Image dst(src.getBounds(), Format::getla());
    Orvane::copy(src, dst);
    auto* q = static_cast<unsigned char*>(dst.getBuffer());
    for (int i = 0; i < 65536; ++i) {
        int v = i % 256, a = i / 256;
        // 255 is odd, so v * a / 255 is never exactly halfway.
        ASSERT_EQ((2 * v * a + 255) / 510, q[2 * i]) << v << " * " << a;
        ASSERT_EQ(a, q[2 * i + 1]);
    }
}

TEST(CopyPremult, PremultipliedIntoStraightDividesWithoutClamping) {
    // 100 * 255 / 128 = 199.2 and 50 * 255 / 128 = 99.6, truncated.
    EXPECT_EQ(Pixel({199, 99, 0, 128}),
              copied(onePixel(Format::getrgba(), {100, 50, 0, 128}), Format::getRGBA()));
    // 200 * 255 / 100 = 510 wraps to 254.
    EXPECT_EQ(Pixel({254, 0, 0, 100}),
              copied(onePixel(Format::getrgba(), {200, 0, 0, 100}), Format::getRGBA()));
    // Alpha 0: colour 0, channels without a source 255.
    EXPECT_EQ(Pixel({255, 0, 0, 0, 0}),
              copied(onePixel(Format::getrgba(), {9, 9, 9, 0}), Format("xargb", UB1, false)));
    // A luminance to synthesise counts as missing when alpha changes.
    EXPECT_EQ(Pixel({255, 64}),
              copied(onePixel(Format::getrgba(), {10, 20, 30, 64}), Format::getLA()));
}

TEST(CopyRegion, PixelsLandAtTheTranslationInsideBothImages) {
    Image src(Rect(0, 0, 3, 3), Format::getL());
    auto* p = static_cast<unsigned char*>(src.getBuffer());
    for (int i = 0; i < 9; ++i)
        p[i] = static_cast<unsigned char>(10 + i);
    Image dst = filled(Rect(10, 10, 4, 4), Format::getRGB(), 0);
    Orvane::copy(src, dst, Rect(0, 0, 3, 2), Point(11, 12));
    for (int y = 10; y < 14; ++y)
        for (int x = 10; x < 14; ++x) {
            int sx = x - 11, sy = y - 12;
            int v = sx >= 0 && sx < 3 && sy >= 0 && sy < 2 ? 10 + sy * 3 + sx : 0;
            EXPECT_EQ(Pixel({v, v, v}), pixelAt(dst, Point(x, y))) << x << "," << y;
        }
}

TEST(CopyRegion, OnlyRemappingReportsTheDestinationRegion) {
    auto* root = new RecordingImpl(Rect(0, 0, 8, 8), Format::getRGBA());
    Image dst(root);
    Image src = filled(Rect(0, 0, 3, 2), Format::getRGB(), 5);
    Orvane::copy(src, dst, Point(4, 5));
    // Through a shifted view the report reaches the root in its coordinates.
    Orvane::copy(src, dst.offset(Point(2, 2)));
    EXPECT_EQ(std::vector<Rect>({Rect(4, 5, 3, 2), Rect(2, 2, 3, 2)}), root->rects);

    root->rects.clear();
    Image floats(Rect(0, 0, 8, 8), Format::getRGBA().withDatatype(FLOAT));
    float* f;
    floats.getBuffer(f);
    std::fill(f, f + 256, 0.5f);
    Orvane::copy(floats, dst);
    EXPECT_EQ(Pixel({127, 127, 127, 127}), pixelAt(dst, Point(7, 7)));
    Orvane::copy(src, dst, Point(8, 0));
    Orvane::copy(src, dst, Point(-3, 1));
    EXPECT_TRUE(root->rects.empty());
    EXPECT_EQ(Pixel({127, 127, 127, 127}), pixelAt(dst, Point(0, 1)));

    Image dup = Orvane::copy(dst);
    EXPECT_FALSE(dup == dst);
    EXPECT_EQ(pixelAt(dst, Point(5, 6)), pixelAt(dup, Point(5, 6)));
}
