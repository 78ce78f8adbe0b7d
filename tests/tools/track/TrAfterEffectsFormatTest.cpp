#include "tools/track/TrAfterEffectsFormat.h"

#include "TrFormatSamples.h"
#include "support/ExpectThrows.h"

using namespace formatsamples;
using testsupport::expectThrows;

// Layer pixels are ours: positions pass unchanged; the predicted frame 5 is
// left out and the lost track's block ends with its one key.
TEST(TrAfterEffectsFormat, WritesABlockPerTrackInOurPixels) {
    EXPECT_EQ("Adobe After Effects 8.0 Keyframe Data\n\n"
              "\tUnits Per Second\t24\n\tSource Width\t640\n\tSource Height\t480\n"
              "\tSource Pixel Aspect Ratio\t1\n\tComp Pixel Aspect Ratio\t1\n\n"
              "Motion Trackers\tTracker #1\ta b\tFeature Center\n"
              "\tFrame\tX pixels\tY pixels\t\n"
              "\t3\t0.500000\t0.500000\t\n"
              "\t4\t639.500000\t479.500000\t\n"
              "\t6\t320.000000\t240.000000\t\n\n"
              "Motion Trackers\tTracker #1\tb\tFeature Center\n"
              "\tFrame\tX pixels\tY pixels\t\n"
              "\t3\t10.000000\t20.000000\t\n\n"
              "End of Keyframe Data\n",
              renderOne("ae"));
}

// Blocks of other properties are skipped; the frame size is not needed.
TEST(TrAfterEffectsFormat, ReadsFeatureCentresAndSkipsOtherBlocks) {
    const std::string text = "Adobe After Effects 8.0 Keyframe Data\r\n\r\n"
                             "\tUnits Per Second\t25\r\n\r\n"
                             "Transform\tPosition\r\n\tFrame\tX pixels\tY pixels\t\r\n"
                             "\t0\t1\t2\t\r\n\r\n"
                             "Motion Trackers\tTracker #2\tTrack Point 1\tFeature Center\r\n"
                             "\tFrame\tX pixels\tY pixels\t\r\n"
                             "\t12\t5.5\t-6.25\t\r\n\r\n"
                             "End of Keyframe Data\r\n";
    const std::vector<TrImportedTrack> t =
        parseAfterEffectsTracks(text, "k.txt", TrFrameSize{0, 0});
    ASSERT_EQ(1u, t.size());
    ASSERT_EQ(1u, t[0].points.size());
    EXPECT_EQ("Track Point 1", t[0].name);
    EXPECT_EQ(std::make_tuple(12, 5.5, -6.25),
              std::make_tuple(t[0].points[0].frame, t[0].points[0].x, t[0].points[0].y));
}

TEST(TrAfterEffectsFormat, MalformedFilesNameTheLine) {
    const std::string head = "Adobe After Effects 8.0 Keyframe Data\n"
                             "Motion Trackers\tT\tp\tFeature Center\n";
    const struct {
        std::string text;
        const char* message;
    } cases[] = {
        {"Adobe After Effects 7.0 Keyframe Data\n",
         "k.txt: line 1: not keyframe data: the first line must be \"Adobe After Effects 8.0 "
         "Keyframe Data\""},
        {head + "\t1\t2\t3\t\n", "k.txt: line 3: the file ends before \"End of Keyframe Data\""},
        {head + "\t1\t2\t\nEnd of Keyframe Data\n",
         "k.txt: line 3: a key needs a frame, x and y, got \"1\t2\t\""},
        {head + "\t1\t2\tdown\t\nEnd of Keyframe Data\n",
         "k.txt: line 3: y is not a number: \"down\""},
        {"Adobe After Effects 8.0 Keyframe Data\nMotion Trackers\tT\t\tFeature Center\n",
         "k.txt: line 2: a track point without a name"},
    };
    for (const auto& c : cases)
        expectThrows<IllegalArgumentException>(
            [&] { parseAfterEffectsTracks(c.text, "k.txt", frame()); }, c.message);
}
