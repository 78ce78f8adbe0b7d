// A host as a compositing application is one: it knows the public header
// only, loads the plug-in at run time and reaches it through the two factory
// functions and the interface's virtual calls. It links none of the library.

#include "api/TavrixAPI.h"

#include "SyntheticClip.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <cmath>
#include <cstdio>
#include <exception>
#include <functional>
#include <string>
#include <vector>

#ifndef TAVRIX_PLUGIN_PATH
#error "TAVRIX_PLUGIN_PATH must name the built plug-in"
#endif

namespace {

using CreateFn = TavrixAPI* (*)();
using ReleaseFn = void (*)(TavrixAPI*);

// The loaded plug-in; unloaded when it goes.
class Plugin {
public:
    Plugin() {
        handle = dlopen(TAVRIX_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
        if (!handle) {
            error = dlerror();
            return;
        }
        create = reinterpret_cast<CreateFn>(dlsym(handle, "createTavrixAPIInstance"));
        release = reinterpret_cast<ReleaseFn>(dlsym(handle, "releaseTavrixAPIInstance"));
    }
    ~Plugin() {
        if (handle)
            dlclose(handle);
    }
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    bool loaded() const { return handle && create && release; }

    void* handle = nullptr;
    CreateFn create = nullptr;
    ReleaseFn release = nullptr;
    std::string error;
};

// What a call threw, as a host sees it: the text of a std::exception, or a
// marker for anything else or for nothing.
std::string thrownBy(const std::function<void()>& call) {
    try {
        call();
    } catch (const std::exception& e) {
        return e.what();
    } catch (...) {
        return "<not a std::exception>";
    }
    return "<nothing thrown>";
}

class Host : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(plugin.loaded()) << plugin.error;
        api = plugin.create();
        ASSERT_NE(nullptr, api);
    }
    void TearDown() override { plugin.release(api); }

    Plugin plugin;
    TavrixAPI* api = nullptr;
};

// A clip of a textured scene under a known sub-pixel motion.
class HostClip : public Host {
protected:
    static constexpr int width = 160;
    static constexpr int height = 120;
    // Half the pattern's side: a shape error of e radians or e in scale moves
    // the pattern's edge by e * radius pixels.
    static constexpr double radius = 10.5;
    static constexpr double tolerance = 0.8;

    void SetUp() override {
        Host::SetUp();
        api->setFrameSize(width, height);
    }

    void addTrack(double x, double y) {
        api->addNewTrack(x, y);
        const int i = count++;
        api->setPatternRect(i, 0, radius, -radius, 2 * radius, 2 * radius);
        api->setSearchRect(i, 0, 16, -16, 32, 32);
        api->setFailureTolerance(i, tolerance);
        api->setTrackFailureBehavior(i, 1);
        start.push_back({x, y});
    }

    void show(int frame, float time) {
        pixels = clip::render(texture, width, height, motion.x(frame), motion.y(frame));
        api->setCurrentBuffer(time, pixels.data(), false);
    }

    // Where track i's point is at `frame`, given where it was at `from`.
    double trueX(int i, int frame, int from = 0) const {
        return start[i][0] + motion.x(frame) - motion.x(from);
    }
    double trueY(int i, int frame, int from = 0) const {
        return start[i][1] + motion.y(frame) - motion.y(from);
    }

    clip::Texture texture{7};
    clip::Motion motion;
    std::vector<unsigned char> pixels;
    std::vector<std::vector<double>> start;
    int count = 0;
};

} // namespace

TEST(HostPlugin, ExportsBothFactoryFunctions) {
    Plugin plugin;
    ASSERT_NE(nullptr, plugin.handle) << plugin.error;
    EXPECT_NE(nullptr, plugin.create);
    EXPECT_NE(nullptr, plugin.release);
    // Nothing of the implementation is reachable by name.
    EXPECT_EQ(nullptr, dlsym(plugin.handle, "_ZN13TavrixAPIImplC1Ev"));
    plugin.release(nullptr);
}

