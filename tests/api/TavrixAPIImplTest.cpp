#include "api/TavrixAPIImpl.h"

#include "SyntheticClip.h"
#include "base/SafeObject.h"
#include "base/SmartObject.h"
#include "image/Format.h"
#include "support/ExpectThrows.h"
#include "track/TrFollow.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::Image;

namespace {

// A frame whose every pixel names its own place: alpha = column, red = row,
// green and blue derived from both, so any misplaced or misordered byte
// shows.
std::vector<unsigned char> placeFrame(int width, int height) {
    std::vector<unsigned char> argb(std::size_t(width) * height * 4);
    for (int row = 0; row < height; ++row)
        for (int column = 0; column < width; ++column) {
            unsigned char* p = &argb[(std::size_t(row) * width + column) * 4];
            p[0] = static_cast<unsigned char>(column);
            p[1] = static_cast<unsigned char>(row);
            p[2] = static_cast<unsigned char>(column ^ row);
            p[3] = static_cast<unsigned char>(3 * column + 5 * row);
        }
    return argb;
}

// Expects every pixel of `img` to hold, in red, green, blue, alpha order, the
// host pixel at column x + W/2 and row y + H - H/2 of `argb`.
void expectCutFrom(const Image& img, const std::vector<unsigned char>& argb, int width,
                   int height) {
    ASSERT_EQ(Orvane::Format::getRGBA(), img.getFormat());
    const GenRect<int>& b = img.getBounds();
    for (int y = b.y; y < b.y + b.h; ++y) {
        unsigned char* row;
        img.getBuffer(row, GenPoint<int>(b.x, y));
        for (int x = b.x; x < b.x + b.w; ++x, row += 4) {
            const int column = x + width / 2;
            const int line = y + height - height / 2;
            const unsigned char* host = &argb[(std::size_t(line) * width + column) * 4];
            ASSERT_EQ(host[1], row[0]) << "at " << x << "," << y;
            ASSERT_EQ(host[2], row[1]) << "at " << x << "," << y;
            ASSERT_EQ(host[3], row[2]) << "at " << x << "," << y;
            ASSERT_EQ(host[0], row[3]) << "at " << x << "," << y;
        }
    }
}

struct Counter : public virtual Orvane::SafeObject {
    explicit Counter(Orvane::Signal& signal) { signal.connect(this, &Counter::hit); }
    void hit() { ++count; }
    int count = 0;
};

class TavrixAPIImplFrame : public ::testing::Test {
protected:
    void SetUp() override {
        api.setFrameSize(100, 100);
        argb = placeFrame(100, 100);
        api.setCurrentBuffer(0, argb.data(), false);
    }
    TavrixAPIImpl api;
    std::vector<unsigned char> argb;
};

} // namespace

// --- instance ---------------------------------------------------------------

TEST(TavrixAPIImpl, StartsEmptyWithSwitchesOnAndItsDriverBound) {
    TavrixAPIImpl api;
    int w = -1, h = -1;
    float start = -1, length = -1;
    api.getFrameSize(&w, &h);
    api.getTrackRange(&start, &length);
    EXPECT_EQ(0, w);
    EXPECT_EQ(0, h);
    EXPECT_EQ(0.0f, start);
    EXPECT_EQ(0.0f, length);
    EXPECT_EQ(0, api.getTrackCount());
    EXPECT_TRUE(api.getUseScale(0));
    EXPECT_TRUE(api.getUseRotate(0));
    EXPECT_TRUE(api.getUseStretch(0));
    EXPECT_FALSE(api.getTracking());
    EXPECT_EQ(nullptr, api.getFrameBytes());
    EXPECT_EQ(static_cast<TrShot*>(&api), api.getFollow()->getShot());
}

TEST(TavrixAPIImpl, TrackingFlagIsOnlyWhatIsSet) {
    TavrixAPIImpl api;
    api.setTracking(true);
    EXPECT_TRUE(api.getTracking());
    api.setTracking(false);
    EXPECT_FALSE(api.getTracking());
}

