// tavrix-track, run in this process, on frame files whose content strains
// the tracker: flat and one-grey-level frames, 16-bit frames over
// their whole range, float frames from -5 to 20 or holding NaN and Inf,
// tracks at every edge and corner, 3x3 patterns and search areas twice the
// frame. Every run ends normally; each track's rows run from the first
// frame without a gap, and a track whose rows stop early is reported lost
// at the next frame; no number written is NaN or Inf, and every score lies
// within [-1, 1].

#include "image/DatatypeSwitch.h"
#include "image/Format.h"
#include "image/Image.h"
#include "image/ImageFile.h"
#include "tools/TrToolRun.h"
#include "tools/track/TrMovingPlate.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <limits>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

using movingplate::TempDir;

namespace {

const int kWidth = 96;
const int kHeight = 72;
const int kFrames = 4;

// Eight sinusoids around 0.5, moving by (0.7, -0.4) a frame.
double texture(double x, double y, int f) {
    x -= 0.7 * f;
    y += 0.4 * f;
    double v = 0.5;
    for (int i = 1; i <= 8; ++i) {
        const double a = 2.4 * i, k = 2 * M_PI / (7 + 1.2 * i);
        v += 0.045 * std::sin(k * (std::cos(a) * x + std::sin(a) * y) + i * i);
    }
    return v;
}

// A sample at pixel centre (x, y) of frame f: 0..1 spans an integer
// datatype's range, float frames take it as it is.
using Content = std::function<double(double x, double y, int f)>;

// Frames 1 .. kFrames as grey RGB files "<dir>/<name>.NNNN.<extension>".
void writeFrames(const TempDir& dir, const std::string& name, const std::string& extension,
                 int datatype, const Content& content) {
    for (int f = 1; f <= kFrames; ++f) {
        const Orvane::Image img(Orvane::GenRect<int>(0, 0, kWidth, kHeight),
                                Orvane::Format("rgb", datatype, false));
        Orvane::switchDatatype(datatype, "datatype", [&](auto s) {
            using T = typename decltype(s)::type;
            const double top = std::is_integral_v<T> ? double(std::numeric_limits<T>::max()) : 1.0;
            for (int y = 0; y < kHeight; ++y) {
                T* row = nullptr;
                img.getBuffer(row, Orvane::GenPoint<int>(0, y));
                for (int x = 0; x < kWidth; ++x) {
                    double v = content(x + 0.5, y + 0.5, f);
                    if (std::is_integral_v<T>)
                        v = std::round(std::min(std::max(v, 0.0), 1.0) * top);
                    row[3 * x] = row[3 * x + 1] = row[3 * x + 2] = T(v);
                }
            }
        });
        char file[64];
        std::snprintf(file, sizeof file, "%s.%04d.%s", name.c_str(), f, extension.c_str());
        Orvane::saveToFile(dstring(dir / file), img);
    }
}

// Tracks on the centre and on the outermost pixel centres of every edge and
// corner, named 1 to 9.
std::vector<std::string> everywhere() {
    std::vector<std::string> args;
    for (double y : {0.5, kHeight / 2.0, kHeight - 0.5})
        for (double x : {0.5, kWidth / 2.0, kWidth - 0.5}) {
            std::ostringstream at;
            at << x << "," << y;
            args.insert(args.end(), {"--track", at.str()});
        }
    return args;
}

// Checks one run's output as the file header says.
void checkRun(const ToolRun& r, const std::string& csv, const std::string& what) {
    SCOPED_TRACE(what);
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ("", r.out);
    std::map<std::string, int> lostAt;
    std::istringstream err(r.err);
    const std::regex lost("tavrix-track: track \"(\\d)\" lost at frame (\\d+): .+");
    const std::regex summary("tavrix-track: 4 frames, 9 tracks \\((\\d) lost\\) in .*");
    // Flat content warns of each track it cannot hold, before the pass.
    const std::regex flat("tavrix-track: track \"\\d\" has too little texture at frame 1 and "
                          "may drift");
    int lines = 0, summaries = 0, lostCount = -1, flatCount = 0;
    std::smatch m;
    for (std::string line; std::getline(err, line); ++lines)
        if (std::regex_match(line, m, lost))
            lostAt[m[1]] = std::stoi(m[2]);
        else if (std::regex_match(line, flat) && lostAt.empty() && summaries == 0)
            ++flatCount;
        else if (std::regex_match(line, m, summary)) {
            lostCount = std::stoi(m[1]);
            ++summaries;
        } else {
            ADD_FAILURE() << "unexpected line: " << line;
        }
    EXPECT_EQ(1, summaries) << r.err;
    EXPECT_EQ(int(lostAt.size()), lostCount) << r.err;
    EXPECT_EQ(int(lostAt.size()) + flatCount + 1, lines);
    std::printf("%-18s %d of 9 tracks lost\n", what.c_str(), lostCount);

    std::istringstream in(csv);
    std::string line;
    std::getline(in, line);
    EXPECT_EQ("track,frame,x,y,score,keyed,tx,ty,ro,sc,st0,st1", line);
    std::map<std::string, int> lastRow;
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        std::string name, field;
        std::getline(fields, name, ',');
        std::vector<double> values;
        while (std::getline(fields, field, ',')) {
            char* end = nullptr;
            values.push_back(std::strtod(field.c_str(), &end));
            EXPECT_TRUE(std::isfinite(values.back()) && *end == 0) << line;
        }
        ASSERT_EQ(11u, values.size()) << line;
        EXPECT_EQ(lastRow[name] + 1, int(values[0])) << "rows of track " << name << " skip";
        lastRow[name] = int(values[0]);
        EXPECT_LE(std::fabs(values[3]), 1.0) << line; // written with five decimals
    }
    for (int t = 1; t <= 9; ++t) {
        const std::string name = std::to_string(t);
        const int last = lastRow.count(name) ? lastRow[name] : 0;
        if (last < kFrames)
            EXPECT_EQ(last + 1, lostAt.count(name) ? lostAt[name] : -1) << "track " << name;
        else
            EXPECT_EQ(0u, lostAt.count(name)) << "track " << name;
    }
}

