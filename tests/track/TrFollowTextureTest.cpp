// The driver's texture check at the begin frame, which only robust tracking
// makes.

#include "track/RecordingShot.h"
#include "track/TrFollow.h"
#include "track/TrackImages.h"

#include <gtest/gtest.h>

namespace {

// A textured left half and, on the right, the same texture at a
// twentieth of its contrast: a grey level or two, like sky.
double halfFlat(double x, double y, int f) {
    static const trackimages::Texture texture{11};
    const double v = texture(x - 0.5 * f, y);
    return x < 100 ? v : 0.5 + (v - 0.5) / 20;
}

} // namespace

TEST(TrFollowTexture, RobustStopsAFlatPatternAtTheBeginFrameKeyingNothing) {
    for (bool robust : {false, true}) {
        SCOPED_TRACE(robust ? "robust" : "designed");
        RecordingShot shot(200, 150, halfFlat);
        shot.add(50, 75);
        shot.add(150, 75);
        TrFollow follow;
        follow.setShot(&shot);
        follow.setRobust(robust);
        follow.begin(1, 1);
        EXPECT_TRUE(follow.track(0, 1, 1));
        EXPECT_EQ(TrStepStatus::Tracked, follow.getStepStatus(0));
        shot.writes.clear();
        EXPECT_EQ(!robust, follow.track(1, 1, 1));
        if (robust) {
            EXPECT_STREQ("too little texture", follow.getStopReason(1));
            EXPECT_EQ(TrStepStatus::Lost, follow.getStepStatus(1));
            EXPECT_TRUE(shot.writes.empty());
            EXPECT_FALSE(shot.isPositionKeyed(1, 1));
        } else {
            // The designed driver matches the faint pattern as any other.
            EXPECT_EQ(nullptr, follow.getStopReason(1));
            EXPECT_TRUE(shot.isPositionKeyed(1, 1));
        }
        // The textured track goes on either way.
        EXPECT_TRUE(follow.track(0, 2, 1));
    }
}
