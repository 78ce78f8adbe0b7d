// Runs the built tavrix-track on sequences named in each frame-name form,
// with known motion, and on malformed names.

#include "tools/TrToolProcess.h"
#include "tools/track/TrMovingPlate.h"

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>

using movingplate::plateFrame;
using movingplate::shiftX;
using movingplate::shiftY;
using movingplate::TempDir;

using tooltest::readFile;
using tooltest::Result;
using tooltest::run;

namespace {

std::string quoted(const std::string& s) {
    return "'" + s + "'";
}

// The file name printf writes for frame n.
std::string printfName(const char* format, int n) {
    char buf[64];
    std::snprintf(buf, sizeof buf, format, n);
    return buf;
}

const int kWidth = 160;
const int kHeight = 120;

void writePlate(const TempDir& dir, const char* format, int first, int last) {
    for (int n = first; n <= last; ++n)
        Orvane::saveToFile(dstring(dir / printfName(format, n)), plateFrame(kWidth, kHeight, n));
}

// x and y by frame for track "1" of a CSV.
std::map<int, std::pair<double, double>> pathOf(const std::string& csv) {
    std::map<int, std::pair<double, double>> rows;
    std::istringstream in(csv);
    std::string line;
    std::getline(in, line);
    while (std::getline(in, line)) {
        int track = 0;
        int frame = 0;
        double x = 0;
        double y = 0;
        if (std::sscanf(line.c_str(), "%d,%d,%lf,%lf", &track, &frame, &x, &y) == 4 && track == 1)
            rows[frame] = {x, y};
    }
    return rows;
}

} // namespace

// Each form finds its first and last frame on disk and tracks the known
// motion. Beside the "@" and printf series lie files that those forms would
// not write; they are passed over (they are not images, so reading one would
// fail the run). The "#" series has a folder of its own.
TEST(TavrixTrackNames, EveryFormFindsItsFramesAndTracksTheKnownMotion) {
    TempDir dir;
    writePlate(dir, "plate.%04d.png", 3, 9);
    writePlate(dir, "u%d.png", 7, 12);
    std::filesystem::create_directory(dir / "hash");
    writePlate(dir, "hash/plate.%04d.png", 3, 9);
    std::ofstream(dir / "plate.001.png") << "not an image\n";
    std::ofstream(dir / "u05.png") << "not an image\n";
    const struct {
        const char* pattern;
        int first;
        int last;
    } cases[] = {
        {"hash/plate.####.png", 3, 9},
        {"plate.@@@@.png", 3, 9},
        {"plate.%04d.png", 3, 9},
        {"u%d.png", 7, 12},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.pattern);
        const double x0 = 80.5 + shiftX(c.first);
        const double y0 = 60.5 + shiftY(c.first);
        const Result r = run(dir, quoted(dir / c.pattern) + " --quiet --pattern 15x15 --track " +
                                      std::to_string(x0) + "," + std::to_string(y0));
        ASSERT_EQ(0, r.status) << r.err;
        const auto path = pathOf(r.out);
        ASSERT_EQ(size_t(c.last - c.first + 1), path.size()) << r.out;
        EXPECT_EQ(c.first, path.begin()->first);
        EXPECT_EQ(c.last, path.rbegin()->first);
        for (const auto& [frame, at] : path) {
            EXPECT_NEAR(x0 + shiftX(frame) - shiftX(c.first), at.first, 0.1) << frame;
            EXPECT_NEAR(y0 + shiftY(frame) - shiftY(c.first), at.second, 0.1) << frame;
        }
    }
    // "#" keeps its rule: the shortest number sets the width, so beside the
    // decoy plate.001.png fits and fails as the first frame.
    const Result hashes = run(dir, quoted(dir / "plate.#.png") + " --quiet --track 80,60");
    EXPECT_EQ(2, hashes.status);
    EXPECT_EQ(0u, hashes.err.find("tavrix-track: cannot read \"" + dir / "plate.001.png" + "\""))
        << hashes.err;
}

TEST(TavrixTrackNames, AMissingFrameInsideTheRangeNamesItsFile) {
    TempDir dir;
    writePlate(dir, "p_%04d.png", 1, 6);
    std::remove((dir / "p_0004.png").c_str());
    for (const char* pattern : {"p_%04d.png", "p_@@@@.png"}) {
        const Result r = run(dir, quoted(dir / pattern) + " --quiet --track 80,60");
        EXPECT_EQ(1, r.status) << pattern;
        EXPECT_EQ(0u,
                  r.err.find("tavrix-track: frame 4: cannot read \"" + dir / "p_0004.png" + "\""))
            << r.err;
        EXPECT_NE(std::string::npos, r.err.find("results up to frame 3 were written")) << r.err;
    }
}

// Through the program, a bad name is status 2 and one line; the frame
// pattern's own test checks every malformed form's text.
TEST(TavrixTrackNames, MalformedNamesGetOneLineAndStatusTwo) {
    TempDir dir;
    writePlate(dir, "p_%04d.png", 1, 2);
    const std::pair<std::string, std::string> cases[] = {
        {"p_%q.png", "has \"%q\", which is not a frame number (use %d, %04d, or %% for a plain "
                     "'%')"},
        {"p_0001.png", "has no '#' for the frame number"},
    };
    for (const auto& c : cases) {
        const std::string pattern = dir / c.first;
        const Result r = run(dir, quoted(pattern) + " --track 80,60");
        EXPECT_EQ(2, r.status) << c.first;
        EXPECT_EQ("tavrix-track: the frame pattern \"" + pattern + "\" " + c.second + "\n", r.err);
        EXPECT_EQ("", r.out);
    }
}

TEST(TavrixTrackNames, VersionAndHelpSayWhatTheyShould) {
    TempDir dir;
    const Result v = run(dir, "--version");
    EXPECT_EQ(0, v.status);
    EXPECT_EQ(std::string("tavrix-track ") + TAVRIX_PROJECT_VERSION + "\n", v.out);
    EXPECT_EQ("", v.err);
    EXPECT_TRUE(std::regex_match(v.out, std::regex("tavrix-track [0-9]+(\\.[0-9]+)+\n")));
    // The usage names every form with the rule it follows.
    const Result h = run(dir, "--help");
    EXPECT_EQ(0, h.status);
    for (const char* rule : {"  ####   '#' for the digits", "  @@@@   the same with '@'",
                             "  %04d   printf's zero-padded width, %d unpadded"})
        EXPECT_NE(std::string::npos, h.out.find(rule)) << rule;
}
