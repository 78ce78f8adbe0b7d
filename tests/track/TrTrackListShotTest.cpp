#include "track/TrTrackListShot.h"

#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <vector>

using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::SafePtr;
using Orvane::SmartPtr;

namespace {

// A list shot whose frames are quarter times, so that a value reached
// without the hook lands on another frame. It records every index that a
// shot-wide setting hands to the hook.
class QuarterShot : public TrTrackListShot {
public:
    QuarterShot() : TrTrackListShot({true, false, true}) {}

    int frameOf(float time) const override { return static_cast<int>(4 * time); }
    void getTrackRange(bool& hasFirst, float&, bool& hasLast, float&) override {
        hasFirst = hasLast = false;
    }
    Orvane::Image getImage(float, const GenRect<int>&, bool) override { return Orvane::Image(); }

    using TrTrackListShot::insertTrack;
    using TrTrackListShot::removeTrack;

    std::vector<int> shotWideIndices;

protected:
    void checkShotWideIndex(int track) override { shotWideIndices.push_back(track); }
};

} // namespace

TEST(TrTrackListShot, TimedValuesLiveAtTheFrameTheShotMakesOfTheTime) {
    QuarterShot shot;
    TrTrack* t = shot.insertTrack(0, 1, 2);
    // Times 0.75 and 1.75 are frames 3 and 7 here. A forwarder that skipped
    // the hook would write frames 0 and 1, and read frame 1, before both keys.
    const float times[] = {0.75f, 1.75f};
    const GenPoint<double> place[] = {GenPoint<double>(5, 6), GenPoint<double>(-1, 3)};
    const double quality[] = {0.625, 0.125};
    const AffineTransform moved[] = {AffineTransform(1.5f, -2, 0.25f, 1.125f, 0.75f, 1),
                                     AffineTransform(3, 1, 0, 1, 1, 1)};
    const GenRect<double> searched[] = {GenRect<double>(-3, -4, 6, 8),
                                        GenRect<double>(-5, -4, 10, 8)};
    for (int k = 0; k < 2; ++k) {
        shot.setPosition(0, times[k], place[k]);
        shot.setQuality(0, times[k], quality[k]);
        shot.setTransform(0, times[k], moved[k]);
        shot.setSearchedRect(0, times[k], searched[k]);
    }
    TrAttributeBase* written[] = {&t->position(), &t->quality(), &t->transform(),
                                  &t->searchedRect()};
    for (TrAttributeBase* a : written) {
        int first = -1, last = -1;
        EXPECT_TRUE(a->firstKey(first) && a->lastKey(last));
        EXPECT_EQ(3, first);
        EXPECT_EQ(7, last);
    }
    for (int k = 0; k < 2; ++k) {
        EXPECT_EQ(place[k], shot.getPosition(0, times[k])) << k;
        EXPECT_EQ(quality[k], shot.getQuality(0, times[k])) << k;
        EXPECT_EQ(moved[k], shot.getTransform(0, times[k])) << k;
        EXPECT_EQ(searched[k], shot.getSearchedRect(0, times[k])) << k;
        EXPECT_TRUE(shot.isPositionKeyed(0, times[k]) && shot.isQualityKeyed(0, times[k])) << k;
    }
    EXPECT_FALSE(shot.isPositionKeyed(0, 1.5f) || shot.isQualityKeyed(0, 1.5f));

    // Rect keys written on the track, read back through the shot.
    const GenRect<double> pattern(-2, -1, 4, 2), search(-9, -8, 18, 16);
    t->patternRect().setValue(3, GenRect<double>(-1, -1, 2, 2));
    t->patternRect().setValue(7, pattern);
    t->searchRect().setValue(3, GenRect<double>(-6, -6, 12, 12));
    t->searchRect().setValue(7, search);
    EXPECT_EQ(pattern, shot.getPatternRect(0, 1.75f));
    EXPECT_EQ(search, shot.getSearchRect(0, 1.75f));
    t->userPosition().setValue(7, place[1]);
    EXPECT_TRUE(shot.isPositionKeyedByUser(0, 1.75f));
    EXPECT_FALSE(shot.isPositionKeyedByUser(0, 0.75f));

    // The unkeyed setters drop the keys and hold at every frame.
    shot.setPatternRect(0, GenRect<double>(-3, -3, 6, 6));
    shot.setSearchRect(0, GenRect<double>(-7, -7, 14, 14));
    EXPECT_EQ(0, t->patternRect().getKeyCount() + t->searchRect().getKeyCount());
    EXPECT_EQ(GenRect<double>(-3, -3, 6, 6), shot.getPatternRect(0, 1.75f));
    EXPECT_EQ(GenRect<double>(-7, -7, 14, 14), shot.getSearchRect(0, -30));
}