TEST(TavrixAPIImpl, FactoryMakesAnInstanceAndReleaseClearsWatchers) {
    TavrixAPI* api = createTavrixAPIInstance();
    auto* impl = dynamic_cast<TavrixAPIImpl*>(api);
    ASSERT_NE(nullptr, impl);
    impl->addNewTrack(1, 2);
    Orvane::SafePtr<TrShot> shot(impl);
    Orvane::SafePtr<TrTrack> track(impl->getTrack(0));
    releaseTavrixAPIInstance(api);
    EXPECT_EQ(nullptr, shot.get());
    EXPECT_EQ(nullptr, track.get());
    releaseTavrixAPIInstance(nullptr);
}

TEST(TavrixAPIImpl, TimesTruncateTowardZero) {
    EXPECT_EQ(2, TavrixAPIImpl::intTime(2.9f));
    EXPECT_EQ(0, TavrixAPIImpl::intTime(-0.7f));
    EXPECT_EQ(-2, TavrixAPIImpl::intTime(-2.5f));
    EXPECT_EQ(-2147483648, TavrixAPIImpl::intTime(-2147483648.0f));
    expectThrows<IllegalArgumentException>(
        [] { TavrixAPIImpl::intTime(std::numeric_limits<float>::quiet_NaN()); },
        "time out of range");
    expectThrows<IllegalArgumentException>([] { TavrixAPIImpl::intTime(2147483648.0f); },
                                           "time out of range");
}

// --- frame input ------------------------------------------------------------

TEST(TavrixAPIImpl, TrackRangeIsALengthToTheHostAndAnEndToTheShot) {
    TavrixAPIImpl api;
    api.setTrackRange(10, 5);
    float start = 0, length = 0;
    api.getTrackRange(&start, &length);
    EXPECT_EQ(10.0f, start);
    EXPECT_EQ(5.0f, length);
    bool hasFirst = false, hasLast = false;
    float first = 0, last = 0;
    api.getTrackRange(hasFirst, first, hasLast, last);
    EXPECT_TRUE(hasFirst);
    EXPECT_TRUE(hasLast);
    EXPECT_EQ(10.0f, first);
    EXPECT_EQ(15.0f, last);

    float only = 0;
    api.getTrackRange(nullptr, &only);
    EXPECT_EQ(5.0f, only);
    api.getTrackRange(&only, nullptr);
    EXPECT_EQ(10.0f, only);
}

TEST(TavrixAPIImpl, FrameSizeIsStoredUncheckedAndNullOutputsSkipped) {
    TavrixAPIImpl api;
    api.setFrameSize(-3, 7);
    int h = 0;
    api.getFrameSize(nullptr, &h);
    EXPECT_EQ(7, h);
    int w = 0;
    api.getFrameSize(&w, nullptr);
    EXPECT_EQ(-3, w);
}

TEST(TavrixAPIImpl, BufferBeforeFrameSizeLeavesAnEmptyCopy) {
    TavrixAPIImpl api;
    unsigned char pixel[4] = {1, 2, 3, 4};
    api.setCurrentBuffer(0, pixel, false);
    EXPECT_NE(nullptr, api.getFrameBytes());
    EXPECT_EQ(0, api.getFrameByteCount());
    EXPECT_FALSE(api.getImage(0, GenRect<int>(0, 0, 1, 1), true).getBounds().w >= 1);

    // The copy is of the old size: reading it through the new one is refused.
    api.setFrameSize(4, 4);
    expectThrows<IllegalArgumentException>(
        [&] { api.getImage(0, GenRect<int>(-1, -1, 2, 2), false); },
        "TavrixAPIImpl::getImage: frame size changed since setCurrentBuffer");
}

TEST(TavrixAPIImpl, BufferIsCopiedSoTheHostMayReuseIt) {
    TavrixAPIImpl api;
    api.setFrameSize(6, 4);
    std::vector<unsigned char> argb = placeFrame(6, 4);
    const std::vector<unsigned char> original = argb;
    api.setCurrentBuffer(0, argb.data(), false);
    std::fill(argb.begin(), argb.end(), 0);
    ASSERT_EQ(int64_t(6 * 4 * 4), api.getFrameByteCount());
    expectCutFrom(api.getImage(0, GenRect<int>(-2, -1, 4, 2), false), original, 6, 4);
}

