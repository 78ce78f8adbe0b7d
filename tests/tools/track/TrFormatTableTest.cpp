#include "tools/track/TrFormatTable.h"

#include "tools/track/TrCommandOptions.h"

#include "TrFormatSamples.h"
#include "support/ExpectThrows.h"

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <random>

using namespace formatsamples;
using testsupport::expectThrows;

namespace {

// The known tracks as a format can carry them whole: every score 1 (only
// some formats hold one) and the default sizes.
std::vector<TrTrackResult> carried() {
    std::vector<TrTrackResult> tracks = known();
    for (TrTrackResult& r : tracks) {
        r.spec.patternWidth = r.spec.patternHeight = 21;
        r.spec.searchWidth = r.spec.searchHeight = 61;
        for (TrSample& s : r.samples)
            s.score = 1;
    }
    return tracks;
}

std::vector<TrTrackResult> asResults(const std::vector<TrImportedTrack>& tracks) {
    std::vector<TrTrackResult> results;
    for (const TrImportedTrack& t : tracks) {
        TrTrackResult r;
        r.spec = {t.name, 0, 0, 21, 21, 61, 61, "luminance"};
        for (const TrTrackPoint& p : t.points)
            r.samples.push_back(sample(p.frame, p.x, p.y, 1, true));
        results.push_back(r);
    }
    return results;
}

std::vector<TrImportedTrack> readAll(const TrTrackFormat& format,
                                     const std::vector<TrExportFile>& files) {
    std::vector<TrImportedTrack> tracks;
    for (const TrExportFile& f : files) {
        const std::string source = f.path.empty() ? std::string("t") + format.extension : f.path;
        for (const TrImportedTrack& t : format.parse(f.text, source, frame()))
            tracks.push_back(t);
    }
    return tracks;
}

struct TempDir {
    TempDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "formatsXXXXXX").string();
        path = mkdtemp(&pattern[0]);
    }
    ~TempDir() { std::filesystem::remove_all(path); }
    std::string file(const std::string& name, const std::string& text) const {
        std::string p = path + "/" + name;
        std::ofstream(p, std::ios::binary) << text;
        return p;
    }
    std::string path;
};

} // namespace

// Written, read back and written again, every format gives the same files,
// and the positions read back are those written (the keyed ones; every one
// for the format that writes predicted frames too).
TEST(TrFormatTable, EveryFormatRoundTrips) {
    for (const TrTrackFormat& format : TrFormatTable::formats()) {
        SCOPED_TRACE(format.name);
        const std::vector<TrTrackResult> tracks = carried();
        const std::vector<TrExportFile> first = render(format, tracks, "d/shot.chan");
        const std::vector<TrImportedTrack> back = readAll(format, first);
        ASSERT_EQ(tracks.size(), back.size());
        const bool all = std::string(format.name) == "pftrack";
        for (size_t i = 0; i < tracks.size(); ++i) {
            const std::string name =
                std::string(format.name) == "syntheyes" && i == 0 ? "a_b" : tracks[i].spec.name;
            EXPECT_EQ(name, back[i].name);
            std::vector<TrSample> written;
            for (const TrSample& s : tracks[i].samples)
                if (all || s.keyed)
                    written.push_back(s);
            ASSERT_EQ(written.size(), back[i].points.size());
            for (size_t k = 0; k < written.size(); ++k) {
                EXPECT_EQ(written[k].frame, back[i].points[k].frame);
                EXPECT_NEAR(written[k].x, back[i].points[k].x, 1e-6);
                EXPECT_NEAR(written[k].y, back[i].points[k].y, 1e-6);
            }
        }
        const std::vector<TrExportFile> second = render(format, asResults(back), "d/shot.chan");
        ASSERT_EQ(first.size(), second.size());
        for (size_t i = 0; i < first.size(); ++i) {
            EXPECT_EQ(first[i].path, second[i].path);
            EXPECT_EQ(first[i].text, second[i].text);
        }
    }
}

// Every truncation of a written file either reads or fails with a one-line
// error; none crashes.
TEST(TrFormatTable, TruncatedFilesReadOrFailCleanly) {
    for (const TrTrackFormat& format : TrFormatTable::formats()) {
        const std::string text = render(format, known(), "shot.chan")[0].text;
        for (size_t n = 0; n < text.size(); ++n) {
            try {
                format.parse(text.substr(0, n), "t", frame());
            } catch (const IllegalArgumentException& e) {
                EXPECT_EQ(std::string::npos, e.getMessage().str().find('\n'))
                    << format.name << " cut at " << n;
            }
        }
    }
}

// Written files with bytes replaced by characters each format gives meaning
// to, from a fixed seed: the same promise as for truncation.
TEST(TrFormatTable, DamagedFilesReadOrFailCleanly) {
    const std::string meaningful = "{}\"\\\t\n x-.0123456789#\r";
    std::mt19937 random(7);
    for (const TrTrackFormat& format : TrFormatTable::formats()) {
        const std::string text = render(format, known(), "shot.chan")[0].text;
        for (int trial = 0; trial < 500; ++trial) {
            std::string damaged = text;
            for (int k = 0; k < 3; ++k)
                damaged[random() % damaged.size()] = meaningful[random() % meaningful.size()];
            try {
                format.parse(damaged, "t", frame());
            } catch (const IllegalArgumentException& e) {
                EXPECT_EQ(std::string::npos, e.getMessage().str().find('\n'))
                    << format.name << ": " << damaged;
            }
        }
    }
}

