#include "track/TrShotImpl.h"

#include "base/Exception.h"
#include "base/SafeObject.h"
#include "base/Signal.h"
#include "base/SmartObject.h"
#include "image/GenRect.h"
#include "image/Image.h"
#include "krovel/AffineTransform.h"
#include "krovel/KrGenMatrix.h"
#include "support/ExpectThrows.h"
#include "track/Sequence/TrTestSequence.h"
#include "track/TrTrack.h"

#include <gtest/gtest.h>

using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::SmartPtr;

namespace {

struct Counter : public virtual Orvane::SafeObject {
    explicit Counter(Orvane::Signal& signal) { signal.connect(this, &Counter::hit); }
    void hit() { ++count; }
    int count = 0;
};

// A test sequence that reports its destruction.
struct ProbeSequence : TrTestSequence {
    explicit ProbeSequence(bool* destroyed) : destroyed(destroyed) {}
    ~ProbeSequence() override { *destroyed = true; }
    bool* destroyed;
};

// A shot with two tracks, the usual fixture.
struct TwoTracks : testing::Test {
    TwoTracks() : shot(new TrShotImpl()) {
        shot->addTrack(10, 20);
        shot->addTrack(-3, 4);
    }
    SmartPtr<TrShotImpl> shot;
};

} // namespace

TEST(TrShotImpl, IntTimeRoundsHalvesAwayFromZero) {
    EXPECT_EQ(3, TrShotImpl::intTime(2.5f));
    EXPECT_EQ(2, TrShotImpl::intTime(2.49f));
    EXPECT_EQ(-3, TrShotImpl::intTime(-2.5f));
    EXPECT_EQ(-2, TrShotImpl::intTime(-2.49f));
    EXPECT_EQ(1, TrShotImpl::intTime(0.5f));
    EXPECT_EQ(-1, TrShotImpl::intTime(-0.5f));
    EXPECT_EQ(0, TrShotImpl::intTime(0.49f));
    EXPECT_EQ(7, TrShotImpl::intTime(7.0f));
}

TEST_F(TwoTracks, PerTrackTimesUseTheRoundedFrame) {
    shot->setPosition(0, 2.0f, GenPoint<double>(1, 1));
    shot->setPosition(0, 2.5f, GenPoint<double>(5, 5));
    EXPECT_TRUE(shot->isPositionKeyed(0, 3.0f));
    EXPECT_EQ(GenPoint<double>(5, 5), shot->getPosition(0, 2.5f));
    EXPECT_EQ(GenPoint<double>(1, 1), shot->getPosition(0, 2.49f));
    shot->setQuality(1, -2.5f, 0.75);
    EXPECT_TRUE(shot->isQualityKeyed(1, -3.0f));
    EXPECT_FALSE(shot->isQualityKeyed(1, -2.0f));
    EXPECT_EQ(0.75, shot->getQuality(1, -3.4f));
}

TEST_F(TwoTracks, AddTrackAppendsAttachedTrackAtUnkeyedPosition) {
    ASSERT_EQ(2, shot->getTrackCount());
    EXPECT_EQ(GenPoint<double>(10, 20), shot->getPosition(0, 99.0f));
    EXPECT_EQ(GenPoint<double>(-3, 4), shot->getPosition(1, -5.0f));
    EXPECT_FALSE(shot->isPositionKeyed(0, 0.0f));
    EXPECT_EQ(static_cast<TrNode*>(shot.get()), shot->getTrack(1)->getOwner());
}

TEST_F(TwoTracks, ChangesOfTracksReachTheShotOnce) {
    Counter heard(shot->changed);
    shot->getTrack(0)->changed();
    EXPECT_EQ(1, heard.count);
    shot->getTrack(1)->quality().changed();
    EXPECT_EQ(2, heard.count);
}

TEST_F(TwoTracks, RectsMapOntoAttributes) {
    EXPECT_EQ(GenRect<double>(-5, -5, 10, 10), shot->getPatternRect(0, 1.0f));
    EXPECT_EQ(GenRect<double>(-10, -10, 20, 20), shot->getSearchRect(0, 1.0f));
    EXPECT_EQ(GenRect<double>(-10, -10, 20, 20), shot->getSearchedRect(1, 1.0f));

    shot->getTrack(0)->patternRect().setValue(5, GenRect<double>(0, 0, 1, 1));
    shot->setPatternRect(0, GenRect<double>(-7, -6, 14, 12));
    EXPECT_FALSE(shot->getTrack(0)->patternRect().isKeyed(5));
    EXPECT_EQ(GenRect<double>(-7, -6, 14, 12), shot->getPatternRect(0, 5.0f));

    shot->setSearchRect(1, GenRect<double>(-20, -15, 40, 30));
    EXPECT_EQ(GenRect<double>(-20, -15, 40, 30), shot->getSearchRect(1, 0.0f));
    EXPECT_EQ(GenRect<double>(-10, -10, 20, 20), shot->getSearchRect(0, 0.0f));

    shot->setSearchedRect(1, 4.6f, GenRect<double>(-12, -12, 24, 24));
    EXPECT_TRUE(shot->getTrack(1)->searchedRect().isKeyed(5));
    EXPECT_EQ(GenRect<double>(-12, -12, 24, 24), shot->getSearchedRect(1, 5.0f));
}

