#include "api/TavrixAPIImpl.h"

#include "image/Format.h"
#include "support/ExpectThrows.h"
#include "track/TrShotImpl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <vector>

using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::Image;

namespace {

// A frame whose every pixel names its own place: alpha = column, red = row,
// green and blue derived from both, so any misplaced or misordered byte
// shows.
std::vector<unsigned char> placeFrame(int width, int height) {
    std::vector<unsigned char> argb;
    for (int row = 0; row < height; ++row)
        for (int column = 0; column < width; ++column)
            for (int byte : {column, row, column ^ row, 3 * column + 5 * row})
                argb.push_back(static_cast<unsigned char>(byte));
    return argb;
}

// Expects every pixel of `img` to hold, in red, green, blue, alpha order, the
// host pixel at column x + W/2 and row y + H - H/2 of `argb`.
void expectCutFrom(const Image& img, const std::vector<unsigned char>& argb, int width,
                   int height) {
    ASSERT_EQ(Orvane::Format::getRGBA(), img.getFormat());
    const GenRect<int>& b = img.getBounds();
    for (int y = b.y; y < b.y + b.h; ++y)
        for (int x = b.x; x < b.x + b.w; ++x) {
            unsigned char* p;
            img.getBuffer(p, GenPoint<int>(x, y));
            const unsigned char* host =
                &argb[(std::size_t(y + height - height / 2) * width + x + width / 2) * 4];
            ASSERT_EQ((std::vector<int>{host[1], host[2], host[3], host[0]}),
                      (std::vector<int>{p[0], p[1], p[2], p[3]}))
                << "at " << x << "," << y;
        }
}

} // namespace

TEST(TavrixAPIImpl, CutsRectsInsideOrClippedByAQuarterInCentreCoordinates) {
    TavrixAPIImpl api;
    api.setFrameSize(100, 100);
    std::vector<unsigned char> argb = placeFrame(100, 100);
    const std::vector<unsigned char> original = argb;
    api.setCurrentBuffer(0, argb.data(), false);
    std::fill(argb.begin(), argb.end(), 0); // the host may reuse its buffer at once
    const GenRect<int> none(0, 0, 0, 0);
    const struct {
        GenRect<int> rect;
        bool partial;
        GenRect<int> expected;
    } rows[] = {
        {{-20, -30, 13, 9}, false, {-20, -30, 13, 9}}, // inside: as it is
        {{-60, -10, 20, 20}, false, none},             // across the left edge
        {{-60, -10, 20, 20}, true, {-50, -10, 10, 20}},
        {{-60, -10, 12, 20}, true, none},              // 2 of 12 left across
        {{-59, -10, 12, 20}, true, {-50, -10, 3, 20}}, // exactly a quarter
        {{0, 45, 10, 20}, true, {0, 45, 10, 5}},       // 5 of 20 rows at the bottom
        {{0, 46, 10, 20}, true, none},
        {{40, 44, 20, 20}, true, {40, 44, 10, 6}},
        {{-5, -55, 10, 12}, true, {-5, -50, 10, 7}},
        {{-50, 0, 10, 10}, false, none}, // touching the edge is not inside
        {{-50, 0, 10, 10}, true, {-50, 0, 10, 10}},
        {{50, 0, 10, 10}, true, none}, // missing the frame
        {{0, -90, 10, 10}, true, none},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.rect.x << "," << row.rect.y << " " << row.partial);
        const Image img = api.getImage(7, row.rect, row.partial);
        EXPECT_EQ(row.expected, img.getBounds());
        expectCutFrom(img, original, 100, 100);
    }
}

TEST(TavrixAPIImpl, OddSizesPutTheOriginLeftOfCentreAcrossAndBelowItDown) {
    TavrixAPIImpl api;
    api.setFrameSize(5, 5);
    std::vector<unsigned char> argb = placeFrame(5, 5);
    api.setCurrentBuffer(0, argb.data(), false);
    unsigned char* p;
    const Image origin = api.getImage(0, GenRect<int>(0, 0, 1, 1), false);
    origin.getBuffer(p);
    EXPECT_EQ(2, p[3]) << "column (alpha)";
    EXPECT_EQ(3, p[0]) << "row (red)";
    // The largest inside rect starts at column 0 and row 1.
    const Image all = api.getImage(0, GenRect<int>(-2, -2, 4, 4), false);
    expectCutFrom(all, argb, 5, 5);
    all.getBuffer(p);
    EXPECT_EQ(0, p[3]);
    EXPECT_EQ(1, p[0]);
}