// --- tracking ---------------------------------------------------------------

TEST_F(HostClip, TracksAKnownSubPixelMotionWithinATenthOfAPixel) {
    addTrack(-30, -12);
    addTrack(28, 14);
    const int last = 12;

    // One pass: begin once, then one frame after another. Times carry a
    // fraction that the plug-in truncates.
    show(0, 0.5f);
    ASSERT_TRUE(api->begin(0.5f));
    for (int i = 0; i < count; ++i)
        ASSERT_TRUE(api->track(i, 0.5f, true));
    for (int f = 1; f <= last; ++f) {
        show(f, f + 0.5f);
        for (int i = 0; i < count; ++i)
            ASSERT_TRUE(api->track(i, f + 0.5f, true)) << "track " << i << " frame " << f;
    }
    ASSERT_TRUE(api->end(last + 0.5f));

    double worst = 0;
    for (int i = 0; i < count; ++i)
        for (int f = 0; f <= last; ++f) {
            SCOPED_TRACE("track " + std::to_string(i) + " frame " + std::to_string(f));
            double x = NAN, y = NAN;
            api->getPosition(i, f, &x, &y);
            EXPECT_NEAR(trueX(i, f), x, 0.1);
            EXPECT_NEAR(trueY(i, f), y, 0.1);
            worst = std::fmax(worst, std::hypot(x - trueX(i, f), y - trueY(i, f)));

            double score = NAN;
            api->getScore(i, f, &score);
            EXPECT_GE(score, tolerance);
            EXPECT_LE(score, 1.0 + 1e-6);
            EXPECT_TRUE(api->hasPositionKeyframe(i, f));
            EXPECT_TRUE(api->hasQualityKeyframe(i, f));

            // A pure translation: the shape stays the identity to within a
            // tenth of a pixel at the pattern's edge.
            double sx = NAN, sy = NAN, ro = NAN, st0 = NAN, st1 = NAN;
            api->getScale(i, f, &sx, &sy);
            api->getRotation(i, f, &ro);
            api->getStretch(i, f, &st0, &st1);
            EXPECT_EQ(sx, sy);
            EXPECT_NEAR(1.0, sx, 0.1 / radius);
            EXPECT_NEAR(0.0, ro, 0.1 / radius);
            EXPECT_NEAR(1.0, st0, 0.1 / radius);
            EXPECT_NEAR(1.0, st1, 0.1 / radius);
        }
    std::printf("largest position error over %d frames: %.4f px\n", last, worst);

    for (int i = 0; i < count; ++i) {
        EXPECT_FALSE(api->hasPositionKeyframe(i, -1));
        EXPECT_FALSE(api->hasPositionKeyframe(i, last + 1));
        EXPECT_FALSE(api->hasQualityKeyframe(i, last + 1));
    }
}

TEST_F(HostClip, BackwardPassFromTwoPointNineReachesFrameZeroAtMinusPointSeven) {
    addTrack(-20, 6);
    show(2, 2.9f);
    ASSERT_TRUE(api->begin(2.9f));
    ASSERT_TRUE(api->track(0, 2.9f, false));
    show(1, 1.2f);
    ASSERT_TRUE(api->track(0, 1.2f, false));
    show(0, -0.7f);
    ASSERT_TRUE(api->track(0, -0.7f, false));
    api->end(-0.7f);

    for (int f = 0; f <= 2; ++f) {
        EXPECT_TRUE(api->hasPositionKeyframe(0, f)) << f;
        double x = NAN, y = NAN;
        api->getPosition(0, f, &x, &y);
        EXPECT_NEAR(trueX(0, f, 2), x, 0.1) << f;
        EXPECT_NEAR(trueY(0, f, 2), y, 0.1) << f;
    }
    EXPECT_FALSE(api->hasPositionKeyframe(0, 3));
    EXPECT_FALSE(api->hasPositionKeyframe(0, -1));
}