TEST(TrTrackListShot, SwitchesAreTheShotsAndSettingsTheTracks) {
    QuarterShot shot;
    TrTrack* first = shot.insertTrack(0, 0, 0);
    TrTrack* second = shot.insertTrack(1, 0, 0);
    EXPECT_TRUE(shot.getUseScale(0) && shot.getUseStretch(1));
    EXPECT_FALSE(shot.getUseRotate(9));
    shot.setUseScale(-4, false);
    shot.setUseRotate(7, true);
    shot.setUseStretch(2, false);
    EXPECT_FALSE(shot.getUseScale(1) || shot.getUseStretch(0));
    EXPECT_TRUE(shot.getUseRotate(0));
    EXPECT_EQ((std::vector<int>{0, 1, 9, -4, 7, 2, 1, 0, 0}), shot.shotWideIndices);

    shot.setFailureTolerance(1, 0.25);
    shot.setFailureBehavior(1, "predict");
    shot.setColorMode(1, "hue");
    EXPECT_EQ(0.25, second->getFailureTolerance());
    EXPECT_EQ(dstring("predict"), shot.getFailureBehavior(1));
    EXPECT_EQ(dstring("hue"), shot.getColorMode(1));
    EXPECT_EQ(first->getFailureTolerance(), shot.getFailureTolerance(0));
    EXPECT_TRUE(shot.getFailureBehavior(0).empty());
    EXPECT_EQ(dstring("luminance"), shot.getColorMode(0));
    EXPECT_EQ(9u, shot.shotWideIndices.size()) << "per-track settings are not shot-wide";

    for (int bad : {2, -1})
        expectThrows<BadIndexException>([&] { shot.setFailureTolerance(bad, 0.5); },
                                        "Array::operator[]");
}

TEST(TrTrackListShot, ListHoldsTheOnlyReferenceAndAttachesItsTracks) {
    SafePtr<TrTrack> kept, removed, cleared;
    {
        QuarterShot shot;
        removed = shot.insertTrack(0, 1, 0);
        cleared = shot.insertTrack(1, 3, 0);
        kept = shot.insertTrack(0, 0, 0);
        EXPECT_EQ(kept.get(), shot.getTrack(0));
        EXPECT_EQ(removed.get(), shot.getTrack(1));
        EXPECT_EQ(static_cast<TrNode*>(&shot), kept->getOwner());
        EXPECT_EQ(GenPoint<double>(3, 0), shot.getPosition(2, 100));
        EXPECT_FALSE(shot.isPositionKeyed(2, 0)) << "the place is the unkeyed value";
        EXPECT_EQ(1u, kept->getRefCount());

        SmartPtr<TrTrack> hold(kept.get());
        shot.removeTrack(1);
        EXPECT_FALSE(removed) << "released with the list's reference";
        EXPECT_EQ(2, shot.getTrackCount());
        shot.clearTracks();
        EXPECT_FALSE(cleared);
        EXPECT_TRUE(kept) << "still held outside the list";
        EXPECT_EQ(0, shot.getTrackCount());
        shot.insertTrack(0, 0, 0);
        cleared = shot.getTrack(0);
    }
    EXPECT_FALSE(cleared) << "the shot's end releases its tracks";
    EXPECT_FALSE(kept);
}
