#include "tools/track/TrChanFormat.h"

#include "TrFormatSamples.h"
#include "support/ExpectThrows.h"

using namespace formatsamples;
using testsupport::expectThrows;

// A file per track named from the pattern; y from the bottom edge.
TEST(TrChanFormat, WritesAFilePerTrackBesideThePattern) {
    const std::vector<TrExportFile> files =
        render(*TrFormatTable::find("chan"), known(), "out/shot.chan");
    ASSERT_EQ(2u, files.size());
    EXPECT_EQ("out/shot.a b.chan", files[0].path);
    EXPECT_EQ("3 0.500000 479.500000\n4 639.500000 0.500000\n6 320.000000 240.000000\n",
              files[0].text);
    EXPECT_EQ("out/shot.b.chan", files[1].path);
    EXPECT_EQ("3 10.000000 460.000000\n", files[1].text);
}

TEST(TrChanFormat, NamesFilesInADirectoryAndReadsTheNameBack) {
    EXPECT_EQ("dir/a_b.chan", TrChanWriter::pathFor("dir", "a/b"));
    EXPECT_EQ("dir/c.chan", TrChanWriter::pathFor("dir/", "c"));
    for (const char* path : {"dir/c.chan", "dir/shot.c.chan", "c.chan", "c"}) {
        const std::vector<TrImportedTrack> t = parseChanTracks("1 2 3\n\n2 4 5\n", path, frame());
        ASSERT_EQ(1u, t.size());
        ASSERT_EQ(2u, t[0].points.size());
        EXPECT_EQ("c", t[0].name) << path;
        EXPECT_EQ(std::make_tuple(2, 4.0, 475.0),
                  std::make_tuple(t[0].points[1].frame, t[0].points[1].x, t[0].points[1].y));
    }
}

TEST(TrChanFormat, MalformedFilesNameTheLine) {
    const struct {
        const char* path;
        const char* text;
        const char* message;
    } cases[] = {
        {"t.chan", "1 2 3\n2 3\n", "t.chan: line 2: a line holds frame, x and y, got \"2 3\""},
        {"t.chan", "1 2 3 4 5 6 7\n",
         "t.chan: line 1: a line holds frame, x and y, got \"1 2 3 4 5 6 7\""},
        {"t.chan", "1.0 2 3\n", "t.chan: line 1: the frame is not a whole number: \"1.0\""},
        {"t.chan", "1 0x10 3\n", "t.chan: line 1: x is not a number: \"0x10\""},
        {"dir/shot..chan", "1 2 3\n", "dir/shot..chan: the file name gives the track no name"},
    };
    for (const auto& c : cases)
        expectThrows<IllegalArgumentException>([&] { parseChanTracks(c.text, c.path, frame()); },
                                               c.message);
}
