// A host as a compositing application is one: it knows the public header
// only, loads the plug-in at run time and reaches it through the two factory
// functions and the interface's virtual calls. It links none of the library.

#include "api/TavrixAPI.h"

#include "SyntheticClip.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <array>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <exception>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

// The loaded plug-in; unloaded when it goes.
struct Plugin {
    Plugin() : handle(dlopen(TAVRIX_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL)) {
        if (handle) {
            create = reinterpret_cast<TavrixAPI* (*)()>(dlsym(handle, "createTavrixAPIInstance"));
            release =
                reinterpret_cast<void (*)(TavrixAPI*)>(dlsym(handle, "releaseTavrixAPIInstance"));
        }
    }
    ~Plugin() {
        if (handle)
            dlclose(handle);
    }
    bool loaded() const { return create && release; }
    void* handle;
    TavrixAPI* (*create)() = nullptr;
    void (*release)(TavrixAPI*) = nullptr;
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
        ASSERT_TRUE(plugin.loaded()) << dlerror();
        api = plugin.create();
    }
    void TearDown() override {
        if (api)
            plugin.release(api);
    }

    // The x of each track, found by walking indices until one throws.
    std::vector<double> trackXs() {
        std::vector<double> xs(1);
        while (thrownBy([&] { api->getPosition(int(xs.size()) - 1, 0, &xs.back(), nullptr); }) ==
               "<nothing thrown>")
            xs.push_back(NAN);
        xs.pop_back();
        return xs;
    }

    Plugin plugin;
    TavrixAPI* api = nullptr;
};

// A clip of a textured scene under a known sub-pixel motion.
class HostClip : public Host {
protected:
    // Half the pattern's side: a shape error of e radians or e in scale moves
    // the pattern's edge by e * radius pixels.
    static constexpr double radius = 10.5;
    static constexpr double tolerance = 0.8;

    void addTrack(double x, double y) {
        const int i = int(start.size());
        api->addNewTrack(x, y);
        api->setPatternRect(i, 0, radius, -radius, 2 * radius, 2 * radius);
        api->setSearchRect(i, 0, 16, -16, 32, 32);
        api->setFailureTolerance(i, tolerance);
        api->setTrackFailureBehavior(i, 1);
        start.push_back({x, y});
    }
    void show(int frame, float time) {
        api->setFrameSize(160, 120);
        pixels = clip::render(texture, 160, 120, motion.x(frame), motion.y(frame));
        api->setCurrentBuffer(time, pixels.data(), false);
    }
    // Where track i's point truly is at `frame`.
    double trueX(int i, int frame) const { return start[i][0] + motion.x(frame) - motion.x(0); }
    double trueY(int i, int frame) const { return start[i][1] + motion.y(frame) - motion.y(0); }

    clip::Texture texture{7};
    clip::Motion motion;
    std::vector<unsigned char> pixels;
    std::vector<std::array<double, 2>> start;
};

} // namespace

