// Runs the built tavrix-track on image sequences written by the test, with
// known motion, and on bad input.

#include "image/Format.h"
#include "image/Image.h"
#include "image/ImageFile.h"
#include "tools/TrToolProcess.h"
#include "tools/TrToolRun.h"
#include "tools/TrToolTestSupport.h"
#include "tools/track/TrCommandOptions.h"
#include "tools/track/TrJson.h"

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <vector>

using movingplate::TempDir;
using tooltest::readFile;
using tooltest::Result;
using tooltest::run;

namespace {

// A band-limited texture, exact at any position, so that a sub-pixel move
// needs no interpolator: eight sinusoids with wavelengths of 9.5 to 20 pixels
// turned 137.5 degrees apart, `turn` turning them all.
double texture(double x, double y, double turn) {
    double v = 0.5;
    for (int i = 1; i <= 8; ++i) {
        const double a = 2.4 * i + turn, k = 2 * M_PI / (8 + 1.5 * i);
        v += 0.06 * std::sin(k * (std::cos(a) * x + std::sin(a) * y) + i * i);
    }
    return v;
}

std::string frameName(const std::string& prefix, int n) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%04d.png", n);
    return prefix + buf;
}

// An 8-bit RGB PNG; `toTexture` carries a pixel centre to the texture.
void writeFrame(const std::string& path, int width, int height, const double toTexture[9],
                double turn) {
    Orvane::Image img(Orvane::GenRect<int>(0, 0, width, height), Orvane::Format::getRGB());
    for (int y = 0; y < height; ++y) {
        unsigned char* row;
        img.getBuffer(row, Orvane::GenPoint<int>(0, y));
        for (int x = 0; x < width; ++x) {
            double u, v;
            applyH(toTexture, x + 0.5, y + 0.5, u, v);
            const double t = texture(u, v, turn);
            row[3 * x] = static_cast<unsigned char>(std::lround(255 * t));
            row[3 * x + 1] = static_cast<unsigned char>(std::lround(200 * t));
            row[3 * x + 2] = static_cast<unsigned char>(255 - row[3 * x]);
        }
    }
    Orvane::saveToFile(dstring(path), img);
}

// `from` with its last 100 bytes cut off: the end of its image data and
// the chunk after.
void writeCut(const std::string& to, const std::string& from) {
    const std::string bytes = readFile(from);
    std::ofstream(to, std::ios::binary) << bytes.substr(0, bytes.size() - 100);
}

struct Row {
    double x, y, score;
    int keyed;
};

// CSV rows by track name and frame; checks the header.
std::map<std::pair<std::string, int>, Row> parseCsv(const std::string& text) {
    std::map<std::pair<std::string, int>, Row> rows;
    std::istringstream in(text);
    std::string line;
    std::getline(in, line);
    EXPECT_EQ("track,frame,x,y,score,keyed,tx,ty,ro,sc,st0,st1", line);
    while (std::getline(in, line)) {
        char name[16];
        int frame;
        Row r;
        EXPECT_EQ(6, std::sscanf(line.c_str(), "%15[^,],%d,%lf,%lf,%lf,%d", name, &frame, &r.x,
                                 &r.y, &r.score, &r.keyed))
            << line;
        rows[{name, frame}] = r;
    }
    return rows;
}

// The content of frame n moves by this much from frame 1: about (1.3, -0.7)
// a frame with a sub-pixel wobble.
Orvane::GenPoint<double> shift(int n) {
    return {1.3 * (n - 1) + 0.45 * std::sin(n * 0.9), -0.7 * (n - 1) + 0.35 * std::cos(n * 1.3)};
}

void writeTranslated(const TempDir& dir, int frames) {
    for (int n = 1; n <= frames; ++n) {
        const double back[9] = {1, 0, -shift(n).x, 0, 1, -shift(n).y, 0, 0, 1};
        writeFrame(dir / frameName("plate.", n), 200, 150, back, 0);
    }
}

const double kStarts[4][2] = {{60.5, 50.5}, {140.5, 45.5}, {70.5, 100.5}, {130.5, 95.5}};

// Tracks the plate from `from` to `to` with the designed tracker and the
// first `count` starts, placed
// where the content is at `from`.
std::string trackArgs(const TempDir& dir, int count, int from, int to) {
    std::string args = dir / "plate.####.png --quiet --design --from " + std::to_string(from) +
                       " --to " + std::to_string(to);
    const Orvane::GenPoint<double> d = shift(from) - shift(1);
    for (int i = 0; i < count; ++i)
        args += " --track " + std::to_string(kStarts[i][0] + d.x) + "," +
                std::to_string(kStarts[i][1] + d.y);
    return args;
}

} // namespace

