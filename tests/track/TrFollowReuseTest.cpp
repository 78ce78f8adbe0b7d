#include "track/TrFollow.h"

#include "track/Sequence/TrSequence.h"
#include "track/TrShotImpl.h"
#include "track/TrTrackInfo.h"
#include "track/TrackImages.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

using namespace trackimages;

// A driver keeps each track's working images for the pass and reuses them
// from step to step. These runs check that nothing of one step, one track or
// one cached frame leaks into another: the same tracks give the same keys,
// bit for bit, whether they share a driver and a shot or have their own.
namespace {

const int kWidth = 160;
const int kHeight = 120;
const int kFrames = 12;

// 8-bit RGB frames of a texture on a random walk with a slow turn, made
// once per seed.
std::vector<Image> walk(unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> step(-2, 2), turn(-0.01, 0.01);
    const Texture texture(seed);
    double x = 0, y = 0, a = 0;
    const Format& format = Format::getRGB();
    std::vector<Image> frames;
    for (int f = 1; f <= kFrames; ++f) {
        Image img(GenRect<int>(0, 0, kWidth, kHeight), format);
        const double c = std::cos(a), s = std::sin(a);
        for (int py = 0; py < kHeight; ++py)
            for (int px = 0; px < kWidth; ++px) {
                const double u = px + 0.5 - kWidth / 2.0 - x, v = py + 0.5 - kHeight / 2.0 - y;
                const double tu = c * u + s * v, tv = -s * u + c * v;
                unsigned char* p = at<unsigned char>(img, px, py);
                p[0] = (unsigned char)std::lround(255 * texture(tu, tv));
                p[1] = (unsigned char)std::lround(255 * texture(tv + 9, tu));
                p[2] = (unsigned char)std::lround(200 * texture(tu + tv, tu - 3));
            }
        frames.push_back(img);
        x += step(rng);
        y += step(rng);
        a += turn(rng);
    }
    return frames;
}

class Walk : public TrSequence {
public:
    explicit Walk(const std::vector<Image>& frames) : frames(frames) {}
    int getFirstFrame() override { return 1; }
    int getLastFrame() override { return kFrames; }
    GenRect<int> getBounds(float) override { return GenRect<int>(0, 0, kWidth, kHeight); }
    Image getFrame(float t) override { return frames[std::size_t(std::lround(t) - 1)]; }

private:
    const std::vector<Image>& frames;
};

struct TrackSpec {
    GenPoint<double> at;
    GenRect<double> pattern;
    GenRect<double> search;
    const char* mode;
};

// What one step left behind for one track.
struct Step {
    bool ok;
    const char* reason;
    TrStepStatus status;
    int cached;
    bool operator==(const Step& o) const {
        return ok == o.ok && reason == o.reason && status == o.status && cached == o.cached;
    }
};

struct Pass {
    std::vector<std::vector<Step>> steps;
    TrShotImpl shot;
    TrFollow follow;
};

void addTrack(TrShotImpl& shot, const TrackSpec& t, const char* behavior, double tolerance) {
    shot.addTrack(t.at.x, t.at.y);
    const int i = shot.getTrackCount() - 1;
    shot.setPatternRect(i, t.pattern);
    shot.setSearchRect(i, t.search);
    shot.setColorMode(i, t.mode);
    shot.setFailureBehavior(i, behavior);
    shot.setFailureTolerance(i, tolerance);
}

// Tracks `specs` (all of them, or only `only`) through every frame; a track
// that stops is not stepped again.
void run(Pass& pass, const std::vector<Image>& frames, const std::vector<TrackSpec>& specs,
         const char* behavior, double tolerance, int only = -1) {
    pass.shot.setSequence(new Walk(frames));
    for (int k = 0; k < int(specs.size()); ++k)
        if (only < 0 || k == only)
            addTrack(pass.shot, specs[std::size_t(k)], behavior, tolerance);
    pass.follow.setShot(&pass.shot);
    pass.follow.begin(1, 1);
    const int n = pass.shot.getTrackCount();
    pass.steps.assign(std::size_t(n), {});
    for (int f = 1; f <= kFrames; ++f)
        for (int i = 0; i < n; ++i) {
            std::vector<Step>& mine = pass.steps[std::size_t(i)];
            if (!mine.empty() && !mine.back().ok)
                continue;
            const bool ok = pass.follow.track(i, f, 1);
            mine.push_back({ok, pass.follow.getStopReason(i), pass.follow.getStepStatus(i),
                            pass.follow.getCachedSearchCount(i)});
            // The cache holds exactly the frames the lagged refinement has
            // still to come back for: its next frame up to this one.
            if (ok) {
                EXPECT_EQ(f - pass.follow.getInfo(i).patternFrame + 1, mine.back().cached)
                    << "track " << i << " frame " << f;
            }
        }
}

bool sameBits(double a, double b) {
    std::uint64_t x, y;
    std::memcpy(&x, &a, sizeof x);
    std::memcpy(&y, &b, sizeof y);
    return x == y;
}

std::vector<TrackSpec> randomTracks(std::mt19937& rng) {
    std::uniform_real_distribution<double> x(45, 115), y(40, 80);
    std::uniform_int_distribution<int> side(9, 21), margin(5, 12), mode(0, 3);
    const char* modes[] = {"luminance", "red", "saturation", "hue"};
    std::vector<TrackSpec> specs;
    for (int k = 0; k < 4; ++k) {
        const int w = side(rng), h = side(rng), m = margin(rng);
        specs.push_back({GenPoint<double>(std::floor(x(rng)) + 0.5, std::floor(y(rng)) + 0.5),
                         GenRect<double>(-w / 2.0, -h / 2.0, w, h),
                         GenRect<double>(-w / 2.0 - m, -h / 2.0 - m, w + 2 * m, h + 2 * m),
                         modes[mode(rng)]});
    }
    return specs;
}

} // namespace

