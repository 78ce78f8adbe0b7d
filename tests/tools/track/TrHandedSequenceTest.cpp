#include "tools/track/TrHandedSequence.h"

#include "base/SmartObject.h"
#include "support/ExpectThrows.h"
#include "track/TrShotImpl.h"

#include <gtest/gtest.h>

using Orvane::Format;
using Orvane::GenRect;
using Orvane::Image;

namespace {

// A frame whose size tells it apart: frame n is 10 + n pixels wide.
Image frameOf(int n) {
    return Image(GenRect<int>(0, 0, 10 + n, 6), Format::getRGB());
}

} // namespace

TEST(TrHandedSequence, ServesTheFramesHandedWithTheRangeItWasGiven) {
    TrHandedSequence seq(3, 40);
    EXPECT_EQ(3, seq.getFirstFrame());
    EXPECT_EQ(40, seq.getLastFrame());
    const Image a = frameOf(5), b = frameOf(6);
    seq.hand(5, a);
    seq.hand(6, b);
    // The frame is the store handed over, not a copy, and times round.
    EXPECT_EQ(a, seq.getFrame(5));
    EXPECT_EQ(b, seq.getFrame(5.6f));
    EXPECT_EQ(GenRect<int>(0, 0, 16, 6), seq.getBounds(6));
    const Image part = seq.getImage(5, GenRect<int>(2, 1, 4, 3));
    EXPECT_EQ(GenRect<int>(2, 1, 4, 3), part.getBounds());
    EXPECT_EQ(a.getBuffer(Orvane::GenPoint<int>(2, 1)), part.getBuffer());

    // A frame handed again replaces the one held.
    const Image again = frameOf(5);
    seq.hand(5, again);
    EXPECT_EQ(again, seq.getFrame(5));
}

TEST(TrHandedSequence, KeepsTheLastFramesHandedInEitherDirection) {
    TrHandedSequence forward(1, 100, 3);
    for (int n = 1; n <= 5; ++n)
        forward.hand(float(n), frameOf(n));
    for (int n = 1; n <= 5; ++n)
        EXPECT_EQ(n >= 3, forward.holds(float(n))) << n;

    TrHandedSequence backward(1, 100, 3);
    for (int n = 10; n >= 6; --n)
        backward.hand(float(n), frameOf(n));
    for (int n = 6; n <= 10; ++n)
        EXPECT_EQ(n <= 8, backward.holds(float(n))) << n;

    // Handing a held frame again makes it the newest, so it outlives the
    // ones handed between.
    forward.hand(3, frameOf(3));
    forward.hand(6, frameOf(6));
    EXPECT_TRUE(forward.holds(3));
    EXPECT_FALSE(forward.holds(4));

    TrHandedSequence one(1, 100, 0);
    EXPECT_EQ(1, one.getKeep());
}

TEST(TrHandedSequence, RefusesAFrameItWasNotGivenNamingTheFrame) {
    TrHandedSequence seq(1, 20, 2);
    for (int n = 1; n <= 3; ++n)
        seq.hand(float(n), frameOf(n));
    expectThrows<IllegalArgumentException>([&] { seq.getFrame(1); },
                                           "frame 1 was not handed to this sequence");
    expectThrows<IllegalArgumentException>([&] { seq.getBounds(7.4f); },
                                           "frame 7 was not handed to this sequence");
    expectThrows<IllegalArgumentException>([&] { seq.getImage(4, GenRect<int>(0, 0, 2, 2)); },
                                           "frame 4 was not handed to this sequence");
    seq.clear();
    expectThrows<IllegalArgumentException>([&] { seq.getFrame(3); },
                                           "frame 3 was not handed to this sequence");
}

// A shot reads its frames through the sequence and lets go of it with the
// last reference.
TEST(TrHandedSequence, FeedsAShot) {
    TrShotImpl shot;
    TrHandedSequence* seq = new TrHandedSequence(2, 9);
    shot.setSequence(seq);
    EXPECT_EQ(1u, seq->getRefCount());
    const Image f = frameOf(2);
    seq->hand(2, f);
    bool hasFirst = false, hasLast = false;
    float first = 0, last = 0;
    shot.getTrackRange(hasFirst, first, hasLast, last);
    EXPECT_EQ(2.0f, first);
    EXPECT_EQ(9.0f, last);
    EXPECT_EQ(GenRect<int>(1, 1, 3, 2),
              shot.getImage(2, GenRect<int>(1, 1, 3, 2), true).getBounds());
    expectThrows<IllegalArgumentException>(
        [&] { shot.getImage(3, GenRect<int>(0, 0, 1, 1), true); },
        "frame 3 was not handed to this sequence");
}
