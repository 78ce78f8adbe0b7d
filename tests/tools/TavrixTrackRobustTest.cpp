// tavrix-track's two modes, run in this process: --design against the run's
// designed defaults byte for byte, the robust default's status column, the
// texture check at the first frame and --detect.

#include "image/Format.h"
#include "image/Image.h"
#include "image/ImageFile.h"
#include "tools/TrToolRun.h"
#include "tools/track/TrJson.h"
#include "tools/track/TrMovingPlate.h"
#include "tools/track/TrResultWriter.h"
#include "tools/track/TrTrackCommand.h"
#include "tools/track/TrTrackFile.h"
#include "tools/track/TrTrackRun.h"
#include "track/Sequence/TrDiskSequence.h"
#include "track/TrFollow.h"
#include "track/TrTexture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <sstream>
#include <string>
#include <vector>

using movingplate::readFile;
using movingplate::TempDir;

namespace {

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        out.push_back(line);
    return out;
}

// The CSV's fields, split at commas (names here hold none).
std::vector<std::string> fields(const std::string& line) {
    std::vector<std::string> out(1);
    for (char c : line)
        if (c == ',')
            out.emplace_back();
        else
            out.back() += c;
    return out;
}

TrTrackSpec spec(const std::string& name, double x, double y) {
    TrTrackSpec s;
    s.name = name;
    s.x = x;
    s.y = y;
    s.patternWidth = s.patternHeight = 21;
    s.searchWidth = s.searchHeight = 61;
    s.colorMode = "luminance";
    return s;
}

// The pass TrTrackRun makes of `specs` with `settings`, as CSV.
std::string runCsv(const std::string& pattern, const std::vector<TrTrackSpec>& specs,
                   const TrRunSettings& settings, bool status) {
    const Orvane::SmartPtr<TrDiskSequence> seq = openFrameSequence(pattern);
    std::ostringstream csv;
    TrCsvWriter writer(csv, status);
    TrTrackRun run(seq.get(), specs, settings);
    run.addSink(&writer);
    run.run(seq->getFirstFrame(), seq->getLastFrame());
    return csv.str();
}

// Frames whose left half is the moving plate and whose right half is still
// and nearly flat: the plate at a sixteenth of its contrast about grey 140,
// as sky with a little grain. 8-bit RGB.
void writeHalfFlat(const TempDir& dir, int w, int h, int frames) {
    for (int n = 1; n <= frames; ++n) {
        Orvane::Image img = movingplate::plateFrame(w, h, n);
        for (int y = 0; y < h; ++y) {
            unsigned char* row;
            img.getBuffer(row, Orvane::GenPoint<int>(0, y));
            for (int x = w / 2; x < w; ++x)
                for (int c = 0; c < 3; ++c)
                    row[3 * x + c] = static_cast<unsigned char>(140 + (row[3 * x + c] - 128) / 16);
        }
        Orvane::saveToFile(dstring(dir / movingplate::frameName(n)), img);
    }
}

} // namespace

// --design writes what the run's designed defaults write, byte for byte;
// the robust default is the run with the robust switch, precise sums and
// scale, plus the status column, and the scale and sums options override
// either mode.
TEST(TavrixTrackModes, DesignIsTheDesignedRunAndRobustTheRobustOne) {
    TempDir dir;
    movingplate::writePlate(dir, 160, 120, 1, 6);
    const std::string pattern = dir / "plate.####.png";
    const std::vector<TrTrackSpec> specs = {spec("1", 50.5, 40.5), spec("2", 100.5, 70.5)};
    const std::vector<std::string> tracks = {"--track", "50.5,40.5", "--track", "100.5,70.5"};
    struct Case {
        std::vector<std::string> args;
        bool robust, scale, preciseSums;
    };
    const Case cases[] = {
        {{"--design"}, false, false, false},
        {{}, true, true, true},
        {{"--design", "--robust"}, true, true, true},
        {{"--no-scale", "--robust", "--no-precise-sums"}, true, false, false},
        {{"--scale", "--design", "--precise-sums"}, false, true, true},
    };
    for (const Case& c : cases) {
        std::string name;
        for (const std::string& a : c.args)
            name += a + " ";
        SCOPED_TRACE(name);
        std::vector<std::string> args = {pattern, "--quiet", "--out", dir / "r.csv"};
        args.insert(args.end(), tracks.begin(), tracks.end());
        args.insert(args.end(), c.args.begin(), c.args.end());
        const ToolRun r = runTool(args);
        ASSERT_EQ(0, r.status) << r.err;
        TrRunSettings settings;
        settings.robust = c.robust;
        settings.scale = c.scale;
        settings.preciseSums = c.preciseSums;
        const std::string expected = runCsv(pattern, specs, settings, c.robust);
        EXPECT_TRUE(expected == readFile(dir / "r.csv")) << readFile(dir / "r.csv");
        EXPECT_EQ(13u, lines(expected).size());
    }
    // The designed run is the one with every setting at its default.
    EXPECT_EQ(0, runTool({pattern, "--quiet", "--design", "--out", dir / "r.csv", "--track",
                          "50.5,40.5", "--track", "100.5,70.5"})
                     .status);
    EXPECT_TRUE(runCsv(pattern, specs, TrRunSettings(), false) == readFile(dir / "r.csv"));
}