TEST_F(HostClip, BeginOnEveryFrameRestartsThePassSoTracksStayPut) {
    addTrack(-30, -12);
    const int last = 6;
    for (int f = 0; f <= last; ++f) {
        show(f, float(f));
        api->begin(float(f));
        ASSERT_TRUE(api->track(0, float(f), true));
        api->end(float(f));
    }
    // The content moved by more than two pixels; the track did not follow.
    ASSERT_GT(std::hypot(trueX(0, last) - start[0][0], trueY(0, last) - start[0][1]), 2.0);
    for (int f = 0; f <= last; ++f) {
        double x = NAN, y = NAN;
        api->getPosition(0, f, &x, &y);
        EXPECT_NEAR(start[0][0], x, 0.05) << f;
        EXPECT_NEAR(start[0][1], y, 0.05) << f;
    }
}

TEST_F(HostClip, TrackingAfterEndNeedsANewFrame) {
    addTrack(0, 0);
    show(0, 0);
    api->begin(0);
    ASSERT_TRUE(api->track(0, 0, true));
    api->end(0);
    EXPECT_EQ("TavrixAPIImpl::getImage: no current frame",
              thrownBy([&] { api->track(0, 1, true); }));
}

TEST_F(Host, FrameBeforeAnySizeGivesNothingToTrack) {
    unsigned char pixel[4] = {255, 1, 2, 3};
    api->setCurrentBuffer(0, pixel, false);
    api->addNewTrack(0, 0);
    api->setFailureTolerance(0, 0.5);
    ASSERT_TRUE(api->begin(0));
    EXPECT_FALSE(api->track(0, 0, true));
    EXPECT_TRUE(api->end(0));
}

// --- settings through the interface ------------------------------------------

TEST_F(Host, FrameSizeAndTrackRangeRoundTrip) {
    api->setFrameSize(1920, 1081);
    int w = 0, h = 0;
    api->getFrameSize(&w, &h);
    EXPECT_EQ(1920, w);
    EXPECT_EQ(1081, h);
    api->getFrameSize(nullptr, &h);
    api->setTrackRange(10, 5);
    float start = 0, length = 0;
    api->getTrackRange(&start, &length);
    EXPECT_EQ(10.0f, start);
    EXPECT_EQ(5.0f, length);
    api->getTrackRange(nullptr, nullptr);
}

TEST_F(Host, RectsRoundTripThroughTheirCentring) {
    api->addNewTrack(12, -7);
    api->setPatternRect(0, 4.5f, 100, 40, 10, 6);
    for (float time : {-3.0f, 0.0f, 17.9f}) {
        double top = NAN, left = NAN, width = NAN, height = NAN;
        api->getPatternRect(0, time, &top, &left, &width, &height);
        EXPECT_EQ(3.0, top);
        EXPECT_EQ(-5.0, left);
        EXPECT_EQ(10.0, width);
        EXPECT_EQ(6.0, height);
    }
    const double rects[][4] = {{10, -10, 20, 20}, {30, 5, 10, 4}, {-2, -9, 3, 6}};
    for (const auto& r : rects) {
        api->setSearchRect(0, 0, r[0], r[1], r[2], r[3]);
        double top = NAN, left = NAN, width = NAN, height = NAN;
        api->getSearchRect(0, 8, &top, &left, &width, &height);
        EXPECT_EQ(r[0], top);
        EXPECT_EQ(r[1], left);
        EXPECT_EQ(r[2], width);
        EXPECT_EQ(r[3], height);
    }
    // Nothing searched yet: the searched rect is the track's default.
    double top = NAN, width = NAN;
    api->getSearchedRect(0, 3, &top, nullptr, &width, nullptr);
    EXPECT_EQ(10.0, top);
    EXPECT_EQ(20.0, width);
}