// Forward and backward, the JSON output holding the same samples as the CSV;
// then a track that leaves the frame is lost while the other goes on.
TEST(TavrixTrack, FollowsASubPixelTranslationWithinATenthOfAPixel) {
    TempDir dir;
    writeTranslated(dir, 12);
    for (int from : {1, 12}) {
        const Result r = run(dir, trackArgs(dir, 4, from, 13 - from));
        ASSERT_EQ(0, r.status) << r.err;
        EXPECT_EQ("", r.err);
        const auto rows = parseCsv(r.out);
        EXPECT_EQ(48u, rows.size());
        for (int i = 0; i < 4; ++i)
            for (int n = 1; n <= 12; ++n) {
                SCOPED_TRACE("from " + std::to_string(from) + " track " + std::to_string(i + 1) +
                             " frame " + std::to_string(n));
                const auto it = rows.find({std::to_string(i + 1), n});
                ASSERT_NE(rows.end(), it);
                const Row& row = it->second;
                EXPECT_EQ(1, row.keyed);
                EXPECT_GT(row.score, 0.8);
                EXPECT_NEAR(kStarts[i][0] + shift(n).x - shift(1).x, row.x, 0.1);
                EXPECT_NEAR(kStarts[i][1] + shift(n).y - shift(1).y, row.y, 0.1);
            }
        const Result json =
            run(dir, trackArgs(dir, 4, from, 13 - from) + " --out " + dir / "r.json");
        ASSERT_EQ(0, json.status) << json.err;
        EXPECT_EQ("", json.out);
        const TrJsonValue doc = parseJson(readFile(dir / "r.json"));
        const TrJsonValue& samples = doc.members[3].second;
        ASSERT_EQ(rows.size(), samples.items.size());
        for (const TrJsonValue& s : samples.items) {
            const Row& row = rows.at({s.members[0].second.text, int(s.members[1].second.number)});
            // The CSV holds four decimals.
            EXPECT_NEAR(row.x, s.members[2].second.number, 0.5e-4);
            EXPECT_NEAR(row.y, s.members[3].second.number, 0.5e-4);
        }
        EXPECT_TRUE(doc.members[5].second.boolean);
    }
    // The content moves up by about 0.7 px a frame: a track 4 px below the
    // top edge loses its pattern, one in the middle does not.
    const Result r = run(dir, dir / "plate.####.png --design --track 100.5,4.5 --track 100.5,75.5 "
                                    "--pattern 15x15 --search 31x31 --behavior stop");
    ASSERT_EQ(0, r.status) << r.err;
    const auto rows = parseCsv(r.out);
    int last = 0;
    for (int n = 1; n <= 12; ++n) {
        EXPECT_EQ(1u, rows.count({"2", n})) << n;
        last = rows.count({"1", n}) ? n : last;
    }
    ASSERT_LT(last, 12) << r.out;
    EXPECT_NE(std::string::npos,
              r.err.find("tavrix-track: track \"1\" lost at frame " + std::to_string(last + 1)))
        << r.err;
    EXPECT_NE(std::string::npos, r.err.find("(1 lost)")) << r.err;
}

TEST(TavrixTrack, HomographiesMatchAKnownPlanarMotion) {
    TempDir dir;
    // Frame n shows the plane through motion step n - 1; pixels are rendered
    // through the inverse.
    for (int n = 1; n <= 6; ++n) {
        double h[9], inv[9];
        planeMotion(n - 1, 160, 120, h);
        invertH(h, inv);
        writeFrame(dir / frameName("plane.", n), 320, 240, inv, 1);
    }
    std::string args = dir / "plane.####.png --quiet --scale --homography " + dir / "h.json";
    for (double x : {70.5, 160.5, 250.5})
        for (double y : {60.5, 120.5, 180.5})
            args += " --track=" + std::to_string(x) + "," + std::to_string(y);
    const Result r = run(dir, args);
    ASSERT_EQ(0, r.status) << r.err;

    const TrJsonValue doc = parseJson(readFile(dir / "h.json"));
    EXPECT_EQ(1, doc.members[0].second.number);
    const TrJsonValue& list = doc.members[1].second;
    ASSERT_EQ(6u, list.items.size());
    double h1[9];
    planeMotion(0, 160, 120, h1);
    for (const TrJsonValue& f : list.items) {
        const int n = int(f.members[0].second.number);
        EXPECT_EQ(9, f.members[1].second.number) << "tracks counted at frame " << n;
        EXPECT_TRUE(f.members[2].second.boolean);
        double got[9], hn[9];
        for (int i = 0; i < 9; ++i)
            got[i] = f.members[3].second.items[size_t(i / 3)].items[size_t(i % 3)].number;
        planeMotion(n - 1, 160, 120, hn);
        // Over the tracks' area: the tracker's 0.1 px, spread by the fit.
        EXPECT_LT(worstGridError(got, h1, hn, 70, 250, 60, 180, 30), 0.25) << "frame " << n;
    }
}

