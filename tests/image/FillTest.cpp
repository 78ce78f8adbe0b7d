#include "image/Fill.h"

#include "support/ExpectThrows.h"
#include "support/PixelProbe.h"

#include <cstring>
#include <vector>

using namespace Orvane;
using testsupport::RecordingImpl;
using Rect = GenRect<int>;
using Point = GenPoint<int>;
using Pixel = std::vector<int>;

namespace {

// A recording image with every byte `v`; `root` sees its notifications.
Image recorded(const Rect& bounds, const Format& f, unsigned char v, RecordingImpl*& root) {
    root = new RecordingImpl(bounds, f);
    Image img(root);
    std::memset(img.getBuffer(), v, size_t(bounds.w) * bounds.h * f.getBytesPerPixel());
    return img;
}

Pixel pixelAt(const Image& img, const Point& at) {
    auto* p = static_cast<unsigned char*>(img.getBuffer(at));
    return Pixel(p, p + img.getFormat().getBytesPerPixel());
}

} // namespace

TEST(Fill, ClearWritesTheFormatsPixelWhateverTheAlpha) {
    RecordingImpl* root;
    Image img = recorded(Rect(3, 4, 5, 2), Format::getBGRA(), 17, root);
    Orvane::fill(img, Color(1, 2, 3, 0));
    EXPECT_EQ(Pixel({17, 17, 17, 17}), pixelAt(img, Point(3, 4)));
    EXPECT_TRUE(root->rects.empty());
    Orvane::clear(img, Color(10, 20, 30, 0));
    EXPECT_EQ(Pixel({30, 20, 10, 0}), pixelAt(img, Point(7, 5)));
    Orvane::fill(img, Color(5, 6, 7));
    EXPECT_EQ(Pixel({7, 6, 5, 255}), pixelAt(img, Point(4, 5)));
    Orvane::clear(img);
    EXPECT_EQ(Pixel({0, 0, 0, 0}), pixelAt(img, Point(6, 4)));
    EXPECT_EQ(std::vector<Rect>(3, Rect(3, 4, 5, 2)), root->rects);

    // Luminance takes the lightness, 54 / 256 of red; padding stays 0.
    Image la = recorded(Rect(0, 0, 2, 2), Format("xla", UB1, false), 17, root);
    Orvane::clear(la, Color(255, 0, 0, 99));
    EXPECT_EQ(Pixel({0, 54 * 255 / 256, 99}), pixelAt(la, Point(1, 1)));
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

TEST(Fill, RectangleIsClippedToTheBounds) {
    RecordingImpl* root;
    Image img = recorded(Rect(0, 0, 4, 4), Format::getL(), 0, root);
    Orvane::fill(img, Rect(2, -1, 5, 2), Color(90));
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
            EXPECT_EQ(Pixel({x >= 2 && y < 1 ? 90 : 0}), pixelAt(img, Point(x, y)));
    EXPECT_EQ(std::vector<Rect>({Rect(2, 0, 2, 1)}), root->rects);

    Image wide(Rect(0, 0, 1, 1), Format::getRGBA().withDatatype(UB2));
    expectThrows<IllegalArgumentException>([&] { Orvane::clear(wide); }, "only UB1 supported yet");
}

TEST(FillChannel, WritesOneChannelAtItsPositionInBytes) {
    RecordingImpl* root;
    Image img = recorded(Rect(0, 0, 3, 3), Format::getBGRA(), 1, root);
    unsigned char v = 77;
    _fillChannel(img, Rect(1, 1, 9, 9), &v, 0, 'R');
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 3; ++x)
            EXPECT_EQ(Pixel({1, 1, x && y ? 77 : 1, 1}), pixelAt(img, Point(x, y)));
    EXPECT_EQ(std::vector<Rect>({Rect(1, 1, 2, 2)}), root->rects);

    // UB2 green sits at position 1: its two bytes land at byte 1, across red
    // and green.
    Image wide = recorded(Rect(0, 0, 2, 1), Format::getRGBA().withDatatype(UB2), 0, root);
    unsigned short g = 0xABCD;
    _fillChannel(wide, wide.getBounds(), &g, 0, 'g');
    unsigned char expected[8] = {};
    std::memcpy(expected + 1, &g, 2);
    EXPECT_EQ(0, std::memcmp(expected, wide.getBuffer(Point(1, 0)), 8));

    _fillChannel(img, img.getBounds(), &v, 0, 'l');
    EXPECT_EQ(Pixel({1, 1, 1, 1}), pixelAt(img, Point(0, 0)));
    expectThrows<IllegalArgumentException>([&] { _fillChannel(img, img.getBounds(), &v, 0, 'q'); },
                                           "no such channel \"q\"");
}