TEST(TavrixAPIImpl, NullPixelsAreRefusedUnlessTheFrameIsEmpty) {
    TavrixAPIImpl api;
    api.setCurrentBuffer(0, nullptr, false);
    EXPECT_NE(nullptr, api.getFrameBytes());
    api.setFrameSize(2, 2);
    expectThrows<NullPointerException>([&] { api.setCurrentBuffer(0, nullptr, false); },
                                       "TavrixAPIImpl::setCurrentBuffer: null pixels");
    EXPECT_EQ(nullptr, api.getFrameBytes());
}

// --- cutting images ---------------------------------------------------------

TEST_F(TavrixAPIImplFrame, RectInsideIsCutAsItIsWithChannelsReordered) {
    const Image img = api.getImage(7, GenRect<int>(-20, -30, 13, 9), false);
    EXPECT_EQ(GenRect<int>(-20, -30, 13, 9), img.getBounds());
    expectCutFrom(img, argb, 100, 100);
}

TEST_F(TavrixAPIImplFrame, RectAcrossTheLeftEdgeIsClippedOnlyWhenAllowed) {
    EXPECT_EQ(GenRect<int>(0, 0, 0, 0),
              api.getImage(0, GenRect<int>(-60, -10, 20, 20), false).getBounds());
    const Image img = api.getImage(0, GenRect<int>(-60, -10, 20, 20), true);
    EXPECT_EQ(GenRect<int>(-50, -10, 10, 20), img.getBounds());
    expectCutFrom(img, argb, 100, 100);
}

TEST_F(TavrixAPIImplFrame, ClippedRectNeedsAQuarterInEachDirection) {
    // 2 of 12 left across.
    EXPECT_EQ(GenRect<int>(0, 0, 0, 0),
              api.getImage(0, GenRect<int>(-60, -10, 12, 20), true).getBounds());
    // 3 of 12 is exactly a quarter.
    EXPECT_EQ(GenRect<int>(-50, -10, 3, 20),
              api.getImage(0, GenRect<int>(-59, -10, 12, 20), true).getBounds());
    // Down: 5 of 20 rows left at the bottom.
    EXPECT_EQ(GenRect<int>(0, 45, 10, 5),
              api.getImage(0, GenRect<int>(0, 45, 10, 20), true).getBounds());
    EXPECT_EQ(GenRect<int>(0, 0, 0, 0),
              api.getImage(0, GenRect<int>(0, 46, 10, 20), true).getBounds());
}

TEST_F(TavrixAPIImplFrame, RectAcrossTheBottomRightIsClippedToTheFrame) {
    const Image img = api.getImage(0, GenRect<int>(40, 44, 20, 20), true);
    EXPECT_EQ(GenRect<int>(40, 44, 10, 6), img.getBounds());
    expectCutFrom(img, argb, 100, 100);
    const Image top = api.getImage(0, GenRect<int>(-5, -55, 10, 12), true);
    EXPECT_EQ(GenRect<int>(-5, -50, 10, 7), top.getBounds());
    expectCutFrom(top, argb, 100, 100);
}

TEST_F(TavrixAPIImplFrame, RectTouchingTheEdgeIsInsideOnlyWhenPartialIsAllowed) {
    EXPECT_EQ(GenRect<int>(0, 0, 0, 0),
              api.getImage(0, GenRect<int>(-50, 0, 10, 10), false).getBounds());
    const Image img = api.getImage(0, GenRect<int>(-50, 0, 10, 10), true);
    EXPECT_EQ(GenRect<int>(-50, 0, 10, 10), img.getBounds());
    expectCutFrom(img, argb, 100, 100);
}