TEST(TavrixAPIImpl, CuttingNeedsACurrentFrameOfTheCurrentSize) {
    TavrixAPIImpl api;
    unsigned char pixel[4] = {1, 2, 3, 4};
    api.setCurrentBuffer(0, pixel, false); // before any size: an empty copy
    api.setFrameSize(4, 4);
    expectThrows<IllegalArgumentException>(
        [&] { api.getImage(0, GenRect<int>(-1, -1, 2, 2), false); },
        "TavrixAPIImpl::getImage: frame size changed since setCurrentBuffer");
    expectThrows<NullPointerException>([&] { api.setCurrentBuffer(0, nullptr, false); },
                                       "TavrixAPIImpl::setCurrentBuffer: null pixels");
    expectThrows<NullPointerException>([&] { api.getImage(0, GenRect<int>(0, 0, 1, 1), true); },
                                       "TavrixAPIImpl::getImage: no current frame");
    EXPECT_EQ(GenRect<int>(0, 0, 0, 0), api.getImage(0, {80, 0, 1, 1}, true).getBounds())
        << "an empty cut needs no frame";
}

TEST(TavrixAPIImpl, TimesTruncateTowardZeroWithinTheFrameRange) {
    EXPECT_EQ(-2, TavrixAPIImpl::intTime(-2.5f));
    EXPECT_EQ(-2147483648, TavrixAPIImpl::intTime(-2147483648.0f));
    for (float bad : {std::numeric_limits<float>::quiet_NaN(), 2147483648.0f})
        expectThrows<IllegalArgumentException>([&] { TavrixAPIImpl::intTime(bad); },
                                               "time out of range");
}

TEST(TavrixAPIImpl, ScaleIsOneNumberWrittenTwice) {
    TavrixAPIImpl impl;
    TavrixAPI& api = impl;
    impl.addNewTrack(0, 0);
    impl.setTransform(0, 3.2f, AffineTransform(1.5f, -2.25f, 0.1f, 1.25f, 0.9f, 1.1f));
    double a = -1, b = -1;
    api.getScale(0, 3, nullptr, &b);
    EXPECT_EQ(1.25, b);
    api.getScale(0, 3, &a, &b);
    EXPECT_EQ(1.25, a);
    api.getStretch(0, 3, &a, &b);
    EXPECT_EQ(double(0.9f), a);
    EXPECT_EQ(double(1.1f), b);
}

// The rows of the table in TrShot.h where the two shots part, asked through
// the same shot interface.
TEST(TavrixAPIImpl, DiffersFromTheStandAloneShotOnlyWhereItMeansTo) {
    TavrixAPIImpl plugin;
    TrShotImpl alone;
    for (int k = 0; k < 2; ++k) {
        plugin.addNewTrack(k, 0);
        alone.addTrack(k, 0);
    }
    TrShot* shots[] = {&plugin, &alone};
    for (TrShot* shot : shots) {
        for (int frame = -3; frame <= 3; ++frame)
            shot->setPosition(0, float(frame), GenPoint<double>(frame, 0));
        shot->setColorMode(0, "saturation");
        shot->setFailureTolerance(1, 0.25);
    }
    // The plug-in truncates, the stand-alone shot rounds halves away from 0.
    const struct {
        TrShot* shot;
        float time;
        double frame;
    } times[] = {{&plugin, 2.5f, 2}, {&alone, 2.5f, 3}, {&plugin, -2.5f, -2}, {&alone, -2.5f, -3}};
    for (const auto& row : times)
        EXPECT_EQ(row.frame, row.shot->getPosition(0, row.time).x) << row.time;
    expectThrows<IllegalArgumentException>(
        [&] { plugin.getPosition(0, std::numeric_limits<float>::quiet_NaN()); },
        "time out of range");

    EXPECT_EQ(dstring("luminance"), plugin.getColorMode(0));
    EXPECT_EQ(dstring("luminance"), plugin.getColorMode(5));
    EXPECT_EQ(dstring("saturation"), alone.getColorMode(0));

    EXPECT_EQ(0.25, plugin.getFailureTolerance(1));
    EXPECT_EQ(0.25, alone.getFailureTolerance(0)) << "one tolerance for the stand-alone shot";
    EXPECT_EQ(TrTrack().getFailureTolerance(), plugin.getFailureTolerance(0))
        << "track 0 keeps its own";
    EXPECT_EQ(dstring("stop"), alone.getFailureBehavior(1));
    EXPECT_TRUE(plugin.getFailureBehavior(1).empty());

    for (int i : {5, -1, 9}) // any index reaches the plug-in's switches
        EXPECT_TRUE(plugin.getUseScale(i) && plugin.getUseRotate(i) && plugin.getUseStretch(i));
    EXPECT_TRUE(alone.getUseRotate(1));
    EXPECT_FALSE(alone.getUseScale(1) || alone.getUseStretch(1));
    expectThrows<BadIndexException>([&] { alone.setUseScale(2, true); }, "Array::operator[]");
    EXPECT_FALSE(alone.getUseScale(0));
}