TEST_F(TwoTracks, TransformAndItsMatrix) {
    shot->setTransform(1, 3.0f, AffineTransform(3, 4, 0, 2, 1, 1));
    EXPECT_EQ(AffineTransform(3, 4, 0, 2, 1, 1), shot->getTransform(1, 3.0f));
    // Scale 2 without rotation or stretch: [[2, 0, 3], [0, 2, 4]].
    KrGenMatrix<double> m = shot->getMatrix(1, 3.0f);
    ASSERT_EQ(2, m.rows());
    ASSERT_EQ(3, m.cols());
    const double expected[2][3] = {{2, 0, 3}, {0, 2, 4}};
    for (int r = 0; r < 2; ++r)
        for (int c = 0; c < 3; ++c)
            EXPECT_EQ(expected[r][c], m(r, c));
}

TEST(TrShotImpl, FreshShotSettings) {
    SmartPtr<TrShotImpl> shot(new TrShotImpl());
    EXPECT_EQ(0, shot->getTrackCount());
    EXPECT_FALSE(shot->getTracking());
    EXPECT_EQ(nullptr, shot->getSequence());
    shot->addTrack(0, 0);
    EXPECT_EQ(0.8, shot->getFailureTolerance(0));
    EXPECT_EQ(dstring("stop"), shot->getFailureBehavior(0));
    EXPECT_FALSE(shot->getUseScale(0));
    EXPECT_TRUE(shot->getUseRotate(0));
    EXPECT_FALSE(shot->getUseStretch(0));
    shot->setTracking(true);
    EXPECT_TRUE(shot->getTracking());
}

TEST_F(TwoTracks, ShotWideSettingsAreSeenThroughEveryIndex) {
    shot->setFailureTolerance(1, 0.5);
    shot->setFailureBehavior(0, "predict");
    shot->setUseScale(1, true);
    shot->setUseRotate(0, false);
    shot->setUseStretch(1, true);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(0.5, shot->getFailureTolerance(i));
        EXPECT_EQ(dstring("predict"), shot->getFailureBehavior(i));
        EXPECT_TRUE(shot->getUseScale(i));
        EXPECT_FALSE(shot->getUseRotate(i));
        EXPECT_TRUE(shot->getUseStretch(i));
    }
    // Colour mode, unlike the rest, is the track's own.
    shot->setColorMode(1, "hue");
    EXPECT_EQ(dstring("hue"), shot->getColorMode(1));
    EXPECT_EQ(dstring("luminance"), shot->getColorMode(0));
    // The tracks' own fields stay untouched.
    EXPECT_EQ(0.8, shot->getTrack(0)->getFailureTolerance());
    EXPECT_TRUE(shot->getTrack(1)->getFailureBehavior().empty());
}

TEST_F(TwoTracks, EveryTrackIndexIsChecked) {
    shot->clearTracks();
    shot->addTrack(0, 0);
    const char* text = "Array::operator[]";
    expectThrows<BadIndexException>([&] { shot->setFailureTolerance(1, 0.5); }, text);
    EXPECT_EQ(0.8, shot->getFailureTolerance(0));
    expectThrows<BadIndexException>([&] { shot->getFailureTolerance(-1); }, text);
    expectThrows<BadIndexException>([&] { shot->setFailureBehavior(1, "stop"); }, text);
    expectThrows<BadIndexException>([&] { shot->getUseScale(1); }, text);
    expectThrows<BadIndexException>([&] { shot->setUseRotate(1, true); }, text);
    expectThrows<BadIndexException>([&] { shot->getUseStretch(1); }, text);
    expectThrows<BadIndexException>([&] { shot->getPosition(1, 0); }, text);
    expectThrows<BadIndexException>([&] { shot->setPatternRect(1, GenRect<double>()); }, text);
    expectThrows<BadIndexException>([&] { shot->getColorMode(1); }, text);
    expectThrows<BadIndexException>([&] { shot->getMatrix(1, 0); }, text);
    expectThrows<BadIndexException>([&] { shot->getTrack(1); }, text);
}

TEST_F(TwoTracks, PositionKeyedByUserNeedsEqualKeysAtTheFrame) {
    TrTrack* t = shot->getTrack(0);
    t->userPosition().setValue(4, GenPoint<double>(1.5, 2.5));
    EXPECT_FALSE(shot->isPositionKeyedByUser(0, 4.0f)); // user key alone

    shot->setPosition(0, 4.0f, GenPoint<double>(1.5, 2.5));
    EXPECT_TRUE(shot->isPositionKeyedByUser(0, 4.0f));
    EXPECT_TRUE(shot->isPositionKeyedByUser(0, 3.5f)); // rounds to 4
    EXPECT_FALSE(shot->isPositionKeyedByUser(1, 4.0f));

    shot->setPosition(0, 4.0f, GenPoint<double>(1.5, 2.5000000001));
    EXPECT_FALSE(shot->isPositionKeyedByUser(0, 4.0f)); // tracker overwrote y
    shot->setPosition(0, 4.0f, GenPoint<double>(1.4, 2.5));
    EXPECT_FALSE(shot->isPositionKeyedByUser(0, 4.0f)); // differs in x

    shot->setPosition(0, 6.0f, GenPoint<double>(0, 0));
    EXPECT_FALSE(shot->isPositionKeyedByUser(0, 6.0f)); // position key alone
    // Interpolated user values between keys do not count.
    t->userPosition().setValue(8, GenPoint<double>(0, 0));
    shot->setPosition(0, 6.0f, t->userPosition().getValue(6));
    EXPECT_FALSE(shot->isPositionKeyedByUser(0, 6.0f));
}