// With a tolerance no match reaches before the content lands on whole
// pixels again (frame 11, where a match scores exactly 1), the first frame
// is tracked and the failures after it coast, keyed under predictAndKey;
// under "stop" the first failure loses the track: a last row, unkeyed, at
// the position it had, without score or shape.
TEST(TavrixTrackModes, StatusColumnSaysTrackedCoastedAndLost) {
    TempDir dir;
    movingplate::writePlate(dir, 160, 120, 1, 9);
    const auto run = [&](const char* behavior, const std::string& out) {
        const ToolRun r = runTool({dir / "plate.####.png", "--quiet", "--track", "60.5,60.5",
                                   "--behavior", behavior, "--tolerance", "1", "--out", out});
        EXPECT_EQ(0, r.status) << r.err;
        return lines(readFile(out));
    };
    const auto column = [](const std::vector<std::string>& rows, size_t c) {
        std::vector<std::string> values;
        for (size_t k = 1; k < rows.size(); ++k) {
            const std::vector<std::string> f = fields(rows[k]);
            EXPECT_EQ(13u, f.size()) << rows[k];
            EXPECT_EQ(std::to_string(k), f[1]);
            values.push_back(f.size() > c ? f[c] : "");
        }
        return values;
    };
    const std::vector<std::string> coasting = run("predictAndKey", dir / "c.csv");
    ASSERT_EQ(10u, coasting.size()) << readFile(dir / "c.csv");
    EXPECT_EQ("track,frame,x,y,score,keyed,status,tx,ty,ro,sc,st0,st1", coasting[0]);
    std::vector<std::string> expected(9, "coasted");
    expected.front() = "tracked";
    EXPECT_EQ(expected, column(coasting, 6));
    EXPECT_EQ(std::vector<std::string>(9, "1"), column(coasting, 5));

    const std::vector<std::string> stopped = run("stop", dir / "s.csv");
    ASSERT_EQ(3u, stopped.size()) << readFile(dir / "s.csv");
    EXPECT_EQ(std::vector<std::string>({"tracked", "lost"}), column(stopped, 6));
    EXPECT_EQ(std::vector<std::string>({"1", "0"}), column(stopped, 5));
    const std::vector<std::string> before = fields(stopped[1]), lost = fields(stopped[2]);
    EXPECT_EQ(std::vector<std::string>({before[2], before[3], "", "", "", "", "", ""}),
              std::vector<std::string>(
                  {lost[2], lost[3], lost[4], lost[7], lost[8], lost[9], lost[10], lost[12]}));

    // The JSON says the same, its lost sample with null for what it lacks.
    ASSERT_EQ(0, runTool({dir / "plate.####.png", "--quiet", "--track", "60.5,60.5", "--behavior",
                          "stop", "--tolerance", "1", "--out", dir / "r.json"})
                     .status);
    const TrJsonValue doc = parseJson(readFile(dir / "r.json"));
    const TrJsonValue& samples = doc.members[3].second;
    ASSERT_EQ(2u, samples.items.size());
    const char* statuses[] = {"tracked", "lost"};
    for (size_t k = 0; k < samples.items.size(); ++k) {
        const auto& m = samples.items[k].members;
        ASSERT_EQ("status", m[6].first);
        EXPECT_EQ(statuses[k], m[6].second.text);
    }
    const auto& last = samples.items.back().members;
    EXPECT_EQ(TrJsonValue::Null, last[4].second.kind);
    EXPECT_EQ(TrJsonValue::Null, last[7].second.kind);
}

// A track on the flat half is reported at the first frame in both modes;
// the robust default does not start it.
TEST(TavrixTrackModes, AFlatPatternIsReportedAndLostWhenRobust) {
    TempDir dir;
    writeHalfFlat(dir, 160, 120, 4);
    const std::vector<std::string> args = {
        dir / "plate.####.png", "--track", "40.5,60.5",  "--track",
        "120.5,60.5",           "--out",   dir / "r.csv"};
    std::vector<std::string> design = args;
    design.push_back("--design");
    const ToolRun d = runTool(design);
    ASSERT_EQ(0, d.status) << d.err;
    EXPECT_EQ(0u, d.err.find("tavrix-track: track \"2\" has too little texture at frame 1 and "
                             "may drift\n"))
        << d.err;
    EXPECT_EQ(std::string::npos, d.err.find("lost at frame 1")) << d.err;

    const ToolRun r = runTool(args);
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ(0u, r.err.find("tavrix-track: track \"2\" lost at frame 1: too little texture\n"
                             "tavrix-track: 4 frames, 2 tracks (1 lost)"))
        << r.err;
    const std::vector<std::string> rows = lines(readFile(dir / "r.csv"));
    ASSERT_EQ(6u, rows.size());
    EXPECT_EQ("2,1,120.5000,60.5000,,0,lost,,,,,,", rows[2]);
    for (size_t k : {1, 3, 4, 5})
        EXPECT_EQ("1", fields(rows[k])[0]);

    // Quiet means quiet in either mode.
    design.push_back("--quiet");
    EXPECT_EQ("", runTool(design).err);
}