TEST(TrFormatTable, ChoosesTheExportByNameOrOwnExtension) {
    EXPECT_STREQ("nuke", TrFormatTable::forExport("", "a/b.nk").name);
    EXPECT_STREQ("chan", TrFormatTable::forExport("", "b.chan").name);
    EXPECT_STREQ("3de", TrFormatTable::forExport("3de", "b.nk").name);
    const struct {
        const char* name;
        const char* path;
        const char* message;
    } cases[] = {
        {"", "b.txt",
         "--export: \"b.txt\" may be any of ae, 3de, pftrack, syntheyes; give --format"},
        {"", "b.csv", "--export: no format has the extension of \"b.csv\"; give --format"},
        {"maya", "b.txt",
         "unknown format \"maya\" (expected one of nuke, ae, 3de, pftrack, syntheyes, chan)"},
    };
    for (const auto& c : cases)
        expectThrows<IllegalArgumentException>([&] { TrFormatTable::forExport(c.name, c.path); },
                                               c.message);
}

// Shared extensions are told apart by content, and JSON stays ours.
TEST(TrFormatTable, ChoosesTheImportByExtensionThenContent) {
    for (const TrTrackFormat& format : TrFormatTable::formats()) {
        const std::string text = render(format, known(), "shot.chan")[0].text;
        EXPECT_EQ(&format, TrFormatTable::forImport(std::string("t") + format.extension, text));
    }
    EXPECT_EQ(nullptr, TrFormatTable::forImport("t.json", "1\nname\n"));
    EXPECT_EQ(nullptr, TrFormatTable::forImport("t.txt", " {\"tracks\": []}"));
    expectThrows<IllegalArgumentException>(
        [] { TrFormatTable::forImport("t.txt", "hello\n"); },
        "t.txt: not a track file of a known format (.json, nuke, ae, 3de, pftrack, syntheyes, "
        "chan)");
}

TEST(TrFormatTable, TracksStartAtTheFrameAskedOrTheirFirst) {
    const std::vector<TrImportedTrack> tracks = {{"p", {{4, 1, 2}, {5, 3, 4}}}, {"q", {{5, 6, 7}}}};
    const std::vector<TrTrackSpec> first = TrFormatTable::startsOf(tracks, "t", false, 0);
    ASSERT_EQ(2u, first.size());
    EXPECT_EQ(std::make_tuple(std::string("p"), 1.0, 2.0, 0),
              std::make_tuple(first[0].name, first[0].x, first[0].y, first[0].patternWidth));
    EXPECT_EQ(std::make_tuple(6.0, 7.0), std::make_tuple(first[1].x, first[1].y));
    const std::vector<TrTrackSpec> at5 = TrFormatTable::startsOf(tracks, "t", true, 5);
    EXPECT_EQ(std::make_tuple(3.0, 4.0), std::make_tuple(at5[0].x, at5[0].y));
    expectThrows<IllegalArgumentException>([&] { TrFormatTable::startsOf(tracks, "t", true, 4); },
                                           "t: track \"q\" has no position at frame 4");
    expectThrows<IllegalArgumentException>(
        [] {
            TrFormatTable::startsOf({{"r", {}}}, "t", false, 0);
        },
        "t: track \"r\" has no positions");
    expectThrows<IllegalArgumentException>(
        [&] {
            TrFormatTable::startsOf({tracks[0], tracks[0]}, "t", false, 0);
        },
        "t: a second track named \"p\"");
    expectThrows<IllegalArgumentException>(
        [] {
            TrFormatTable::startsOf({{"", {{1, 1, 1}}}}, "t", false, 0);
        },
        "t: a track without a name");
    expectThrows<IllegalArgumentException>(
        [] {
            TrFormatTable::startsOf({{"a\tb", {{1, 1, 1}}}}, "t", false, 0);
        },
        "t: a track's name holds a control character");
}

// The command reads an imported file's names with the other tracks, numbers
// --track after them, and places them once it knows the frame size.
TEST(TrFormatTable, CommandImportsTracksAndExports) {
    TempDir dir;
    const std::string points =
        dir.file("p.txt", "2\nm\n0\n2\n7 10 470\n8 11 469\nn\n0\n1\n8 5 5\n");
    TrCommandOptions o =
        TrCommandOptions::parse({"a#.png", "--tracks", points, "--from", "8", "--track", "1,2",
                                 "--export", "r.txt", "--format", "ae"});
    ASSERT_EQ(3u, o.tracks.size());
    EXPECT_EQ("m", o.tracks[0].name);
    EXPECT_EQ("n", o.tracks[1].name);
    EXPECT_EQ("3", o.tracks[2].name);
    EXPECT_EQ(21, o.tracks[0].patternWidth);
    o.placeImportedTracks(frame());
    EXPECT_EQ(std::make_tuple(11.0, 11.0, 5.0, 475.0, 1.0, 2.0),
              std::make_tuple(o.tracks[0].x, o.tracks[0].y, o.tracks[1].x, o.tracks[1].y,
                              o.tracks[2].x, o.tracks[2].y));
    EXPECT_EQ(std::make_tuple(std::string("r.txt"), std::string("ae")),
              std::make_tuple(o.exportPath, o.exportFormat));

    const struct {
        std::vector<std::string> args;
        std::string message;
    } cases[] = {
        {{"a#.png", "--track", "1,1", "--format", "ae"},
         "--format names the format of --export FILE, which is not given"},
        {{"a#.png", "--track", "1,1", "--export", "r.txt"},
         "--export: \"r.txt\" may be any of ae, 3de, pftrack, syntheyes; give --format"},
        {{"a#.png", "--tracks", points, "--from", "7"},
         points + ": track \"n\" has no position at frame 7"},
        {{"a#.png", "--tracks", dir.file("bad.chan", "1 2\n")},
         dir.path + "/bad.chan: line 1: a line holds frame, x and y, got \"1 2\""},
    };
    for (const auto& c : cases)
        expectThrows<IllegalArgumentException>([&] { TrCommandOptions::parse(c.args); }, c.message);
}
