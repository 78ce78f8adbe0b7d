#include "tools/track/TrPFTrackFormat.h"

#include "TrFormatSamples.h"
#include "support/ExpectThrows.h"

using namespace formatsamples;
using testsupport::expectThrows;

// Every frame followed, the predicted frame 5 with its low score; y from the
// bottom edge: 480 - 200.75 = 279.25.
TEST(TrPFTrackFormat, WritesEveryFrameFromTheBottomLeftWithTheScore) {
    EXPECT_EQ("# \"Name\"\n# clipNumber\n# frameCount\n# frame, xpos, ypos, similarity\n\n"
              "\"a b\"\n1\n4\n"
              "3 0.500000 479.500000 0.987500\n"
              "4 639.500000 0.500000 0.500000\n"
              "5 100.250000 279.250000 0.250000\n"
              "6 320.000000 240.000000 1.000000\n\n"
              "\"b\"\n1\n1\n"
              "3 10.000000 460.000000 0.750000\n",
              renderOne("pftrack"));
}

TEST(TrPFTrackFormat, ReadsWithOrWithoutTheSimilarity) {
    const std::vector<TrImportedTrack> t = parsePFTrackTracks(
        "# a comment\n\"p q\"\n1\n2\n4 1 2\n5 3 4 0.5\n\"r\"\n2\n0\n", "f.txt", frame());
    ASSERT_EQ(2u, t.size());
    ASSERT_EQ(2u, t[0].points.size());
    EXPECT_EQ("p q", t[0].name);
    EXPECT_EQ(std::make_tuple(4, 1.0, 478.0, 5, 3.0, 476.0),
              std::make_tuple(t[0].points[0].frame, t[0].points[0].x, t[0].points[0].y,
                              t[0].points[1].frame, t[0].points[1].x, t[0].points[1].y));
    EXPECT_EQ("r", t[1].name);
    EXPECT_TRUE(t[1].points.empty());
}

TEST(TrPFTrackFormat, MalformedFilesNameTheLine) {
    const struct {
        const char* text;
        const char* message;
    } cases[] = {
        {"corner\n1\n0\n", "f.txt: line 1: a track's name must be quoted, got \"corner\""},
        {"\"\n1\n0\n", "f.txt: line 1: a track's name must be quoted, got \"\"\""},
        {"\"c\"\n1\n",
         "f.txt: line 2: the file ends where the number of frames of \"c\" should follow"},
        {"\"c\"\n1\n1\n1 2 3 4 5\n",
         "f.txt: line 4: a frame line holds frame, x, y and similarity, got \"1 2 3 4 5\""},
        {"\"c\"\n1\n1\n1 2 3 high\n", "f.txt: line 4: the similarity is not a number: \"high\""},
    };
    for (const auto& c : cases)
        expectThrows<IllegalArgumentException>(
            [&] { parsePFTrackTracks(c.text, "f.txt", frame()); }, c.message);
}
