#include "image/Format.h"
#include "image/ImageRows.h"
#include "image/XformBicubic.h"
#include "track/Sequence/TrSequence.h"
#include "track/TrFollow.h"
#include "track/TrShotImpl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::Image;
using Orvane::Interpolation;

namespace {

// Fine texture moving by a sub-pixel step a frame, evaluated exactly at each
// pixel centre and rounded to 8 bits, so that its phase sweeps the pixel.
class MovingWaves : public TrSequence {
public:
    int getFirstFrame() override { return 1; }
    int getLastFrame() override { return kFrames; }
    GenRect<int> getBounds(float) override { return GenRect<int>(0, 0, 120, 100); }
    Image getFrame(float t) override {
        const GenPoint<double> c = truth(int(std::lround(t)));
        Image img(getBounds(t), Orvane::Format::getRGB());
        const Orvane::ImageRows<unsigned char> rows(img);
        const int step = int(img.getFormat().getBytesPerPixel());
        for (int y = 0; y < 100; ++y) {
            unsigned char* p = rows.row(y);
            for (int x = 0; x < 120; ++x, p += step) {
                const double u = x + 0.5 - c.x, v = y + 0.5 - c.y;
                const double waves = std::sin(0.61 * u + 0.23 * v) +
                                     0.8 * std::sin(-0.37 * u + 0.93 * v + 1) +
                                     0.6 * std::sin(1.21 * u - 0.52 * v + 2);
                p[0] = p[1] = p[2] = static_cast<unsigned char>(std::lround(128 + 50 * waves));
            }
        }
        return img;
    }
    static GenPoint<double> truth(int f) {
        return {60.0 + 0.137 * (f - 1), 50.0 + 0.071 * (f - 1)};
    }
    static constexpr int kFrames = 16;
};

// The distance of each keyed position from the truth, frames 2 to those the
// lagged refinement reached.
std::vector<double> errors(Interpolation how) {
    TrShotImpl shot;
    shot.setSequence(new MovingWaves());
    TrFollow follow;
    follow.setShot(&shot);
    follow.setRefineInterpolation(how);
    shot.addTrack(MovingWaves::truth(1).x, MovingWaves::truth(1).y);
    shot.setPatternRect(0, GenRect<double>(-10.5, -10.5, 21, 21));
    shot.setSearchRect(0, GenRect<double>(-20.5, -20.5, 41, 41));
    shot.setUseRotate(0, false);
    shot.setUseScale(0, false);
    shot.setUseStretch(0, false);
    follow.begin(1, 1);
    std::vector<double> e;
    for (int f = 1; f <= MovingWaves::kFrames; ++f)
        if (!follow.track(0, f, 1))
            return e;
    follow.end(MovingWaves::kFrames);
    for (int f = 2; f <= MovingWaves::kFrames - 2; ++f) {
        const GenPoint<double> p = shot.getPosition(0, float(f));
        const GenPoint<double> q = MovingWaves::truth(f);
        e.push_back(std::hypot(p.x - q.x, p.y - q.y));
    }
    return e;
}

double largest(const std::vector<double>& e) {
    return e.empty() ? INFINITY : *std::max_element(e.begin(), e.end());
}

} // namespace

TEST(TrFollowInterpolation, TheSplineBringsTheKeyedPositionsCloserToTheTruth) {
    EXPECT_EQ(Interpolation::Bilinear, TrFollow().getRefineInterpolation());
    const std::vector<double> bilinear = errors(Interpolation::Bilinear);
    const std::vector<double> spline = errors(Interpolation::BSpline);
    ASSERT_EQ(size_t(MovingWaves::kFrames - 3), bilinear.size());
    ASSERT_EQ(bilinear.size(), spline.size());
    // The 8-bit rounding alone moves a 21 x 21 fit by far less than this.
    EXPECT_LT(largest(spline), 0.005);
    EXPECT_LT(largest(spline), largest(bilinear) / 2);
}