TEST(TrShotImpl, ListHoldsOneReferencePerTrack) {
    Orvane::SafePtr<TrTrack> first, second, third;
    SmartPtr<TrTrack> kept;
    {
        SmartPtr<TrShotImpl> shot(new TrShotImpl());
        first = shot->addTrack(1, 1);
        second = shot->addTrack(2, 2);
        EXPECT_EQ(1u, first->getRefCount());
        kept = second.get();
        EXPECT_EQ(2u, second->getRefCount());

        shot->clearTracks();
        EXPECT_EQ(0, shot->getTrackCount());
        EXPECT_EQ(nullptr, first.get());
        ASSERT_NE(nullptr, second.get());
        EXPECT_EQ(1u, second->getRefCount());

        third = shot->addTrack(3, 3);
    }
    EXPECT_EQ(nullptr, third.get()); // released with the shot
    // The kept track outlives its shot; its stale connection is harmless.
    ASSERT_NE(nullptr, second.get());
    second->changed();
    kept = nullptr;
    EXPECT_EQ(nullptr, second.get());
}

TEST(TrShotImpl, ShotHoldsOneReferenceOnItsSequence) {
    bool firstGone = false, secondGone = false;
    ProbeSequence* first = new ProbeSequence(&firstGone);
    ProbeSequence* second = new ProbeSequence(&secondGone);
    {
        SmartPtr<TrShotImpl> shot(new TrShotImpl());
        shot->setSequence(first);
        EXPECT_EQ(1u, first->getRefCount());
        shot->setSequence(first);
        EXPECT_EQ(1u, first->getRefCount());
        EXPECT_EQ(first, shot->getSequence());

        shot->setSequence(second);
        EXPECT_TRUE(firstGone);
        EXPECT_FALSE(secondGone);
        EXPECT_EQ(second, shot->getSequence());
    }
    EXPECT_TRUE(secondGone);
}

TEST(TrShotImpl, FramesComeFromTheSequence) {
    SmartPtr<TrShotImpl> shot(new TrShotImpl());
    SmartPtr<TrTestSequence> seq(new TrTestSequence());
    shot->setSequence(seq.get());

    bool hasFirst = false, hasLast = false;
    float first = 0, last = 0;
    shot->getTrackRange(hasFirst, first, hasLast, last);
    EXPECT_TRUE(hasFirst);
    EXPECT_TRUE(hasLast);
    EXPECT_EQ(1.0f, first);
    EXPECT_EQ(30.0f, last);
    EXPECT_EQ(1, shot->getFirstFrame());
    EXPECT_EQ(30, shot->getLastFrame());

    const GenRect<int> rect(150, 110, 20, 30);
    Orvane::Image whole = shot->getImage(2.0f, rect, false);
    Orvane::Image part = shot->getImage(2.0f, rect, true);
    EXPECT_EQ(GenRect<int>(0, 0, 320, 240), whole.getBounds());
    EXPECT_EQ(rect, part.getBounds());
    Orvane::Image reference = seq->getFrame(2.0f);
    for (int y = rect.y; y < rect.y + rect.h; ++y) {
        for (int x = rect.x; x < rect.x + rect.w; ++x) {
            unsigned char *p, *q;
            part.getBuffer(p, GenPoint<int>(x, y));
            reference.getBuffer(q, GenPoint<int>(x, y));
            ASSERT_EQ(q[0], p[0]) << x << "," << y;
        }
    }
}

TEST(TrShotImpl, FrameAccessWithoutSequenceIsRefused) {
    SmartPtr<TrShotImpl> shot(new TrShotImpl());
    const char* text = "TrShotImpl: no sequence";
    bool a, b;
    float f, l;
    expectThrows<NullPointerException>([&] { shot->getTrackRange(a, f, b, l); }, text);
    expectThrows<NullPointerException>([&] { shot->getImage(1, GenRect<int>(), true); }, text);
    expectThrows<NullPointerException>([&] { shot->getFirstFrame(); }, text);
    expectThrows<NullPointerException>([&] { shot->getLastFrame(); }, text);
    SmartPtr<TrTestSequence> seq(new TrTestSequence());
    shot->setSequence(seq.get());
    shot->setSequence(nullptr);
    EXPECT_EQ(1u, seq->getRefCount());
    expectThrows<NullPointerException>([&] { shot->getFirstFrame(); }, text);
}
