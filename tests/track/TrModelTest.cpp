#include "track/TrShotImpl.h"

#include "support/ExpectThrows.h"

#include <cfloat>
#include <climits>
#include <functional>
#include <utility>
#include <vector>

using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::SmartPtr;

namespace {

// Counts the emissions of the signal it listens to.
struct Counter : public virtual Orvane::SafeObject {
    explicit Counter(Orvane::Signal& signal) { signal.connect(this, &Counter::hit); }
    void hit() { ++count; }
    int count = 0;
};

void expectKeys(const TrAttributeImpl<double>& attr, std::vector<std::pair<int, double>> keys) {
    ASSERT_EQ(int(keys.size()), attr.getKeyCount());
    for (std::size_t i = 0; i < keys.size(); ++i) {
        EXPECT_EQ(keys[i].first, attr.getKeys()[int(i)].frame);
        EXPECT_EQ(keys[i].second, attr.getKeys()[int(i)].value);
    }
}

} // namespace

TEST(TrAttribute, KeysInterpolateHoldTheEndsAndStaySorted) {
    TrAttributeImpl<double> attr(nullptr);
    EXPECT_EQ(0.0, attr.getValue(7));
    attr.setValue(20, 3.0);
    attr.setValue(10, 1.0); // before the first key
    const std::pair<int, double> reads[] = {{INT_MIN, 1.0}, {5, 1.0},  {10, 1.0}, {12, 1.4},
                                            {15, 2.0},      {20, 3.0}, {25, 3.0}, {INT_MAX, 3.0}};
    for (const auto& r : reads)
        EXPECT_DOUBLE_EQ(r.second, attr.getValue(r.first)) << r.first;
    attr.setValue(15, 7.0); // between
    attr.setValue(20, 5.0); // again: replaces
    expectKeys(attr, {{10, 1.0}, {15, 7.0}, {20, 5.0}});
    EXPECT_DOUBLE_EQ(3.4, attr.getValue(12));
    EXPECT_TRUE(attr.isKeyed(15));
    EXPECT_FALSE(attr.isKeyed(16));
}

TEST(TrAttribute, ClearValueAndUnkeyedSet) {
    TrAttributeImpl<double> attr(nullptr);
    attr.setValue(4.0);
    attr.clearValue(0); // no keys: nothing to clear, wherever
    attr.clearValue(INT_MAX);
    EXPECT_EQ(4.0, attr.getValue(0));
    attr.setValue(10, 1.0);
    attr.setValue(20, 3.0);
    attr.clearValue(5); // only an exact key goes
    attr.clearValue(15);
    expectKeys(attr, {{10, 1.0}, {20, 3.0}});
    // After the last key the search runs off the end of the keys.
    expectThrows<BadIndexException>([&] { attr.clearValue(30); }, "Array::operator[]");
    expectKeys(attr, {{10, 1.0}, {20, 3.0}});
    attr.clearValue(20);
    expectKeys(attr, {{10, 1.0}});
    attr.clearValue(10);
    expectKeys(attr, {});

    attr.setValue(10, 1.0);
    attr.setValue(20, 3.0);
    attr.setValue(9.5); // an unkeyed value discards every key
    expectKeys(attr, {});
    for (int f : {5, 15, 25})
        EXPECT_EQ(9.5, attr.getValue(f));
}

TEST(TrAttribute, RectsAndTransformsInterpolateComponentByComponent) {
    TrAttributeImpl<GenRect<double>> rect(nullptr);
    rect.setValue(0, GenRect<double>(0, 10, 4, 8));
    rect.setValue(4, GenRect<double>(8, -2, 12, 0));
    // A quarter of the way: (0 + 2, 10 - 3, 4 + 2, 8 - 2); three quarters: (6, 1, 10, 2).
    const GenRect<double> q = rect.getValue(1), t = rect.getValue(3);
    const double rects[] = {q.x, q.y, q.w, q.h, t.x, t.y, t.w, t.h};
    const double wantRects[] = {2, 7, 6, 6, 6, 1, 10, 2};
    for (int k = 0; k < 8; ++k)
        EXPECT_DOUBLE_EQ(wantRects[k], rects[k]) << k;

    TrAttributeImpl<AffineTransform> transform(nullptr);
    transform.setValue(0, AffineTransform());
    transform.setValue(3, AffineTransform(3, -6, 0.3f, 2, 0.5f, 4));
    // A third of the way from the identity (0, 0, 0, 1, 1, 1).
    const AffineTransform a = transform.getValue(1);
    const float fields[] = {a.tx, a.ty, a.ro, a.sc, a.st0, a.st1};
    const float want[] = {1, -2, 0.1f, 4.0f / 3, 5.0f / 6, 2};
    for (int k = 0; k < 6; ++k)
        EXPECT_NEAR(want[k], fields[k], 4 * FLT_EPSILON * std::max(1.0f, std::abs(want[k]))) << k;
}

TEST(TrNode, ChangesReachTrackAndShotOncePerEmission) {
    SmartPtr<TrShotImpl> shot(new TrShotImpl());
    TrTrack* track = shot->addTrack(0, 0);
    Counter heardByTrack(track->changed), heardByShot(shot->changed);
    TrAttributeBase* attrs[] = {&track->position(),   &track->userPosition(), &track->patternRect(),
                                &track->searchRect(), &track->searchedRect(), &track->transform(),
                                &track->quality()};
    int n = 0;
    for (TrAttributeBase* a : attrs) {
        EXPECT_EQ(track, a->getOwner());
        a->changed();
        ++n;
        EXPECT_EQ(n, heardByTrack.count);
        EXPECT_EQ(n, heardByShot.count);
    }
    // A node's change goes up, not down.
    Counter heardByAttr(track->quality().changed);
    track->changed();
    EXPECT_EQ(n + 1, heardByShot.count);
    EXPECT_EQ(0, heardByAttr.count);
}