TEST_F(Host, FailureBehaviorCodesZeroToFiveOnly) {
    api->addNewTrack(0, 0);
    EXPECT_EQ(1, api->getTrackFailureBehavior(0));
    for (int code = 0; code <= 5; ++code) {
        api->setTrackFailureBehavior(0, code);
        EXPECT_EQ(code, api->getTrackFailureBehavior(0));
    }
    api->setTrackFailureBehavior(0, 3);
    api->setTrackFailureBehavior(0, 6);
    api->setTrackFailureBehavior(0, -1);
    EXPECT_EQ(3, api->getTrackFailureBehavior(0));
    api->setFailureTolerance(0, 0.72);
    EXPECT_EQ(0.72, api->getFailureTolerance(0));
}

TEST_F(Host, UseSwitchesIgnoreTheTrackIndex) {
    api->addNewTrack(0, 0);
    EXPECT_TRUE(api->getUseScale(0));
    EXPECT_TRUE(api->getUseRotate(0));
    EXPECT_TRUE(api->getUseStretch(0));
    api->setUseScale(99, false);
    EXPECT_FALSE(api->getUseScale(0));
    api->setUseRotate(-2, false);
    EXPECT_FALSE(api->getUseRotate(5));
    api->setUseStretch(3, false);
    EXPECT_FALSE(api->getUseStretch(0));
}

TEST_F(Host, TimesTruncateTowardZero) {
    api->addNewTrack(0, 0);
    api->setPosition(0, 2.9f, 4, 8);
    EXPECT_TRUE(api->hasPositionKeyframe(0, 2.0f));
    EXPECT_FALSE(api->hasPositionKeyframe(0, 3.0f));
    api->setPosition(0, -0.7f, 2, 2);
    EXPECT_TRUE(api->hasPositionKeyframe(0, 0.0f));
    EXPECT_FALSE(api->hasPositionKeyframe(0, -1.0f));
    double x = NAN, y = NAN;
    api->getPosition(0, 1.99f, &x, &y);
    EXPECT_EQ(3.0, x);
    EXPECT_EQ(5.0, y);
    EXPECT_FALSE(api->hasQualityKeyframe(0, 2.0f));
}

TEST_F(Host, ScaleOfAnUntrackedTrackIsOneInBothOutputs) {
    api->addNewTrack(0, 0);
    double sx = 0, sy = 0, tx = NAN, ty = NAN;
    api->getScale(0, 0, &sx, &sy);
    EXPECT_EQ(1.0, sx);
    EXPECT_EQ(1.0, sy);
    api->getTranslation(0, 0, &tx, &ty);
    EXPECT_EQ(0.0, tx);
    EXPECT_EQ(0.0, ty);
}

// --- the track list ----------------------------------------------------------

namespace {

// The x of each track, found by walking indices until one throws.
std::vector<double> trackXs(TavrixAPI* api) {
    std::vector<double> xs;
    for (int i = 0;; ++i) {
        double x = NAN;
        if (thrownBy([&] { api->getPosition(i, 0, &x, nullptr); }) != "<nothing thrown>")
            return xs;
        xs.push_back(x);
    }
}

} // namespace

TEST_F(Host, InsertPutsTheTrackAtItsIndex) {
    TrTrack* a = api->addNewTrack(1, 0);
    TrTrack* b = api->insertNewTrack(1, 2, 0);
    api->insertNewTrack(0, 0, 0);
    EXPECT_NE(a, b);
    EXPECT_EQ((std::vector<double>{0, 1, 2}), trackXs(api));
    EXPECT_EQ("Array::operator[]", thrownBy([&] { api->insertNewTrack(4, 9, 9); }));
}

TEST_F(Host, DeleteTrackIsLenientPastTheEndAndRefusesAnEmptyList) {
    for (int i = 0; i < 3; ++i)
        api->addNewTrack(i, 0);
    api->deleteTrack(7);
    EXPECT_EQ((std::vector<double>{0, 1}), trackXs(api));
    api->addNewTrack(5, 0);
    api->deleteTrack(0);
    EXPECT_EQ((std::vector<double>{1, 5}), trackXs(api));
    api->deleteAllTracks();
    EXPECT_TRUE(trackXs(api).empty());
    EXPECT_EQ("Array::resize", thrownBy([&] { api->deleteTrack(0); }));
}