TEST_F(TavrixAPIImplFrame, RectMissingTheFrameIsEmptyEvenWhenPartialIsAllowed) {
    EXPECT_EQ(GenRect<int>(0, 0, 0, 0),
              api.getImage(0, GenRect<int>(50, 0, 10, 10), true).getBounds());
    EXPECT_EQ(GenRect<int>(0, 0, 0, 0),
              api.getImage(0, GenRect<int>(-80, 0, 10, 10), true).getBounds());
    EXPECT_EQ(GenRect<int>(0, 0, 0, 0),
              api.getImage(0, GenRect<int>(0, -90, 10, 10), true).getBounds());
}

TEST_F(TavrixAPIImplFrame, CuttingAfterEndNeedsANewFrame) {
    EXPECT_TRUE(api.end(0));
    EXPECT_EQ(nullptr, api.getFrameBytes());
    EXPECT_EQ(GenRect<int>(0, 0, 0, 0),
              api.getImage(0, GenRect<int>(80, 0, 10, 10), true).getBounds());
    expectThrows<NullPointerException>([&] { api.getImage(0, GenRect<int>(0, 0, 10, 10), true); },
                                       "TavrixAPIImpl::getImage: no current frame");
}

TEST(TavrixAPIImpl, OddSizesPutTheOriginLeftOfCentreAcrossAndBelowItDown) {
    TavrixAPIImpl api;
    api.setFrameSize(5, 5);
    std::vector<unsigned char> argb = placeFrame(5, 5);
    api.setCurrentBuffer(0, argb.data(), false);
    const Image origin = api.getImage(0, GenRect<int>(0, 0, 1, 1), false);
    unsigned char* p;
    origin.getBuffer(p);
    EXPECT_EQ(2, p[3]) << "column (alpha)";
    EXPECT_EQ(3, p[0]) << "row (red)";

    // The largest inside rect starts at column 0 and row 1.
    const Image all = api.getImage(0, GenRect<int>(-2, -2, 4, 4), false);
    EXPECT_EQ(GenRect<int>(-2, -2, 4, 4), all.getBounds());
    expectCutFrom(all, argb, 5, 5);
    all.getBuffer(p);
    EXPECT_EQ(0, p[3]);
    EXPECT_EQ(1, p[0]);
}

TEST(TavrixAPIImpl, HostPixelBytesMoveAlphaLast) {
    TavrixAPIImpl api;
    api.setFrameSize(2, 2);
    unsigned char argb[16] = {};
    // Frame (0, 0) is column 1, row 1 of a 2 by 2 frame.
    argb[12] = 10;
    argb[13] = 20;
    argb[14] = 30;
    argb[15] = 40;
    api.setCurrentBuffer(0, argb, false);
    const Image img = api.getImage(0, GenRect<int>(0, 0, 1, 1), true);
    unsigned char* p;
    img.getBuffer(p);
    EXPECT_EQ(20, p[0]);
    EXPECT_EQ(30, p[1]);
    EXPECT_EQ(40, p[2]);
    EXPECT_EQ(10, p[3]);
}

// --- track list -------------------------------------------------------------

TEST(TavrixAPIImpl, NewTrackIsOwnedAndSitsUnkeyedAtItsPoint) {
    TavrixAPIImpl api;
    TrTrack* t = api.addNewTrack(3.5, -2.25);
    ASSERT_EQ(1, api.getTrackCount());
    EXPECT_EQ(t, api.getTrack(0));
    EXPECT_EQ(static_cast<TrNode*>(&api), t->getOwner());
    EXPECT_EQ(0, t->position().getKeyCount());
    for (float time : {-4.0f, 0.0f, 99.5f})
        EXPECT_EQ(GenPoint<double>(3.5, -2.25), api.getPosition(0, time));
    EXPECT_EQ(1u, t->getRefCount()) << "the list holds the only reference";
}

TEST(TavrixAPIImpl, TrackChangesAreAnnouncedByTheInstanceOnce) {
    TavrixAPIImpl api;
    TrTrack* t = api.addNewTrack(0, 0);
    Counter heard(api.changed);
    t->quality().changed();
    EXPECT_EQ(1, heard.count);
}

