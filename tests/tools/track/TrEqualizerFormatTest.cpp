#include "tools/track/TrEqualizerFormat.h"

#include "TrFormatSamples.h"
#include "support/ExpectThrows.h"

using namespace formatsamples;
using testsupport::expectThrows;

// y counts up from the bottom edge: 480 - 0.5 = 479.5 for the top row's
// centre; the predicted frame 5 is left out and the lost track stops.
TEST(TrEqualizerFormat, WritesKeyedFramesFromTheBottomLeftCorner) {
    EXPECT_EQ("2\n"
              "a b\n0\n3\n"
              "3 0.500000 479.500000\n"
              "4 639.500000 0.500000\n"
              "6 320.000000 240.000000\n"
              "b\n0\n1\n"
              "3 10.000000 460.000000\n",
              renderOne("3de"));
}

TEST(TrEqualizerFormat, ReadsPointsBackIntoOurPixels) {
    const std::vector<TrImportedTrack> t =
        parseEqualizerTracks("1\r\nc\r\n3\r\n2\r\n7 1.25 0.75\r\n9 2 479\r\n", "p.txt", frame());
    ASSERT_EQ(1u, t.size());
    ASSERT_EQ(2u, t[0].points.size());
    EXPECT_EQ("c", t[0].name);
    EXPECT_EQ(7, t[0].points[0].frame);
    EXPECT_EQ(1.25, t[0].points[0].x);
    EXPECT_EQ(479.25, t[0].points[0].y);
    EXPECT_EQ(9, t[0].points[1].frame);
    EXPECT_EQ(1.0, t[0].points[1].y);
}

TEST(TrEqualizerFormat, MalformedFilesNameTheLine) {
    const struct {
        const char* text;
        const char* message;
    } cases[] = {
        {"", "p.txt: line 1: the file ends where the number of points should follow"},
        {"two\n", "p.txt: line 1: the number of points is not a whole number: \"two\""},
        {"-1\n", "p.txt: line 1: the number of points is negative"},
        {"1\nc\n0\n2\n1 2 3\n",
         "p.txt: line 5: the file ends where a frame of \"c\" should follow"},
        {"1\nc\n0\n1\n1 2\n", "p.txt: line 5: a frame line holds frame, x and y, got \"1 2\""},
        {"1\nc\n0\n1\n1 2 y\n", "p.txt: line 5: y is not a number: \"y\""},
        {"1\nc\n0\n1\n1.5 2 3\n", "p.txt: line 5: the frame is not a whole number: \"1.5\""},
        {"1\nc\n0\n1\n1 2 nan\n", "p.txt: line 5: y is not a number: \"nan\""},
        {"1\nc\n0\n0\nd\n", "p.txt: line 5: more lines than the 1 points announced"},
    };
    for (const auto& c : cases)
        expectThrows<IllegalArgumentException>(
            [&] { parseEqualizerTracks(c.text, "p.txt", frame()); }, c.message);
}
