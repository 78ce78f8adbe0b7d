#include "tools/track/TrProgress.h"

#include <gtest/gtest.h>

TEST(TrProgress, RateAndTimeLeftFollowFromFramesAndSeconds) {
    // 25 of 100 frames in 10 s: 2.5 frames/s, 75 frames left take 30 s.
    EXPECT_EQ("frame 125 (25/100)  tracks 15/16  2.5 fps  0:30 left",
              TrProgress::format(125, 25, 100, 15, 16, 10.0));
    // 1 of 601 in 1 s: 600 s left, whole minutes.
    EXPECT_EQ("frame 1 (1/601)  tracks 1/1  1.0 fps  10:00 left",
              TrProgress::format(1, 1, 601, 1, 1, 1.0));
    EXPECT_EQ("frame 7 (0/10)  tracks 2/2  - fps  - left", TrProgress::format(7, 0, 10, 2, 2, 0));
}
