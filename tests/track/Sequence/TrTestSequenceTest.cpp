#include "track/Sequence/TrTestSequence.h"

#include "support/ExpectThrows.h"
#include "track/Sequence/TrSequence.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::Image;
using Orvane::SmartPtr;

namespace {

// The saddle about (cx, cy) turned by theta, written out pixel by pixel
// from its definition, against the red channel of a whole frame; green and
// blue stay 0.
void expectFrame(const Image& frame, double cx, double cy, double thetaDegrees) {
    const double th = thetaDegrees * (M_PI / 180);
    const GenRect<int> b = frame.getBounds();
    int mismatches = 0;
    for (int y = b.y; y < b.y + b.h; ++y)
        for (int x = b.x; x < b.x + b.w; ++x) {
            const double u = x + 0.5 - cx, v = y + 0.5 - cy;
            const int a =
                std::clamp(int((u * std::sin(th) + v * std::cos(th)) * 128 + 128), 40, 215);
            const int c =
                std::clamp(int((std::cos(th) * u - std::sin(th) * v) * 128 + 128), 40, 215);
            unsigned char* p;
            frame.getBuffer(p, GenPoint<int>(x, y));
            mismatches +=
                p[0] != std::max(std::min(255 - c, a), std::min(c, 255 - a)) || p[1] || p[2];
        }
    EXPECT_EQ(0, mismatches) << "centre " << cx << "," << cy << " angle " << thetaDegrees;
}

// Overrides nothing but what is pure, to reach the base's getFrame.
struct Bare : TrSequence {
    int getFirstFrame() override { return TrSequence::getFirstFrame(); }
    int getLastFrame() override { return 3; }
    GenRect<int> getBounds(float) override { return GenRect<int>(0, 0, 4, 4); }
};

} // namespace

TEST(TrTestSequence, FramesFollowTheSaddleAlongATurningPath) {
    SmartPtr<TrTestSequence> seq(new TrTestSequence());
    EXPECT_EQ(1, seq->getFirstFrame());
    EXPECT_EQ(30, seq->getLastFrame());
    Image first = seq->getFrame(1.0f);
    EXPECT_EQ(Orvane::Format::getRGB(), first.getFormat());
    EXPECT_EQ(GenRect<int>(0, 0, 320, 240), first.getBounds());
    // u = v = 0.5, angle 0: a = b = 192, value = min(255 - 192, 192) = 63.
    unsigned char* p;
    first.getBuffer(p, GenPoint<int>(160, 120));
    EXPECT_EQ(63, p[0]);
    expectFrame(first, 160, 120, 0);
    // Frame 2: one step (2, -2). Frame 3: a second step turned by 5 degrees,
    // (2 cos 5 + 2 sin 5, -2 cos 5 + 2 sin 5); the pattern turns 10 a frame.
    const double c5 = std::cos(5 * (M_PI / 180)), s5 = std::sin(5 * (M_PI / 180));
    expectFrame(seq->getFrame(2.0f), 162, 118, -10);
    expectFrame(seq->getFrame(2.49f), 162, 118, -10);
    expectFrame(seq->getFrame(3.0f), 162 + (c5 * 2 + s5 * 2), 118 + (c5 * -2 + s5 * 2), -20);
}

TEST(TrTestSequence, SizesAndViews) {
    SmartPtr<TrTestSequence> seq(new TrTestSequence());
    // getImage is a view on the frame's pixels, cut to the frame.
    Image view = seq->getImage(1.0f, GenRect<int>(300, 230, 40, 40));
    EXPECT_EQ(GenRect<int>(300, 230, 20, 10), view.getBounds());
    auto* offset = dynamic_cast<Orvane::OffsetImageImpl*>(view.getImpl());
    ASSERT_NE(nullptr, offset);
    const GenPoint<int> p(310, 235);
    EXPECT_EQ(offset->getParent().getBuffer(p), view.getBuffer(p));
    seq->setWidth(0);
    EXPECT_EQ(GenRect<int>(0, 0, 0, 240), seq->getFrame(5.0f).getBounds());
}

TEST(TrSequence, FramesAreForSubclassesToMake) {
    SmartPtr<Bare> bare(new Bare());
    EXPECT_EQ(1, bare->getFirstFrame());
    const char* text = "track/Sequence line 183: subclass must implement";
    expectThrows<UnsupportedOperationException>([&] { bare->getFrame(1.0f); }, text);
    expectThrows<UnsupportedOperationException>(
        [&] { bare->getImage(1.0f, GenRect<int>(0, 0, 2, 2)); }, text);
}