// Fifty tracks on a textured 1080p frame: each with enough texture, apart
// by the pattern, the search size in from the edges; the file they are
// written to reads back and tracks to the same bytes.
TEST(TavrixTrackDetect, FiftyTracksOnA1080pFramePassTheChecksAndReadBack) {
    TempDir dir;
    movingplate::writePlate(dir, 1920, 1080, 1, 2);
    const std::string pattern = dir / "plate.####.png";
    const ToolRun r = runTool(
        {pattern, "--detect", "50", "--detect-out", dir / "d.json", "--out", dir / "a.csv"});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ(0u, r.err.find("tavrix-track: placed 50 of 50 tracks on frame 1, written to \"" +
                             dir / "d.json" + "\"\n"))
        << r.err;
    const std::vector<TrTrackSpec> placed = readTrackFile(dir / "d.json");
    ASSERT_EQ(50u, placed.size());
    const Orvane::Image frame = Orvane::readImage(dstring(dir / movingplate::frameName(1)));
    for (size_t i = 0; i < placed.size(); ++i) {
        const TrTrackSpec& s = placed[i];
        SCOPED_TRACE(s.name);
        EXPECT_EQ(std::to_string(i + 1), s.name);
        EXPECT_EQ(std::make_tuple(21, 21, 61, 61, std::string("luminance")),
                  std::make_tuple(s.patternWidth, s.patternHeight, s.searchWidth, s.searchHeight,
                                  s.colorMode));
        EXPECT_TRUE(s.x >= 61 && s.x <= 1920 - 61 && s.y >= 61 && s.y <= 1080 - 61)
            << s.x << "," << s.y;
        const Orvane::GenRect<int> cut(int(s.x - 10.5), int(s.y - 10.5), 21, 21);
        EXPECT_GE(TrTexture::measure(TrFollow::reduce(frame.clip(cut), "luminance")),
                  TrTexture::kMinimum);
        for (size_t j = 0; j < i; ++j)
            EXPECT_GE(std::hypot(s.x - placed[j].x, s.y - placed[j].y), 21.0) << placed[j].name;
    }
    const ToolRun back =
        runTool({pattern, "--quiet", "--tracks", dir / "d.json", "--out", dir / "b.csv"});
    ASSERT_EQ(0, back.status) << back.err;
    EXPECT_EQ(101u, lines(readFile(dir / "a.csv")).size());
    EXPECT_TRUE(readFile(dir / "a.csv") == readFile(dir / "b.csv"));
}

// On a grey frame with three dots, the dots are the only places with
// texture: three tracks, one on each, the strongest first.
TEST(TavrixTrackDetect, PlacesTracksOnTheOnlyCornersThereAre) {
    TempDir dir;
    const double dots[3][3] = {{70.5, 60.5, 120}, {160.5, 110.5, 90}, {230.5, 50.5, 60}};
    Orvane::Image img(Orvane::GenRect<int>(0, 0, 300, 180), Orvane::Format::getRGB());
    for (int y = 0; y < 180; ++y) {
        unsigned char* row;
        img.getBuffer(row, Orvane::GenPoint<int>(0, y));
        for (int x = 0; x < 300; ++x) {
            double v = 100;
            for (const auto& d : dots)
                v += d[2] *
                     std::exp(-(std::pow(x + 0.5 - d[0], 2) + std::pow(y + 0.5 - d[1], 2)) / 18);
            row[3 * x] = row[3 * x + 1] = row[3 * x + 2] =
                static_cast<unsigned char>(std::lround(v));
        }
    }
    Orvane::saveToFile(dstring(dir / movingplate::frameName(1)), img);
    Orvane::saveToFile(dstring(dir / movingplate::frameName(2)), img);
    const ToolRun r = runTool({dir / "plate.####.png", "--quiet", "--detect", "10", "--detect-out",
                               dir / "d.json", "--out", dir / "r.csv", "--search", "41x41"});
    ASSERT_EQ(0, r.status) << r.err;
    const std::vector<TrTrackSpec> placed = readTrackFile(dir / "d.json");
    ASSERT_EQ(3u, placed.size());
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_NEAR(dots[i][0], placed[i].x, 2.01) << i;
        EXPECT_NEAR(dots[i][1], placed[i].y, 2.01) << i;
    }
    // A frame with nothing to track is an error of the input.
    const Orvane::Image grey(Orvane::GenRect<int>(0, 0, 300, 180), Orvane::Format::getRGB());
    std::fill_n(static_cast<unsigned char*>(grey.getBuffer()), 300 * 180 * 3, 100);
    Orvane::saveToFile(dstring(dir / "flat.0001.png"), grey);
    expectOneError(
        runTool({dir / "flat.####.png", "--detect", "5", "--detect-out", dir / "e.json"}), 2,
        "--detect: no place in frame 1 has enough texture for a track");
}