TEST(TrFollowReuse, TracksSharingADriverKeyWhatTheyKeyAlone) {
    std::mt19937 rng(2024);
    const char* behaviors[] = {"default", "predictAndKey", "dontPredict", "stop"};
    int compared = 0;
    for (unsigned seed = 1; seed <= 4; ++seed) {
        const std::vector<TrackSpec> specs = randomTracks(rng);
        const char* behavior = behaviors[seed - 1];
        // A strict tolerance makes some matches fail: retries, coasting and
        // a lagged refinement falling behind all get their turn.
        const double tolerance = seed % 2 ? 0.5 : 0.97;
        SCOPED_TRACE(std::string("seed ") + std::to_string(seed) + ", " + behavior);
        const std::vector<Image> frames = walk(seed);
        const auto together = std::make_unique<Pass>();
        run(*together, frames, specs, behavior, tolerance);
        for (int k = 0; k < int(specs.size()); ++k) {
            const auto alone = std::make_unique<Pass>();
            run(*alone, frames, specs, behavior, tolerance, k);
            ASSERT_TRUE(alone->steps[0] == together->steps[std::size_t(k)]) << "track " << k;
            for (int f = 1; f <= kFrames; ++f) {
                const float t = float(f);
                TrShotImpl& a = alone->shot;
                TrShotImpl& b = together->shot;
                ASSERT_EQ(a.isPositionKeyed(0, t), b.isPositionKeyed(k, t)) << k << " at " << f;
                const GenPoint<double> p = a.getPosition(0, t), q = b.getPosition(k, t);
                EXPECT_TRUE(sameBits(p.x, q.x) && sameBits(p.y, q.y)) << k << " at " << f;
                EXPECT_TRUE(sameBits(a.getQuality(0, t), b.getQuality(k, t))) << k << " at " << f;
                EXPECT_TRUE(a.getTransform(0, t) == b.getTransform(k, t)) << k << " at " << f;
                compared += a.isPositionKeyed(0, t) ? 1 : 0;
            }
        }
    }
    // Enough keys were made for the comparison to mean something.
    EXPECT_GT(compared, 4 * 4 * kFrames / 2);
}