// The program's own path for bad input: status 2, one line, nothing
// written. The option parser's, the limits' and the track file's texts are
// checked in full by their own tests and in process.
TEST(TavrixTrack, BadInputGetsOneLineAndStatusTwo) {
    TempDir dir;
    writeTranslated(dir, 3);
    std::ofstream(dir / "broken.0001.png") << "not a png";
    writeCut(dir / "cut.0001.png", dir / "plate.0001.png");
    const std::string plate = dir / "plate.####.png", h = dir / "h.json";
    const std::string cannotWrite = dir / "no/such/dir/r.csv";
    const struct {
        std::string args, error;
    } cases[] = {
        {"/nonexistent/a.####.png --track 1,1",
         "frame pattern \"/nonexistent/a.####.png\": bad filename \"/nonexistent\""},
        {dir / "zz.####.png --track 1,1",
         "no file matches the frame pattern \"" + dir / "zz.####.png\""},
        {plate + " --track 1,1 --color-mode teal",
         "unknown color mode \"teal\" (expected one of red, green, blue, luminance, saturation, "
         "hue)"},
        {plate + " --track 1,1 --behavior guess",
         "unknown failure behavior \"guess\" (expected one of default, stop, predict, "
         "predictAndKey, dontPredict, useExistingCurve)"},
        {plate + " --track 10,10 --track 60.25,-0.125",
         "track \"2\" at 60.25,-0.125 lies outside frame 1 (0, 0, 200, 150)"},
        {plate + " --track 10,10 --track 20,20 --track 30,30 --homography " + h,
         "--homography needs at least four tracks, got 3"},
        {plate + " --track 10,10 --out " + cannotWrite, "cannot write \"" + cannotWrite + "\""},
        {dir / "cut.####.png --track 10,10", "cannot read \"" + dir / "cut.0001.png" +
                                                 "\": truncated PNG: the file ends inside chunk "
                                                 "IDAT"},
    };
    for (const auto& c : cases) {
        const Result r = run(dir, c.args);
        EXPECT_EQ(2, r.status) << c.error;
        EXPECT_EQ("tavrix-track: " + c.error + "\n", r.err);
        EXPECT_EQ("", r.out) << c.error;
    }
    // An unreadable first frame names the file.
    const Result r = run(dir, dir / "broken.####.png --track 1,1");
    EXPECT_EQ(2, r.status);
    EXPECT_EQ(0u, r.err.find("tavrix-track: cannot read \"" + dir / "broken.0001.png" + "\""))
        << r.err;
    EXPECT_EQ(1, std::count(r.err.begin(), r.err.end(), '\n'));
}

// A frame cut short part way, with one job or several: one line naming it
// (nothing of the decoder's own), and the rows before it are those of a pass
// that ended on the frame before, in CSV and in JSON.
TEST(TavrixTrack, AFrameThatCannotBeReadKeepsEverythingBefore) {
    TempDir dir;
    writeTranslated(dir, 8);
    const Result whole = run(dir, trackArgs(dir, 3, 1, 5) + " --jobs 1");
    ASSERT_EQ(0, whole.status) << whole.err;
    EXPECT_EQ(15u, parseCsv(whole.out).size());
    const std::string sixth = dir / frameName("plate.", 6);
    writeCut(dir / "cut.png", sixth);
    std::filesystem::rename(dir / "cut.png", sixth);
    for (const std::string jobs : {"1", "3"}) {
        SCOPED_TRACE(jobs + " jobs");
        const Result cut = run(dir, trackArgs(dir, 3, 1, 8) + " --jobs " + jobs);
        expectOneError(cut, 1,
                       "frame 6: cannot read \"" + sixth +
                           "\": truncated PNG: the file ends inside chunk IDAT",
                       "results up to frame 5 were written");
        EXPECT_EQ(whole.out, cut.out);
    }
    const Result r = run(dir, trackArgs(dir, 3, 1, 8) + " --out " + dir / "r.json");
    EXPECT_EQ(1, r.status);
    const TrJsonValue doc = parseJson(readFile(dir / "r.json"));
    EXPECT_EQ(15u, doc.members[3].second.items.size());
    EXPECT_FALSE(doc.members[5].second.boolean);
    EXPECT_EQ("error", doc.members[6].first);
}