TEST_F(Host, OutOfRangeIndexThrowsExceptWhereNothingIsRead) {
    for (int i = 0; i < 3; ++i)
        api->addNewTrack(i, 0);
    EXPECT_EQ("Array::operator[]", thrownBy([&] { api->getPosition(7, 0, nullptr, nullptr); }));
    EXPECT_EQ("Array::operator[]", thrownBy([&] { api->setFailureTolerance(3, 0.5); }));
    EXPECT_EQ("Array::operator[]", thrownBy([&] { api->hasQualityKeyframe(-1, 0); }));
    EXPECT_EQ("Array::operator[]", thrownBy([&] { api->track(0, 0, true); }))
        << "no pass begun: the driver has no record for the track";
    EXPECT_EQ("<nothing thrown>", thrownBy([&] { api->getScore(7, 0, nullptr); }));
    EXPECT_EQ("<nothing thrown>", thrownBy([&] { api->setTrackFailureBehavior(7, 6); }));
    EXPECT_EQ("<nothing thrown>", thrownBy([&] { api->getUseStretch(7); }));
}

// --- lifetime ------------------------------------------------------------------

TEST(HostPlugin, ThousandInstancesTrackAndReleaseWithoutLeaking) {
    const int width = 64, height = 48;
    const clip::Texture texture(3);
    const clip::Motion motion;
    std::vector<unsigned char> frames[2] = {
        clip::render(texture, width, height, motion.x(0), motion.y(0)),
        clip::render(texture, width, height, motion.x(1), motion.y(1))};

    // Loaded once, as a host does; reloading is the next test's. Unloading
    // the plug-in also unloads its dependencies, and some of those keep a
    // little memory per load, which would hide ours.
    Plugin plugin;
    ASSERT_TRUE(plugin.loaded()) << plugin.error;
    size_t inUseAfterWarmUp = 0;
    for (int n = 0; n < 1000; ++n) {
        TavrixAPI* api = plugin.create();
        api->setFrameSize(width, height);
        api->addNewTrack(0, 0);
        api->addNewTrack(6, -4);
        for (int i = 0; i < 2; ++i) {
            api->setFailureTolerance(i, 0.5);
            api->setTrackFailureBehavior(i, 0);
        }
        api->setCurrentBuffer(0, frames[0].data(), false);
        api->begin(0);
        api->track(0, 0, true);
        api->track(1, 0, true);
        api->setCurrentBuffer(1, frames[1].data(), false);
        const bool ok = api->track(0, 1, true);
        api->track(1, 1, true);
        // Released mid-pass, with a frame copy still held.
        api->setCurrentBuffer(2, frames[0].data(), false);
        plugin.release(api);
        ASSERT_TRUE(ok) << "instance " << n;
        // Lazily built tables settle within the first few hundred.
        if (n == 499)
            inUseAfterWarmUp = mallinfo2().uordblks;
    }
#if !defined(__SANITIZE_ADDRESS__)
    // Under the sanitizers the leak checker judges at exit; here the heap in
    // use must not grow with the instances at all.
    EXPECT_EQ(inUseAfterWarmUp, mallinfo2().uordblks) << "heap grew over the last 500 instances";
#endif
}

TEST(HostPlugin, ReloadsAfterUnloading) {
    for (int n = 0; n < 3; ++n) {
        Plugin plugin;
        ASSERT_TRUE(plugin.loaded()) << plugin.error;
        TavrixAPI* api = plugin.create();
        api->addNewTrack(1, 2);
        double x = 0;
        api->getPosition(0, 0, &x, nullptr);
        EXPECT_EQ(1.0, x);
        plugin.release(api);
    }
}
