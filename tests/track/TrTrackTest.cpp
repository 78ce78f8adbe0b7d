#include "track/TrTrack.h"

#include "base/SafeObject.h"
#include "base/Signal.h"
#include "base/SmartObject.h"
#include "image/GenRect.h"
#include "krovel/AffineTransform.h"

#include <gtest/gtest.h>

using Orvane::GenPoint;
using Orvane::GenRect;

namespace {

struct Counter : public virtual Orvane::SafeObject {
    explicit Counter(Orvane::Signal& signal) { signal.connect(this, &Counter::hit); }
    void hit() { ++count; }
    int count = 0;
};

} // namespace

TEST(TrTrack, NewTrackHasDocumentedDefaultsAtEveryFrame) {
    Orvane::SmartPtr<TrTrack> track(new TrTrack());
    for (int frame : {-10, 0, 1, 57}) {
        EXPECT_EQ(GenPoint<double>(0, 0), track->position().getValue(frame));
        EXPECT_EQ(GenPoint<double>(0, 0), track->userPosition().getValue(frame));
        EXPECT_EQ(GenRect<double>(-5, -5, 10, 10), track->patternRect().getValue(frame));
        EXPECT_EQ(GenRect<double>(-10, -10, 20, 20), track->searchRect().getValue(frame));
        EXPECT_EQ(GenRect<double>(-10, -10, 20, 20), track->searchedRect().getValue(frame));
        EXPECT_EQ(AffineTransform(), track->transform().getValue(frame));
        EXPECT_EQ(0.0, track->quality().getValue(frame));
    }
    EXPECT_EQ(0, track->position().getKeyCount());
    EXPECT_EQ(0, track->patternRect().getKeyCount());
    EXPECT_EQ(0, track->quality().getKeyCount());
}

TEST(TrTrack, NewTrackSettings) {
    Orvane::SmartPtr<TrTrack> track(new TrTrack());
    EXPECT_EQ(dstring("luminance"), track->getColorMode());
    EXPECT_TRUE(track->getFailureBehavior().empty());
    EXPECT_EQ(0.8, track->getFailureTolerance());
    EXPECT_EQ(nullptr, track->getOwner());
    TrTrack::Working& w = track->working();
    for (int64_t word : w.words)
        EXPECT_EQ(0, word);
    EXPECT_EQ(AffineTransform(), w.transform);
    for (const Orvane::Image& image : w.images)
        EXPECT_FALSE(image.exists());
}

TEST(TrTrack, EveryAttributeIsAttachedToTheTrack) {
    Orvane::SmartPtr<TrTrack> track(new TrTrack());
    TrAttributeBase* attrs[] = {&track->position(),   &track->userPosition(), &track->patternRect(),
                                &track->searchRect(), &track->searchedRect(), &track->transform(),
                                &track->quality()};
    Counter heard(track->changed);
    int expected = 0;
    for (TrAttributeBase* a : attrs) {
        EXPECT_EQ(track.get(), a->getOwner());
        a->changed();
        EXPECT_EQ(++expected, heard.count);
    }
}
