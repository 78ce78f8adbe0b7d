#include "track/TrNode.h"

#include "base/SafeObject.h"
#include "base/Signal.h"
#include "track/TrAttribute.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

// Counts the emissions of the signal it listens to.
struct Counter : public virtual Orvane::SafeObject {
    explicit Counter(Orvane::Signal& signal) { signal.connect(this, &Counter::hit); }
    void hit() { ++count; }
    int count = 0;
};

} // namespace

TEST(TrNode, AttributeChangeReachesEveryLevelOnce) {
    TrNode shot;
    TrNode track;
    shot.add(&track);
    TrAttributeImpl<double> attr(&track);
    Counter heardByTrack(track.changed);
    Counter heardByShot(shot.changed);

    attr.changed();
    EXPECT_EQ(1, heardByTrack.count);
    EXPECT_EQ(1, heardByShot.count);
}

TEST(TrNode, NodeChangeReachesOwnerOnceAndNotChildren) {
    TrNode shot;
    TrNode track;
    shot.add(&track);
    TrAttributeImpl<double> attr(&track);
    Counter heardByAttr(attr.changed);
    Counter heardByShot(shot.changed);

    track.changed();
    EXPECT_EQ(1, heardByShot.count);
    EXPECT_EQ(0, heardByAttr.count);
    track.nodeChanged();
    track.attributeChanged();
    EXPECT_EQ(3, heardByShot.count);
}

TEST(TrNode, KeyframeOperationsDoNotEmit) {
    TrNode track;
    TrAttributeImpl<double> attr(&track);
    Counter heard(track.changed);
    attr.setValue(3, 1.0);
    attr.setValue(2.0);
    attr.clearValue(3);
    EXPECT_EQ(0, heard.count);
}

TEST(TrNode, DetachedChildIsNoLongerHeard) {
    TrNode shot;
    TrNode track;
    TrAttributeImpl<double> attr(&shot);
    shot.add(&track);
    Counter heard(shot.changed);

    track.setOwner(nullptr);
    attr.setOwner(nullptr);
    EXPECT_EQ(nullptr, track.getOwner());
    EXPECT_EQ(nullptr, attr.getOwner());
    track.changed();
    attr.changed();
    EXPECT_EQ(0, heard.count);
}

TEST(TrNode, ReattachedChildIsHeardOnlyByNewOwner) {
    TrNode first, second;
    TrNode track;
    TrAttributeImpl<double> attr(nullptr);
    first.add(&track);
    first.add(&attr);
    second.add(&track);
    second.add(&attr);
    EXPECT_EQ(&second, track.getOwner());
    EXPECT_EQ(&second, attr.getOwner());
    Counter heardFirst(first.changed), heardSecond(second.changed);

    track.changed();
    attr.changed();
    EXPECT_EQ(0, heardFirst.count);
    EXPECT_EQ(2, heardSecond.count);
}

TEST(TrNode, OwnerDestroyedFirstLeavesChildHarmless) {
    TrNode track;
    TrAttributeImpl<double> attr(nullptr);
    {
        auto owner = std::make_unique<TrNode>();
        owner->add(&track);
        owner->add(&attr);
    }
    // The connections reach the dead owner only through cleared safe
    // pointers, so these emissions do nothing.
    track.changed();
    attr.changed();
    // Re-attaching after the owner died cuts the stale connection cleanly.
    TrNode next;
    next.add(&track);
    Counter heard(next.changed);
    track.changed();
    EXPECT_EQ(1, heard.count);
}