TEST(TrNode, DetachedChildrenAreHeardOnlyByTheirNewOwner) {
    TrNode first, second, track;
    TrAttributeImpl<double> attr(nullptr);
    Counter heardFirst(first.changed), heardSecond(second.changed);
    // Attached to the first owner, then kept there, detached or moved on.
    for (TrNode* owner : {&first, static_cast<TrNode*>(nullptr), &second}) {
        first.add(&track);
        first.add(&attr);
        track.setOwner(owner);
        attr.setOwner(owner);
        EXPECT_EQ(owner, track.getOwner());
        EXPECT_EQ(owner, attr.getOwner());
        track.changed();
        attr.changed();
    }
    EXPECT_EQ(2, heardFirst.count);
    EXPECT_EQ(2, heardSecond.count);
}

TEST(TrShotImpl, TimesRoundToFramesHalvesAwayFromZero) {
    const std::pair<float, int> cases[] = {{2.5f, 3}, {2.49f, 2},  {-2.5f, -3}, {-2.49f, -2},
                                           {0.5f, 1}, {-0.5f, -1}, {0.49f, 0},  {7.0f, 7}};
    for (const auto& c : cases)
        EXPECT_EQ(c.second, TrShotImpl::intTime(c.first)) << c.first;
    SmartPtr<TrShotImpl> shot(new TrShotImpl());
    shot->addTrack(10, 20);
    shot->setPosition(0, 2.0f, GenPoint<double>(1, 1));
    shot->setPosition(0, 2.5f, GenPoint<double>(5, 5));
    EXPECT_TRUE(shot->isPositionKeyed(0, 3.0f));
    EXPECT_EQ(GenPoint<double>(5, 5), shot->getPosition(0, 2.5f));
    EXPECT_EQ(GenPoint<double>(1, 1), shot->getPosition(0, 2.49f));
}

TEST(TrShotImpl, TrackDefaultsAndShotWideSettingsThroughEveryIndex) {
    SmartPtr<TrShotImpl> shot(new TrShotImpl());
    TrTrack* first = shot->addTrack(10, 20);
    TrTrack* second = shot->addTrack(-3, 4);
    EXPECT_EQ(GenPoint<double>(10, 20), shot->getPosition(0, -10));
    EXPECT_EQ(GenPoint<double>(0, 0), first->userPosition().getValue(-10));
    EXPECT_EQ(GenRect<double>(-5, -5, 10, 10), shot->getPatternRect(0, -10));
    EXPECT_EQ(GenRect<double>(-10, -10, 20, 20), shot->getSearchRect(0, -10));
    EXPECT_EQ(GenRect<double>(-10, -10, 20, 20), shot->getSearchedRect(0, -10));
    EXPECT_EQ(AffineTransform(), shot->getTransform(0, -10));
    EXPECT_EQ(0.0, shot->getQuality(0, -10));
    EXPECT_EQ(dstring("luminance"), shot->getColorMode(0));
    EXPECT_TRUE(first->getFailureBehavior().empty());
    EXPECT_EQ(0.8, first->getFailureTolerance());
    EXPECT_EQ(dstring("stop"), shot->getFailureBehavior(1));
    EXPECT_EQ(0.8, shot->getFailureTolerance(1));
    EXPECT_TRUE(shot->getUseRotate(1));
    EXPECT_FALSE(shot->getUseScale(1) || shot->getUseStretch(1));

    shot->setFailureTolerance(1, 0.5);
    shot->setFailureBehavior(0, "predict");
    shot->setUseScale(1, true);
    shot->setUseRotate(0, false);
    shot->setUseStretch(1, true);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(0.5, shot->getFailureTolerance(i));
        EXPECT_EQ(dstring("predict"), shot->getFailureBehavior(i));
        EXPECT_TRUE(shot->getUseScale(i) && shot->getUseStretch(i));
        EXPECT_FALSE(shot->getUseRotate(i));
    }
    EXPECT_EQ(0.8, second->getFailureTolerance()); // the track's own stays

    const std::function<void()> calls[] = {
        [&] { shot->setFailureTolerance(2, 0.1); },
        [&] { shot->getFailureTolerance(-1); },
        [&] { shot->getUseScale(2); },
        [&] { shot->getPosition(2, 0); },
        [&] { shot->getColorMode(2); },
        [&] { shot->getTrack(2); },
    };
    for (const auto& call : calls)
        expectThrows<BadIndexException>(call, "Array::operator[]");
    EXPECT_EQ(0.5, shot->getFailureTolerance(0));
    EXPECT_FALSE(shot->getUseRotate(0));
}

TEST(TrShotImpl, PositionKeyedByUserNeedsEqualKeysAtTheFrame) {
    SmartPtr<TrShotImpl> shot(new TrShotImpl());
    TrTrack* t = shot->addTrack(10, 20);
    t->userPosition().setValue(4, GenPoint<double>(1.5, 2.5));
    EXPECT_FALSE(shot->isPositionKeyedByUser(0, 4.0f)); // user key alone

    shot->setPosition(0, 4.0f, GenPoint<double>(1.5, 2.5));
    EXPECT_TRUE(shot->isPositionKeyedByUser(0, 4.0f));
    EXPECT_TRUE(shot->isPositionKeyedByUser(0, 3.5f)); // rounds to 4

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
