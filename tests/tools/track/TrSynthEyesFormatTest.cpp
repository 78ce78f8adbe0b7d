#include "tools/track/TrSynthEyesFormat.h"

#include "TrFormatSamples.h"
#include "support/ExpectThrows.h"

using namespace formatsamples;
using testsupport::expectThrows;

// u = 2x/640 - 1 and v = 1 - 2y/480: the top-left pixel's centre is
// (-639/640, 479/480), the bottom-right's (639/640, -479/480), the frame's
// centre (0, 0); (10, 20) gives (-31/32, 11/12).
TEST(TrSynthEyesFormat, WritesKeyedFramesFromTheCentreWithYUp) {
    EXPECT_EQ("a_b 3 -0.9984375000 0.9979166667\n"
              "a_b 4 0.9984375000 -0.9979166667\n"
              "a_b 6 0.0000000000 0.0000000000\n"
              "b 3 -0.9687500000 0.9166666667\n",
              renderOne("syntheyes"));
}

// A tracker's lines may be apart and carry a status word.
TEST(TrSynthEyesFormat, GathersEachTrackersLinesInFileOrder) {
    const std::vector<TrImportedTrack> t =
        parseSynthEyesTracks("p 2 -1 1 7\nq 2 0.5 -0.5\n\np 1 1 -1\n", "s.txt", frame());
    ASSERT_EQ(2u, t.size());
    ASSERT_EQ(2u, t[0].points.size());
    EXPECT_EQ("p", t[0].name);
    EXPECT_EQ("q", t[1].name);
    EXPECT_EQ(std::make_tuple(2, 0.0, 0.0),
              std::make_tuple(t[0].points[0].frame, t[0].points[0].x, t[0].points[0].y));
    EXPECT_EQ(std::make_tuple(1, 640.0, 480.0),
              std::make_tuple(t[0].points[1].frame, t[0].points[1].x, t[0].points[1].y));
    EXPECT_EQ(std::make_tuple(480.0, 360.0), std::make_tuple(t[1].points[0].x, t[1].points[0].y));
}

TEST(TrSynthEyesFormat, MalformedFilesNameTheLine) {
    const struct {
        const char* text;
        const char* message;
    } cases[] = {
        {"p 1 0 0\np 1 0.5\n", "s.txt: line 2: a line holds name, frame, u and v, got \"p 1 0.5\""},
        {"p x 0 0\n", "s.txt: line 1: the frame is not a whole number: \"x\""},
        {"p 1 0 1e999\n", "s.txt: line 1: v is not a number: \"1e999\""},
        {"p 99999999999 0 0\n", "s.txt: line 1: the frame is not a whole number: \"99999999999\""},
    };
    for (const auto& c : cases)
        expectThrows<IllegalArgumentException>(
            [&] { parseSynthEyesTracks(c.text, "s.txt", frame()); }, c.message);
}
