#include "image/Rotate.h"

#include "image/Format.h"
#include "image/Image.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

using namespace Orvane;

namespace {

// Every sample tells where it came from: 1000 column + 10 row + channel.
Image coded(const GenRect<int>& b) {
    Image img(b, Format("rgb", UB2, true));
    for (int r = 0; r < b.h; ++r)
        for (int c = 0; c < b.w; ++c)
            for (int k = 0; k < 3; ++k)
                static_cast<uint16_t*>(img.getBuffer(GenPoint<int>(b.x + c, b.y + r)))[k] =
                    uint16_t(1000 * c + 10 * r + k);
    return img;
}

// Sample k of the pixel at column c, row r counted from the corner.
uint16_t sample(const Image& img, int c, int r, int k) {
    const GenRect<int>& b = img.getBounds();
    return static_cast<const uint16_t*>(img.getBuffer(GenPoint<int>(b.x + c, b.y + r)))[k];
}

bool samePixels(const Image& a, const Image& b) {
    const GenRect<int>& ra = a.getBounds();
    const GenRect<int>& rb = b.getBounds();
    if (ra.w != rb.w || ra.h != rb.h || a.getFormat() != b.getFormat())
        return false;
    const size_t rowBytes = size_t(ra.w) * a.getFormat().getBytesPerPixel();
    for (int r = 0; r < ra.h; ++r)
        if (std::memcmp(a.getBuffer(GenPoint<int>(ra.x, ra.y + r)),
                        b.getBuffer(GenPoint<int>(rb.x, rb.y + r)), rowBytes) != 0)
            return false;
    return true;
}

const GenRect<int> bounds(2, 5, 4, 3);

} // namespace

TEST(Rotate, PixelsLandWhereTheTableSays) {
    Image img = coded(bounds);
    const int w = bounds.w, h = bounds.h;
    Image cw = rotateCW(img), ccw = rotateCCW(img);
    Image fv = flipVertical(img), fh = flipHorizontal(img);
    EXPECT_EQ(GenRect<int>(-5, 2, 3, 4), cw.getBounds());
    EXPECT_EQ(GenRect<int>(8, -6, 3, 4), ccw.getBounds());
    EXPECT_EQ(bounds, fv.getBounds());
    EXPECT_EQ(bounds, fh.getBounds());
    for (int r = 0; r < h; ++r)
        for (int c = 0; c < w; ++c)
            for (int k = 0; k < 3; ++k) {
                const uint16_t v = uint16_t(1000 * c + 10 * r + k);
                ASSERT_EQ(v, sample(cw, h - 1 - r, c, k));
                ASSERT_EQ(v, sample(ccw, r, w - 1 - c, k));
                ASSERT_EQ(v, sample(fv, c, h - 1 - r, k));
                ASSERT_EQ(v, sample(fh, w - 1 - c, r, k));
            }
}

TEST(Rotate, RoundTrips) {
    Image img = coded(bounds);
    Image four = rotateCW(rotateCW(rotateCW(rotateCW(img))));
    EXPECT_EQ(bounds, four.getBounds());
    EXPECT_TRUE(samePixels(img, four));
    Image back = rotateCCW(rotateCW(img));
    EXPECT_EQ(GenRect<int>(6, 2, 4, 3), back.getBounds());
    EXPECT_TRUE(samePixels(img, back));
    EXPECT_TRUE(samePixels(img, rotateCW(rotateCCW(img))));
    EXPECT_TRUE(samePixels(img, flipVertical(flipVertical(img))));
    EXPECT_TRUE(samePixels(img, flipHorizontal(flipHorizontal(img))));
    EXPECT_FALSE(samePixels(img, flipHorizontal(img)));
    // Two quarter turns are both flips.
    EXPECT_TRUE(samePixels(rotateCW(rotateCW(img)), flipVertical(flipHorizontal(img))));
}

TEST(Rotate, ViewsAndFloatBitsSurvive) {
    // A view's rows are further apart than its width.
    Image parent = coded(GenRect<int>(0, 0, 9, 8));
    Image view = parent.clip(GenRect<int>(3, 2, 4, 5));
    Image cw = rotateCW(view);
    EXPECT_EQ(GenRect<int>(-2, 3, 5, 4), cw.getBounds());
    EXPECT_EQ(3000 + 20 + 1, sample(cw, 4, 0, 1));
    EXPECT_TRUE(samePixels(view, rotateCCW(cw)));

    // A NaN with a payload moves bit for bit.
    Image f(GenRect<int>(0, 0, 2, 1), Format("l", FLOAT, true));
    const uint32_t nan = 0x7fa00123u;
    std::memcpy(f.getBuffer(), &nan, 4);
    uint32_t out;
    std::memcpy(&out, flipHorizontal(f).getBuffer(GenPoint<int>(1, 0)), 4);
    EXPECT_EQ(nan, out);
}

TEST(Rotate, CopyPixelsStepsEachSideByItsOwnStride) {
    std::vector<unsigned char> src(30), dst(40, 0);
    for (size_t i = 0; i < src.size(); ++i)
        src[i] = (unsigned char)(i + 1);
    copypixels(src.data(), 10, dst.data(), 8, 3, 3);
    for (int r = 0; r < 3; ++r)
        for (int i = 0; i < 8; ++i)
            EXPECT_EQ(i < 3 ? 10 * r + i + 1 : 0, dst[8 * r + i]) << r << "," << i;
    std::vector<unsigned char> untouched(dst);
    copypixels(src.data(), 10, dst.data(), 8, 3, 0);
    EXPECT_EQ(untouched, dst);
}