struct Case {
    const char* name;
    const char* extension;
    int datatype;
    Content content;
    std::vector<std::string> sizes;
};

} // namespace

TEST(TavrixTrackStress, StrainingContentEndsNormallyWithFiniteRows) {
    const double nan = std::numeric_limits<double>::quiet_NaN(), inf = INFINITY;
    const Case cases[] = {
        {"flat", "png", Orvane::UB1, [](double, double, int) { return 0.5; }, {}},
        {"onelevel",
         "png",
         Orvane::UB1,
         [](double x, double y, int f) { return (128 + (texture(x, y, f) > 0.5)) / 255.0; },
         {}},
        {"wide16",
         "png",
         Orvane::UB2,
         [](double x, double y, int f) { return (texture(x, y, f) - 0.5) * 2.5 + 0.5; },
         {}},
        {"outside",
         "exr",
         Orvane::FLOAT,
         [](double x, double y, int f) { return texture(x, y, f) * 50 - 20; },
         {}},
        {"nonfinite",
         "exr",
         Orvane::FLOAT,
         [=](double x, double y, int f) {
             const int k = (int(x) * 5 + int(y) * 11) % 53;
             return k == 0 ? nan : k == 1 ? inf : k == 2 ? -inf : texture(x, y, f);
         },
         {}},
        {"tiny", "png", Orvane::UB1, texture, {"--pattern", "3x3", "--search", "9x9"}},
        {"widesearch",
         "png",
         Orvane::UB1,
         texture,
         {"--search", std::to_string(2 * kWidth) + "x" + std::to_string(2 * kHeight)}},
    };
    TempDir dir;
    for (const Case& c : cases) {
        writeFrames(dir, c.name, c.extension, c.datatype, c.content);
        for (bool precise : {false, true}) {
            // The designed layout: one row per track and frame followed.
            std::vector<std::string> args = {dir / (std::string(c.name) + ".####." + c.extension),
                                             "--design", "--out", dir / "r.csv"};
            const std::vector<std::string> tracks = everywhere();
            args.insert(args.end(), tracks.begin(), tracks.end());
            args.insert(args.end(), c.sizes.begin(), c.sizes.end());
            if (precise)
                args.push_back("--precise-sums");
            // The run first: arguments are evaluated in no set order.
            const ToolRun r = runTool(args);
            checkRun(r, movingplate::readFile(dir / "r.csv"),
                     std::string(c.name) + (precise ? " precise" : ""));
        }
    }
}

// Bad input run in process: one line, status 2, and no partial output.
TEST(TavrixTrackStress, BadInputInProcessGetsOneLine) {
    TempDir dir;
    writeFrames(dir, "p", "png", Orvane::UB1, texture);
    const std::string frames = dir / "p.####.png";
    expectOneError(runTool({frames, "--track", "10,10", "--search", "193x30"}), 2,
                   "track \"1\": the search area 193x30 is larger than 192x144, twice the frame");
    expectOneError(runTool({frames, "--track", "10,10", "--pattern", "3x73", "--search", "5x75"}),
                   2, "track \"1\": the pattern 3x73 is larger than the frame, 96x72");
    expectOneError(runTool({frames, "--track", "1e308,1"}), 2,
                   "track \"1\" at 1e+308,1 lies outside frame 1 (0, 0, 96, 72)");
    expectOneError(runTool({frames, "--track", "10,10", "--to", "2147483647"}), 2,
                   "frame 2147483647 lies outside the sequence's frames 1 to 4");
    EXPECT_FALSE(std::filesystem::exists(dir / "r.csv"));
}
