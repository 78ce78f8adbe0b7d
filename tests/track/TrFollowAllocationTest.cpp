#include "track/TrFollow.h"

#include "image/Format.h"
#include "image/Image.h"
#include "krovel/KrGenVector.h"
#include "track/Sequence/TrSequence.h"
#include "track/TrShotImpl.h"
#include "track/TrackImages.h"

#include "support/AllocationCounting.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

using allocationcount::allocations;
using allocationcount::counting;

extern "C" {

// The refinement's halving of the search image (Rescaler::apply, wrapped by
// the link as well) is counted apart: it is the refinement's own storage,
// with tests of its own, and this test holds the rest of the step.
long halvingAllocations = 0;
// NOLINTNEXTLINE(bugprone-reserved-identifier): the linker's names.
const void* __real__ZN6Orvane8Rescaler5applyERKNS_5ImageE(void* rescaler, const void* img);
// NOLINTNEXTLINE(bugprone-reserved-identifier)
const void* __wrap__ZN6Orvane8Rescaler5applyERKNS_5ImageE(void* rescaler, const void* img) {
    const long before = allocations;
    const void* out = __real__ZN6Orvane8Rescaler5applyERKNS_5ImageE(rescaler, img);
    halvingAllocations += allocations - before;
    allocations = before;
    return out;
}
}

using namespace trackimages;

namespace {

const int kWidth = 240;
const int kHeight = 180;
const int kFrames = 12;
// A turn of 0.4 degrees a frame about the frame centre and a drift of
// (1.3, -0.7) pixels: the rotation refinement has something to find.
const double kTurn = 0.4 * M_PI / 180;
const double kStepX = 1.3;
const double kStepY = -0.7;

GenPoint<double> truth(const GenPoint<double>& p, int f) {
    const double a = (f - 1) * kTurn, c = std::cos(a), s = std::sin(a);
    const double dx = p.x - kWidth / 2.0, dy = p.y - kHeight / 2.0;
    return GenPoint<double>(kWidth / 2.0 + c * dx - s * dy + (f - 1) * kStepX,
                            kHeight / 2.0 + s * dx + c * dy + (f - 1) * kStepY);
}

// Four-channel 8-bit frames, as a host hands them over, made once for every
// sequence of the program.
const std::vector<Image>& turningFrames() {
    static const std::vector<Image> frames = [] {
        std::vector<Image> all;
        const Texture texture(5);
        const Format& format = Format::getRGBA();
        for (int f = 1; f <= kFrames; ++f) {
            Image img(GenRect<int>(0, 0, kWidth, kHeight), format);
            const double a = (f - 1) * kTurn, c = std::cos(a), s = std::sin(a);
            for (int y = 0; y < kHeight; ++y)
                for (int x = 0; x < kWidth; ++x) {
                    // Frame f at q shows frame 1 at the inverse motion of q.
                    const double dx = x + 0.5 - kWidth / 2.0 - (f - 1) * kStepX;
                    const double dy = y + 0.5 - kHeight / 2.0 - (f - 1) * kStepY;
                    const double u = kWidth / 2.0 + c * dx + s * dy;
                    const double v = kHeight / 2.0 - s * dx + c * dy;
                    unsigned char* p = at<unsigned char>(img, x, y);
                    // Colour differs per channel, so every mode sees texture.
                    p[format.getChannel('r')] = (unsigned char)std::lround(255 * texture(u, v));
                    p[format.getChannel('g')] = (unsigned char)std::lround(255 * texture(v, u));
                    p[format.getChannel('b')] = (unsigned char)std::lround(128 * texture(u, u));
                    p[format.getChannel('a')] = 255;
                }
            all.push_back(img);
        }
        return all;
    }();
    return frames;
}

class Turning : public TrSequence {
public:
    int getFirstFrame() override { return 1; }
    int getLastFrame() override { return kFrames; }
    GenRect<int> getBounds(float) override { return GenRect<int>(0, 0, kWidth, kHeight); }
    Image getFrame(float t) override { return turningFrames()[std::size_t(std::lround(t) - 1)]; }
};

// Runs f with the count on and returns the allocations it made.
template <class F> long allocationsOf(F&& f) {
    allocations = 0;
    counting = true;
    f();
    counting = false;
    return allocations;
}

const GenPoint<double> kPoints[] = {{70.5, 60.5}, {160.5, 55.5}, {80.5, 120.5}, {150.5, 110.5}};

} // namespace