TEST(TavrixTrack, DemoFollowsTheKnownPathAndDrawsOverlays) {
    TempDir dir;
    // The designed tracker: a free scale lets the demo's corner tracks drift.
    const Result r = run(dir, "--demo --quiet --design --overlay " + dir / "ov");
    ASSERT_EQ(0, r.status) << r.err;
    // All five tracks stay within a pixel of the known path over 30 frames.
    const std::regex withinAPixel("\ntrack \"[a-z-]+\" +max error 0\\.\\d{4} px over 30 frames");
    EXPECT_EQ(5, std::distance(std::sregex_iterator(r.out.begin(), r.out.end(), withinAPixel),
                               std::sregex_iterator()))
        << r.out;
    for (int n : {1, 15, 30}) {
        const Orvane::Image img =
            Orvane::readImage(dstring(dir / "ov/" + frameName("overlay.", n)));
        EXPECT_EQ(std::make_pair(320, 240), std::make_pair(img.getBounds().w, img.getBounds().h));
    }
    EXPECT_TRUE(std::filesystem::exists(dir / "ov/path.png"));
}

// Tracks exported at the end of one pass start the next one where the first
// left them: the exported file's corner and y direction read back exactly.
TEST(TavrixTrack, ExportedTracksStartTheNextPassWhereTheyEnded) {
    TempDir dir;
    writeTranslated(dir, 8);
    const Result first =
        run(dir, trackArgs(dir, 4, 1, 5) + " --out " + dir / "r.csv" + " --homography " +
                     dir / "h.json" + " --export " + dir / "r.nk");
    ASSERT_EQ(0, first.status) << first.err;
    ASSERT_EQ(
        0,
        run(dir, trackArgs(dir, 4, 1, 5) + " --export " + dir / "r.txt" + " --format 3de").status);
    EXPECT_NE(std::string::npos, readFile(dir / "r.nk").find("\nCornerPin2D {\n"));
    const auto ended = parseCsv(readFile(dir / "r.csv"));
    for (const std::string file : {"r.nk", "r.txt"}) {
        TrCommandOptions o = TrCommandOptions::parse(
            {dir / "plate.####.png", "--tracks", dir / file, "--from", "5"});
        o.placeImportedTracks(TrFrameSize{200, 150});
        ASSERT_EQ(4u, o.tracks.size()) << file;
        for (int i = 1; i <= 4; ++i) {
            const TrTrackSpec& t = o.tracks[size_t(i - 1)];
            EXPECT_EQ(std::to_string(i), t.name);
            // The CSV's four decimals bound the difference.
            EXPECT_NEAR(ended.at({t.name, 5}).x, t.x, 1e-4) << file << " " << i;
            EXPECT_NEAR(ended.at({t.name, 5}).y, t.y, 1e-4) << file << " " << i;
        }
        const Result next =
            run(dir, dir / "plate.####.png --quiet --design --from 5 --to 8 --tracks " +
                         dir / file + " --out " + dir / "n.csv");
        ASSERT_EQ(0, next.status) << file << ": " << next.err;
        const auto started = parseCsv(readFile(dir / "n.csv"));
        for (int i = 1; i <= 4; ++i) {
            const std::pair<std::string, int> key{std::to_string(i), 5};
            ASSERT_EQ(1u, started.count(key)) << file << " " << i;
            // The tracker solves its first frame again, a few thousandths of
            // a pixel from where it was placed.
            EXPECT_NEAR(ended.at(key).x, started.at(key).x, 0.01) << file << " " << i;
            EXPECT_NEAR(ended.at(key).y, started.at(key).y, 0.01) << file << " " << i;
        }
    }
}

TEST(TavrixTrack, AMemoryLimitPassedGetsOneLine) {
    TempDir dir;
    writeTranslated(dir, 2);
    // 500 tracks with the largest search area the frame allows plan for
    // more than the memory limit, whatever their count of frames.
    {
        std::ofstream many(dir / "many.json");
        many << "{\"tracks\": [";
        for (int i = 0; i < 500; ++i)
            many << (i ? ", " : "") << "{\"position\": [100, 75]}";
        many << "]}";
    }
    const Result r =
        run(dir, dir / "plate.####.png --search 400x300 --to 2 --tracks " + dir / "many.json");
    EXPECT_EQ(2, r.status);
    const std::regex limit("tavrix-track: the pass needs about [4-9]\\.\\d GiB of working memory "
                           "\\(500 tracks over 2 frames\\), more than the limit of 4\\.0 GiB\n");
    EXPECT_TRUE(std::regex_match(r.err, limit)) << r.err;
    EXPECT_EQ("", r.out);
}