TEST_F(HostClip, TracksAKnownSubPixelMotionWithinATenthOfAPixel) {
    addTrack(-30, -12);
    addTrack(28, 14);
    const int last = 12;
    // One pass: begin once, then one frame after another. Times carry a
    // fraction that the plug-in truncates.
    show(0, 0.5f);
    ASSERT_TRUE(api->begin(0.5f));
    for (int f = 0; f <= last; ++f) {
        if (f > 0)
            show(f, f + 0.5f);
        for (int i = 0; i < 2; ++i)
            ASSERT_TRUE(api->track(i, f + 0.5f, true)) << "track " << i << " frame " << f;
    }
    ASSERT_TRUE(api->end(last + 0.5f));

    double worst = 0;
    for (int i = 0; i < 2; ++i)
        for (int f = -1; f <= last + 1; ++f) {
            SCOPED_TRACE("track " + std::to_string(i) + " frame " + std::to_string(f));
            const bool inPass = f >= 0 && f <= last;
            EXPECT_EQ(inPass, api->hasPositionKeyframe(i, f));
            EXPECT_EQ(inPass, api->hasQualityKeyframe(i, f));
            if (!inPass)
                continue;
            double x = NAN, y = NAN, score = NAN;
            api->getPosition(i, f, &x, &y);
            EXPECT_NEAR(trueX(i, f), x, 0.1);
            EXPECT_NEAR(trueY(i, f), y, 0.1);
            worst = std::fmax(worst, std::hypot(x - trueX(i, f), y - trueY(i, f)));
            api->getScore(i, f, &score);
            EXPECT_GE(score, tolerance);
            EXPECT_LE(score, 1.0 + 1e-6);

            // A pure translation: the shape stays the identity to within a
            // tenth of a pixel at the pattern's edge.
            double sx = NAN, sy = NAN, ro = NAN, st0 = NAN, st1 = NAN;
            api->getScale(i, f, &sx, &sy);
            api->getRotation(i, f, &ro);
            api->getStretch(i, f, &st0, &st1);
            EXPECT_EQ(sx, sy);
            for (double part : {sx - 1, ro, st0 - 1, st1 - 1})
                EXPECT_NEAR(0.0, part, 0.1 / radius);
        }
    std::printf("largest position error over %d frames: %.4f px\n", last, worst);
    EXPECT_EQ("TavrixAPIImpl::getImage: no current frame",
              thrownBy([&] { api->track(0, last + 1, true); }))
        << "end() frees the frame";
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

TEST_F(Host, RectsRoundTripThroughTheirCentring) {
    api->addNewTrack(12, -7);
    using Get = void (TavrixAPI::*)(int, float, double*, double*, double*, double*);
    auto flat = [&](Get get, float time) {
        std::vector<double> r(4, NAN); // top, left, width, height
        (api->*get)(0, time, &r[0], &r[1], &r[2], &r[3]);
        return r;
    };
    api->setPatternRect(0, 4.5f, 100, 40, 10, 6);
    EXPECT_EQ((std::vector<double>{3, -5, 10, 6}), flat(&TavrixAPI::getPatternRect, -3));
    // Centring 0.1 + 0.2 leaves a width one rounding away from 0.2: the size
    // is taken through the centre, not copied.
    api->setPatternRect(0, 0, 1.0, 0.1, 0.2, 0.5);
    const std::vector<double> r = flat(&TavrixAPI::getPatternRect, 17.9f);
    EXPECT_NE(0.2, r[2]);
    EXPECT_NEAR(0.2, r[2], 2 * DBL_EPSILON * 0.2);
    EXPECT_NEAR(-0.5 * r[2], r[1], 2 * DBL_EPSILON * 0.2);
    EXPECT_EQ(0.25, r[0]);
    EXPECT_EQ(0.5, r[3]);
    for (std::vector<double> s : {std::vector<double>{10, -10, 20, 20}, {30, 5, 10, 4}}) {
        api->setSearchRect(0, 0, s[0], s[1], s[2], s[3]);
        EXPECT_EQ(s, flat(&TavrixAPI::getSearchRect, 8));
    }
}

TEST_F(Host, SettingsOutsideTheirRangeAreIgnored) {
    api->addNewTrack(0, 0);
    EXPECT_EQ(1, api->getTrackFailureBehavior(0));
    const int rows[][2] = {{3, 3}, {0, 0}, {6, 0}, {5, 5}, {-1, 5}, {4, 4}, {2, 2}, {1, 1}};
    for (const auto& row : rows) {
        api->setTrackFailureBehavior(0, row[0]);
        EXPECT_EQ(row[1], api->getTrackFailureBehavior(0)) << "after " << row[0];
    }
    // The use-switches belong to the instance: any index reaches them.
    api->setUseScale(99, false);
    EXPECT_FALSE(api->getUseScale(0));
    EXPECT_TRUE(api->getUseRotate(-2));
}

TEST_F(Host, TimesTruncateTowardZero) {
    api->addNewTrack(0, 0);
    double x = NAN, y = NAN;
    api->getScale(0, 0, &x, &y);
    EXPECT_EQ(1.0, x) << "an untracked track has the identity, one scale in both outputs";
    EXPECT_EQ(1.0, y);
    api->setPosition(0, 2.9f, 4, 8);
    api->setPosition(0, -0.7f, 2, 2);
    for (int f = -1; f <= 3; ++f)
        EXPECT_EQ(f == 0 || f == 2, api->hasPositionKeyframe(0, float(f))) << f;
    api->getPosition(0, 1.99f, &x, &y); // frame 1, halfway
    EXPECT_EQ(3.0, x);
    EXPECT_EQ(5.0, y);
}

TEST_F(Host, TrackListEditsAtItsIndices) {
    api->addNewTrack(1, 0);
    api->insertNewTrack(1, 3, 0);
    api->insertNewTrack(0, 0, 0);
    api->addNewTrack(4, 0);
    EXPECT_EQ((std::vector<double>{0, 1, 3, 4}), trackXs());
    api->deleteTrack(7); // at or past the last: removes the last
    api->deleteTrack(1);
    EXPECT_EQ((std::vector<double>{0, 3}), trackXs());
    EXPECT_EQ("Array::operator[]", thrownBy([&] { api->insertNewTrack(3, 9, 9); }));
    EXPECT_EQ("Array::operator[]", thrownBy([&] { api->deleteTrack(-1); }));
    api->deleteAllTracks();
    EXPECT_TRUE(trackXs().empty());
    EXPECT_EQ("Array::resize", thrownBy([&] { api->deleteTrack(0); }));
}

TEST_F(Host, EveryPerTrackCallChecksTheIndex) {
    for (int i = 0; i < 3; ++i)
        api->addNewTrack(i, 0);
    double d = 0;
    const std::vector<std::function<void(int)>> calls = {
        [&](int i) { api->setPatternRect(i, 0, 1, 0, 1, 1); },
        [&](int i) { api->getPatternRect(i, 0, &d, &d, &d, &d); },
        [&](int i) { api->setSearchRect(i, 0, 1, 0, 1, 1); },
        [&](int i) { api->getSearchRect(i, 0, nullptr, nullptr, nullptr, nullptr); },
        [&](int i) { api->getSearchedRect(i, 0, &d, &d, &d, &d); },
        [&](int i) { api->getFailureTolerance(i); },
        [&](int i) { api->setFailureTolerance(i, 0.5); },
        [&](int i) { api->getTrackFailureBehavior(i); },
        [&](int i) { api->setTrackFailureBehavior(i, 2); },
        [&](int i) { api->getPosition(i, 0, nullptr, nullptr); },
        [&](int i) { api->setPosition(i, 0, 1, 1); },
        [&](int i) { api->getScore(i, 0, &d); },
        [&](int i) { api->getTranslation(i, 0, nullptr, nullptr); },
        [&](int i) { api->getRotation(i, 0, nullptr); },
        [&](int i) { api->getScale(i, 0, &d, &d); },
        [&](int i) { api->getStretch(i, 0, &d, &d); },
        [&](int i) { api->hasPositionKeyframe(i, 0); },
        [&](int i) { api->hasQualityKeyframe(i, 0); },
    };
    for (std::size_t k = 0; k < calls.size(); ++k) {
        EXPECT_EQ("Array::operator[]", thrownBy([&] { calls[k](3); })) << "call " << k;
        EXPECT_EQ("Array::operator[]", thrownBy([&] { calls[k](-1); })) << "call " << k;
        EXPECT_EQ("<nothing thrown>", thrownBy([&] { calls[k](2); })) << "call " << k;
    }
    EXPECT_EQ("<nothing thrown>", thrownBy([&] {
                  api->getScore(7, 0, nullptr); // nothing read, nothing checked
                  api->setTrackFailureBehavior(7, 6);
              }));
    EXPECT_EQ("Array::operator[]", thrownBy([&] { api->track(0, 0, true); })) << "no pass begun";
}

TEST(HostPlugin, ThousandInstancesTrackAndReleaseWithoutLeaking) {
    const int width = 64, height = 48;
    const clip::Texture texture(3);
    const clip::Motion motion;
    std::vector<unsigned char> frames[2] = {
        clip::render(texture, width, height, motion.x(0), motion.y(0)),
        clip::render(texture, width, height, motion.x(1), motion.y(1))};

    // Loaded once, as a host does. Unloading the plug-in also unloads its
    // dependencies, and some of those keep a little memory per load, which
    // would hide ours.
    Plugin plugin;
    ASSERT_TRUE(plugin.loaded()) << dlerror();
    EXPECT_EQ(nullptr, dlsym(plugin.handle, "_ZN13TavrixAPIImplC1Ev")) << "only the factory";
    [[maybe_unused]] size_t inUseAfterWarmUp = 0; // read only without the sanitizers
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
    plugin.release(nullptr);
#if !defined(__SANITIZE_ADDRESS__)
    // Under the sanitizers the leak checker judges at exit; here the heap in
    // use must not grow with the instances at all.
    EXPECT_EQ(inUseAfterWarmUp, mallinfo2().uordblks) << "heap grew over the last 500 instances";
#endif
}

namespace {

// One to three tracks placed up to 8 pixels past each edge, with pattern
// and search sizes from under a pixel to larger than the frame, any
// tolerance and behaviour, and random shape switches. Returns the count.
int placeRandomTracks(TavrixAPI* api, int width, int height, std::mt19937& rng) {
    std::uniform_real_distribution<double> unit(0, 1);
    const int count = 1 + int(unit(rng) * 3);
    for (int i = 0; i < count; ++i) {
        api->addNewTrack((unit(rng) - 0.5) * (width + 16), (unit(rng) - 0.5) * (height + 16));
        const double pattern = 0.5 + unit(rng) * 14, search = pattern + unit(rng) * 50 - 4;
        api->setPatternRect(i, 0, pattern / 2, -pattern / 2, pattern, pattern);
        api->setSearchRect(i, 0, search / 2, -search / 2, search, search);
        api->setFailureTolerance(i, 0.3 + unit(rng) * 0.7);
        api->setTrackFailureBehavior(i, int(unit(rng) * 6));
    }
    api->setUseScale(0, unit(rng) < 0.5);
    api->setUseStretch(0, unit(rng) < 0.3);
    api->setUseRotate(0, unit(rng) < 0.7);
    return count;
}

// Every keyed value is finite and every keyed score within [-1, 1];
// `keyed` counts the keyed frames.
void checkKeyed(TavrixAPI* api, int count, int frames, int& keyed) {
    for (int i = 0; i < count; ++i)
        for (int f = 0; f < frames; ++f) {
            if (!api->hasPositionKeyframe(i, float(f)))
                continue;
            ++keyed;
            double v[7] = {NAN, NAN, NAN, NAN, NAN, NAN, NAN};
            api->getPosition(i, float(f), &v[0], &v[1]);
            api->getRotation(i, float(f), &v[2]);
            api->getScale(i, float(f), &v[3], &v[4]);
            api->getStretch(i, float(f), &v[5], &v[6]);
            for (double x : v)
                ASSERT_TRUE(std::isfinite(x)) << "track " << i << " frame " << f;
            if (api->hasQualityKeyframe(i, float(f))) {
                double score = NAN;
                api->getScore(i, float(f), &score);
                ASSERT_TRUE(std::isfinite(score));
                ASSERT_LE(std::fabs(score), 1 + 4 * FLT_EPSILON) << score;
            }
        }
}

} // namespace

// A thousand instances from a fixed seed, each with random tracks: places
// on and off a small frame, pattern and search sizes from under a pixel to
// larger than the frame, every failure behaviour, either direction. No
// instance may crash or throw anything but a std::exception, and whatever
// is keyed must be finite, with scores within [-1, 1].
TEST(HostPlugin, ThousandRandomCyclesStaySane) {
    const int width = 48, height = 36, frames = 4;
    const clip::Texture texture(11);
    const clip::Motion motion;
    std::vector<std::vector<unsigned char>> clip;
    clip.reserve(frames);
    for (int f = 0; f < frames; ++f)
        clip.push_back(clip::render(texture, width, height, motion.x(f), motion.y(f)));

    Plugin plugin;
    ASSERT_TRUE(plugin.loaded()) << dlerror();
    std::mt19937 rng(20261125);
    std::uniform_real_distribution<double> unit(0, 1);
    int steps = 0, stopped = 0, keyed = 0;
    std::map<std::string, int> messages;
    for (int n = 0; n < 1000; ++n) {
        SCOPED_TRACE("instance " + std::to_string(n));
        TavrixAPI* api = plugin.create();
        api->setFrameSize(width, height);
        const int count = placeRandomTracks(api, width, height, rng);
        const bool forward = unit(rng) < 0.5;
        std::vector<bool> going(size_t(count), true);
        for (int k = 0; k < frames; ++k) {
            const int f = forward ? k : frames - 1 - k;
            api->setCurrentBuffer(float(f), clip[size_t(f)].data(), false);
            if (k == 0)
                api->begin(float(f));
            for (int i = 0; i < count; ++i) {
                if (!going[size_t(i)])
                    continue;
                ++steps;
                bool ok = false;
                const std::string what = thrownBy([&] { ok = api->track(i, float(f), forward); });
                ASSERT_NE("<not a std::exception>", what);
                if (what != "<nothing thrown>")
                    ++messages[what];
                stopped += what == "<nothing thrown>" && !ok;
                going[size_t(i)] = ok;
            }
        }
        api->end(float(forward ? frames - 1 : 0));
        checkKeyed(api, count, frames, keyed);
        plugin.release(api);
    }
    int thrown = 0;
    for (const auto& [what, times] : messages) {
        std::printf("thrown %d times: %s\n", times, what.c_str());
        thrown += times;
    }
    std::printf("%d steps: %d stopped, %d threw; %d keyed frames\n", steps, stopped, thrown, keyed);
    // The seed must reach every outcome, or the cycle tests less than it says.
    EXPECT_GT(stopped, 0);
    EXPECT_GT(thrown, 0);
    EXPECT_GT(steps - stopped - thrown, 0);
}