TEST(TrFollowAllocation, TheCounterSeesEveryKindOfAllocation) {
    // Without this the zeros below would prove nothing: an image's store
    // from new and its pixels from new[], a matrix block from calloc.
    EXPECT_EQ(2, allocationsOf([] { Image img(GenRect<int>(0, 0, 4, 4), Format::getRGBA()); }));
    EXPECT_EQ(1, allocationsOf([] { KrGenVector<float> v(7); }));
}

// The whole step with the refinement on, rotation free (the shot's default)
// and not, in every colour mode that reduces in place: after the first
// frames, whole frames of every track allocate nothing outside the halving,
// and the tracks stay on the motion.
TEST(TrFollowAllocation, StepsAfterATracksFirstFramesAllocateNothing) {
    for (const bool rotate : {true, false})
        for (const char* mode : {"luminance", "red", "saturation"}) {
            SCOPED_TRACE(std::string(mode) + (rotate ? ", rotation free" : ", no rotation"));
            TrShotImpl shot;
            shot.setSequence(new Turning());
            for (const GenPoint<double>& p : kPoints) {
                shot.addTrack(p.x, p.y);
                const int i = shot.getTrackCount() - 1;
                shot.setPatternRect(i, GenRect<double>(-10.5, -10.5, 21, 21));
                shot.setSearchRect(i, GenRect<double>(-20.5, -20.5, 41, 41));
                shot.setColorMode(i, mode);
            }
            shot.setUseRotate(0, rotate);
            TrFollow follow;
            follow.setShot(&shot);
            follow.begin(1, 1);
            const int n = shot.getTrackCount();
            halvingAllocations = 0;
            for (int f = 1; f <= kFrames; ++f) {
                const long made = allocationsOf([&] {
                    for (int i = 0; i < n; ++i)
                        ASSERT_TRUE(follow.track(i, f, 1)) << "track " << i << " frame " << f;
                });
                // The begin frame captures patterns; the first frames fill
                // the search cache and size the working images.
                if (f > 4) {
                    EXPECT_EQ(0, made) << "frame " << f;
                }
            }
            // The wrap saw the halving, or the zeros above would not hold it
            // out.
            EXPECT_GT(halvingAllocations, 0);
            // 8-bit frames of a smooth texture: a tenth of a pixel leaves
            // room for the quantisation once the turn is fitted.
            for (int i = 0; rotate && i < n; ++i) {
                const GenPoint<double> got = shot.getPosition(i, float(kFrames));
                const GenPoint<double> want = truth(kPoints[i], kFrames);
                EXPECT_LT(std::hypot(got.x - want.x, got.y - want.y), 0.1) << "track " << i;
            }
        }
}

// The shot hands out a view of its frame for each fetch; while the caller
// keeps no earlier one, the view is reused rather than made anew, and a view
// still held is never changed under its holder.
TEST(TrFollowAllocation, AShotServesRegionsWithoutAllocatingAndKeepsHeldViews) {
    TrShotImpl shot;
    shot.setSequence(new Turning());
    const Image frame = shot.getImage(3, GenRect<int>(0, 0, kWidth, kHeight), false);
    (void)shot.getImage(3, GenRect<int>(10, 10, 5, 5), true);
    EXPECT_EQ(0, allocationsOf([&] {
                  for (int k = 0; k < 10; ++k) {
                      const Image view = shot.getImage(3, GenRect<int>(k, 2 * k, 30, 20), true);
                      EXPECT_EQ(frame.getBuffer(GenPoint<int>(k, 2 * k)), view.getBuffer());
                  }
              }));
    const Image held = shot.getImage(3, GenRect<int>(220, 170, 40, 40), true);
    const Image next = shot.getImage(4, GenRect<int>(5, 6, 7, 8), true);
    // Cut to the frame, as Image::clip cuts.
    EXPECT_EQ(GenRect<int>(220, 170, 20, 10), held.getBounds());
    EXPECT_EQ(frame.getBuffer(GenPoint<int>(220, 170)), held.getBuffer());
    EXPECT_EQ(GenRect<int>(5, 6, 7, 8), next.getBounds());
    EXPECT_NE(held, next);
}
