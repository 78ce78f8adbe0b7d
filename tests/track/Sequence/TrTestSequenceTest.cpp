#include "track/Sequence/TrTestSequence.h"

#include "base/Exception.h"
#include "base/SmartObject.h"
#include "image/Format.h"
#include "image/GenRect.h"
#include "image/Image.h"
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

constexpr double pi = 3.14159265358979323846;

// The red byte of pixel (x, y) of an RGB frame.
unsigned char redAt(const Image& image, int x, int y) {
    unsigned char* p;
    image.getBuffer(p, GenPoint<int>(x, y));
    return p[image.getFormat().getChannel('r')];
}

// The saddle, written out pixel by pixel from its definition.
int saddle(int x, int y, double cx, double cy, double thetaDegrees) {
    const double th = thetaDegrees * (pi / 180);
    const double u = x + 0.5 - cx, v = y + 0.5 - cy;
    int a = int((u * std::sin(th) + v * std::cos(th)) * 128 + 128);
    int b = int((std::cos(th) * u - std::sin(th) * v) * 128 + 128);
    a = std::min(215, std::max(40, a));
    b = std::min(215, std::max(40, b));
    return std::max(std::min(255 - b, a), std::min(b, 255 - a));
}

// Compares a whole frame with the saddle about (cx, cy) at angle theta.
void expectFrame(const Image& frame, double cx, double cy, double thetaDegrees) {
    const GenRect<int> b = frame.getBounds();
    int mismatches = 0;
    for (int y = b.y; y < b.y + b.h; ++y) {
        for (int x = b.x; x < b.x + b.w; ++x) {
            unsigned char* p;
            frame.getBuffer(p, GenPoint<int>(x, y));
            if (p[0] != saddle(x, y, cx, cy, thetaDegrees) || p[1] != 0 || p[2] != 0)
                ++mismatches;
        }
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

TEST(TrTestSequence, FirstFrameCentrePixelIs63) {
    SmartPtr<TrTestSequence> seq(new TrTestSequence());
    EXPECT_EQ(1, seq->getFirstFrame());
    EXPECT_EQ(30, seq->getLastFrame());
    EXPECT_EQ(GenRect<int>(0, 0, 320, 240), seq->getBounds(-4.0f));
    Image frame = seq->getFrame(1.0f);
    EXPECT_EQ(Orvane::Format::getRGB(), frame.getFormat());
    EXPECT_EQ(GenRect<int>(0, 0, 320, 240), frame.getBounds());
    // u = v = 0.5, angle 0: a = b = 192, value = min(255 - 192, 192) = 63.
    EXPECT_EQ(63, redAt(frame, 160, 120));
    expectFrame(frame, 160, 120, 0);
}

TEST(TrTestSequence, CentreWalksATurningPathAndPatternRotates) {
    SmartPtr<TrTestSequence> seq(new TrTestSequence());
    // Frame 2: one step (2, -2). Frame 3: a second step turned by 5 degrees,
    // (2 cos 5 + 2 sin 5, -2 cos 5 + 2 sin 5).
    const double c5 = std::cos(5 * (pi / 180)), s5 = std::sin(5 * (pi / 180));
    expectFrame(seq->getFrame(2.0f), 162, 118, -10);
    expectFrame(seq->getFrame(3.0f), 162 + (c5 * 2 + s5 * 2), 118 + (c5 * -2 + s5 * 2), -20);
}

TEST(TrTestSequence, FramesBeforeFirstRotateBackWithoutMoving) {
    SmartPtr<TrTestSequence> seq(new TrTestSequence());
    expectFrame(seq->getFrame(0.0f), 160, 120, 10);
    expectFrame(seq->getFrame(-2.0f), 160, 120, 30);
}

TEST(TrTestSequence, TimesRoundToWholeFrames) {
    SmartPtr<TrTestSequence> seq(new TrTestSequence());
    seq->setWidth(40);
    seq->setHeight(30);
    seq->setDX(3);
    seq->setDY(1);
    Image at2 = seq->getFrame(2.0f);
    Image near2 = seq->getFrame(1.5f);
    Image below = seq->getFrame(2.49f);
    for (int y = 0; y < 30; ++y)
        for (int x = 0; x < 40; ++x) {
            ASSERT_EQ(redAt(at2, x, y), redAt(near2, x, y));
            ASSERT_EQ(redAt(at2, x, y), redAt(below, x, y));
        }
    expectFrame(at2, 23, 16, -10);
}

TEST(TrTestSequence, ParametersShapeThePath) {
    SmartPtr<TrTestSequence> seq(new TrTestSequence());
    seq->setWidth(64);
    seq->setHeight(48);
    seq->setDX(1.5);
    seq->setDY(-0.5);
    seq->setDTh(0);
    seq->setDA(25);
    EXPECT_EQ(GenRect<int>(0, 0, 64, 48), seq->getBounds(1.0f));
    // A straight path: three steps of (1.5, -0.5) from (32, 24).
    expectFrame(seq->getFrame(4.0f), 36.5, 22.5, -75);
    // Steps turning by a right angle: (1, 0) then (0, 1).
    seq->setDX(1);
    seq->setDY(0);
    seq->setDTh(90);
    expectFrame(seq->getFrame(3.0f), 33, 25, -50);
}

TEST(TrTestSequence, ZeroSizeGivesFramesWithoutPixels) {
    SmartPtr<TrTestSequence> seq(new TrTestSequence());
    seq->setWidth(0);
    Image frame = seq->getFrame(5.0f);
    EXPECT_EQ(GenRect<int>(0, 0, 0, 240), frame.getBounds());
    EXPECT_TRUE(frame.getBounds().isEmpty());
    seq->setWidth(8);
    seq->setHeight(0);
    EXPECT_EQ(GenRect<int>(0, 0, 8, 0), seq->getFrame(1.0f).getBounds());
}

TEST(TrTestSequence, NegativeSizeIsRefused) {
    SmartPtr<TrTestSequence> seq(new TrTestSequence());
    expectThrows<IllegalArgumentException>([&] { seq->setWidth(-1); },
                                           "TrTestSequence: negative width");
    expectThrows<IllegalArgumentException>([&] { seq->setHeight(-1); },
                                           "TrTestSequence: negative height");
    EXPECT_EQ(320, seq->getWidth());
    EXPECT_EQ(240, seq->getHeight());
}

TEST(TrTestSequence, GetImageIsAViewOnTheFramesPixels) {
    SmartPtr<TrTestSequence> seq(new TrTestSequence());
    const GenRect<int> r(300, 230, 40, 40);
    Image view = seq->getImage(1.0f, r);
    EXPECT_EQ(GenRect<int>(300, 230, 20, 10), view.getBounds());
    auto* offset = dynamic_cast<Orvane::OffsetImageImpl*>(view.getImpl());
    ASSERT_NE(nullptr, offset);
    const Image& parent = offset->getParent();
    EXPECT_EQ(GenRect<int>(0, 0, 320, 240), parent.getBounds());
    const GenPoint<int> p(310, 235);
    EXPECT_EQ(parent.getBuffer(p), view.getBuffer(p));
    // Writing through the view changes the frame it came from.
    unsigned char* q;
    view.getBuffer(q, p)[1] = 77;
    EXPECT_EQ(77, static_cast<unsigned char*>(parent.getBuffer(p))[1]);
}

TEST(TrTestSequence, BaseFrameIsUnsupported) {
    SmartPtr<Bare> bare(new Bare());
    EXPECT_EQ(1, bare->getFirstFrame());
    expectThrows<UnsupportedOperationException>([&] { bare->getFrame(1.0f); },
                                                "track/Sequence line 183: subclass must implement");
    expectThrows<UnsupportedOperationException>(
        [&] { bare->getImage(1.0f, GenRect<int>(0, 0, 2, 2)); },
        "track/Sequence line 183: subclass must implement");
}
