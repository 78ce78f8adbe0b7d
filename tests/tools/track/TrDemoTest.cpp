#include "tools/track/TrDemo.h"

#include "image/Image.h"
#include "track/Sequence/TrTestSequence.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

int red(const Orvane::Image& img, double x, double y) {
    unsigned char* p;
    img.getBuffer(p, Orvane::GenPoint<int>(int(std::floor(x)), int(std::floor(y))));
    return p[0];
}

} // namespace

// The known path is computed from the clip's definition; the rendered frames
// must agree with it: a point of the saddle keeps its value as it moves.
TEST(TrDemo, KnownPathsMatchTheRenderedFrames) {
    Orvane::SmartPtr<TrTestSequence> seq(new TrTestSequence());
    const Orvane::Image first = seq->getFrame(1);
    // Points in the middle of the four flat quadrants, 8 pixels out, and
    // some on the crossing lines' far side.
    const Orvane::GenPoint<double> offsets[] = {{8, 8}, {-8, 8}, {8, -8}, {-8, -8}, {15, 4}};
    for (int n = 1; n <= 30; ++n) {
        const Orvane::Image frame = seq->getFrame(float(n));
        for (const auto& o : offsets) {
            const Orvane::GenPoint<double> a = TrDemo::saddlePoint(*seq, 1, o);
            const Orvane::GenPoint<double> b = TrDemo::saddlePoint(*seq, n, o);
            EXPECT_EQ(red(first, a.x, a.y), red(frame, b.x, b.y))
                << "frame " << n << " offset " << o.x << "," << o.y;
        }
    }
}

TEST(TrDemo, CentreStartsMidFrameAndStepsAsDefined) {
    Orvane::SmartPtr<TrTestSequence> seq(new TrTestSequence());
    const Orvane::GenPoint<double> c1 = TrDemo::saddleCentre(*seq, 1);
    EXPECT_EQ(160.0, c1.x);
    EXPECT_EQ(120.0, c1.y);
    const Orvane::GenPoint<double> c2 = TrDemo::saddleCentre(*seq, 2);
    EXPECT_EQ(162.0, c2.x);
    EXPECT_EQ(118.0, c2.y);
    // The third step is the first turned by 5 degrees.
    const Orvane::GenPoint<double> c3 = TrDemo::saddleCentre(*seq, 3);
    const double phi = 5 * M_PI / 180;
    EXPECT_NEAR(2 * std::cos(phi) + 2 * std::sin(phi), c3.x - c2.x, 1e-12);
    EXPECT_NEAR(-2 * std::cos(phi) + 2 * std::sin(phi), c3.y - c2.y, 1e-12);
}