TEST(TavrixAPIImpl, DeletedTrackIsReleased) {
    TavrixAPIImpl api;
    for (int i = 0; i < 4; ++i)
        api.addNewTrack(i, 0);
    Orvane::SafePtr<TrTrack> removed(api.getTrack(3));
    api.deleteTrack(7);
    EXPECT_EQ(3, api.getTrackCount());
    EXPECT_EQ(nullptr, removed.get()) << "the list held the only reference";
    expectThrows<BadIndexException>([&] { api.deleteTrack(-1); }, "Array::operator[]");
    expectThrows<BadIndexException>([&] { api.insertNewTrack(-1, 0, 0); }, "Array::operator[]");
    EXPECT_EQ(3, api.getTrackCount());
}

TEST(TavrixAPIImpl, ClearTracksReleasesEveryTrack) {
    TavrixAPIImpl api;
    Orvane::SafePtr<TrTrack> a(api.addNewTrack(0, 0));
    Orvane::SmartPtr<TrTrack> kept(api.addNewTrack(1, 1));
    api.clearTracks();
    EXPECT_EQ(0, api.getTrackCount());
    EXPECT_EQ(nullptr, a.get());
    EXPECT_EQ(1u, kept->getRefCount()) << "a track held elsewhere survives";
}

// --- tracking calls ---------------------------------------------------------

namespace {

class TavrixAPIImplClip : public ::testing::Test {
protected:
    static constexpr int width = 96;
    static constexpr int height = 80;

    void SetUp() override {
        api.setFrameSize(width, height);
        api.addNewTrack(0, 0);
        api.setPatternRect(0, 0, 8.0, -8.0, 16.0, 16.0);
        api.setSearchRect(0, 0, 12.0, -12.0, 24.0, 24.0);
        api.setFailureTolerance(0, 0.8);
        api.setTrackFailureBehavior(0, 1);
    }

    void show(int frame) {
        pixels = clip::render(texture, width, height, motion.x(frame), motion.y(frame));
        api.setCurrentBuffer(float(frame), pixels.data(), false);
    }

    TavrixAPIImpl api;
    clip::Texture texture{11};
    clip::Motion motion;
    std::vector<unsigned char> pixels;
};

} // namespace

TEST_F(TavrixAPIImplClip, BeginTruncatesItsTimeAndAlwaysSucceeds) {
    show(2);
    EXPECT_TRUE(api.begin(2.9f));
    EXPECT_EQ(2, api.getFollow()->getBeginFrame());
    EXPECT_EQ(1, api.getFollow()->getStep());
    EXPECT_EQ(1, api.getFollow()->getInfoCount());
    EXPECT_TRUE(api.track(0, 2.9f, true));
    EXPECT_TRUE(api.isPositionKeyed(0, 2));
    EXPECT_FALSE(api.isPositionKeyed(0, 3));
    EXPECT_TRUE(api.end(2.9f));
}

TEST_F(TavrixAPIImplClip, StoredColourModeDoesNotReachTheDriver) {
    // The driver would refuse this mode; it is told "luminance" instead.
    api.setColorMode(0, "no such mode");
    show(0);
    api.begin(0);
    EXPECT_TRUE(api.track(0, 0, true));
}

TEST_F(TavrixAPIImplClip, DriverErrorsReachTheCaller) {
    show(0);
    api.begin(0);
    expectThrows<BadIndexException>([&] { api.track(1, 0, true); }, "Array::operator[]");
    EXPECT_TRUE(api.track(0, 0, true));
    // The negative of the frame correlates at -1: the match fails and the
    // behaviour is asked what to do.
    for (std::size_t k = 0; k < pixels.size(); ++k)
        if (k % 4 != 0)
            pixels[k] = static_cast<unsigned char>(255 - pixels[k]);
    api.setCurrentBuffer(1, pixels.data(), false);
    api.setFailureBehavior(0, "sideways");
    expectThrows<IllegalArgumentException>([&] { api.track(0, 1, true); },
                                           "unknown failure behavior \"sideways\"");
}
