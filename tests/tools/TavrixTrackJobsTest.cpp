// Runs the built tavrix-track with one, two and three jobs on clips the test
// writes: the outputs must not depend on how the tracks were spread.

#include "tools/TrToolProcess.h"
#include "tools/track/TrMovingPlate.h"

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <thread>

using movingplate::frameName;
using movingplate::TempDir;

using tooltest::readFile;
using tooltest::Result;
using tooltest::run;

namespace {

const char* const kModes[] = {"luminance", "red", "green", "blue", "saturation", "hue"};

// 300 tracks on a 20 x 15 grid 12 pixels apart, with three pattern sizes,
// two search sizes and every colour mode. The plate moves right and up, so
// the top row and the right-hand columns leave the frame on the way.
void writeTracks(const std::string& path) {
    std::ofstream out(path);
    out << "{\"tracks\": [";
    for (int k = 0; k < 300; ++k) {
        const int column = k % 20, row = k / 20;
        const int pattern = 9 + 2 * (k % 3), search = pattern + 12 + 4 * (k % 2);
        out << (k ? ",\n" : "") << "{\"name\": \"t" << k << "\", \"position\": ["
            << 6.5 + 12 * column << ", " << 5.5 + 12 * row << "], \"pattern\": [" << pattern << ", "
            << pattern << "], \"search\": [" << search << ", " << search << "], \"colorMode\": \""
            << kModes[k % 6] << "\"}";
    }
    out << "]}\n";
}

void breakFrame(const TempDir& dir, int n) {
    std::ofstream(dir / frameName(n), std::ios::trunc) << "not a png";
}

int count(const std::string& text, const std::string& what) {
    int n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
        ++n;
    return n;
}

} // namespace

// More tracks than one driver follows, tracks lost at the edges, and frame 8
// unreadable: with two and three jobs the results file, the notices, the
// error and the exit status are those of one job, byte for byte, in CSV and
// JSON and under two failure behaviours and sets of free parameters.
TEST(TavrixTrackJobs, ManyTracksGiveTheSameBytesWithAnyNumberOfJobs) {
    TempDir dir;
    movingplate::writePlate(dir, 240, 180, 1, 10);
    writeTracks(dir / "tracks.json");
    breakFrame(dir, 8);
    const std::string input = dir / "plate.####.png --tracks " + dir / "tracks.json";
    const std::pair<std::string, std::string> cases[] = {
        {"--behavior stop", "r.csv"}, {"--behavior predictAndKey --scale --stretch", "r.json"}};
    for (const auto& [mode, out] : cases) {
        SCOPED_TRACE(out);
        std::string args = input;
        args += " " + mode;
        args += " --out " + dir / out;
        const Result one = run(dir, args + " --jobs 1");
        const std::string written = readFile(dir / out);
        // The comparison means something only with losses, rows and the
        // failure there to compare.
        EXPECT_EQ(1, one.status) << one.err;
        EXPECT_EQ("", one.out);
        EXPECT_GE(count(one.err, "\" lost at frame "), 5) << one.err;
        EXPECT_EQ(
            1, count(one.err, "tavrix-track: frame 8: cannot read \"" + dir / frameName(8) + "\""))
            << one.err;
        EXPECT_EQ(1, count(one.err, "; results up to frame 7 were written\n")) << one.err;
        // Tracks t290 to t299, past the first 256, have rows.
        EXPECT_GE(count(written, "t29"), 50);
        EXPECT_GT(written.size(), 100000u);
        for (int jobs : {2, 3}) {
            const Result r = run(dir, args + " --jobs " + std::to_string(jobs));
            EXPECT_EQ(one.status, r.status) << jobs << " jobs";
            EXPECT_EQ(one.out, r.out) << jobs << " jobs";
            EXPECT_EQ(one.err, r.err) << jobs << " jobs";
            EXPECT_TRUE(written == readFile(dir / out)) << jobs << " jobs";
        }
    }
}

// The summary names the threads that did the work: no more jobs than
// tracks, and the decoding threads the machine's cores allow. The time per
// track and frame is the CPU time shared by the 6 x 20 steps.
TEST(TavrixTrackJobs, SummaryGivesThreadsAndTrackingTimePerTrackAndFrame) {
    TempDir dir;
    movingplate::writePlate(dir, 160, 120, 1, 20);
    std::string args = dir / "plate.####.png --jobs 9 --out " + dir / "r.csv";
    for (const char* at :
         {"30.5,50.5", "60.5,50.5", "90.5,50.5", "30.5,90.5", "60.5,90.5", "90.5,90.5"})
        args += std::string(" --track ") + at;
    const Result r = run(dir, args);
    ASSERT_EQ(0, r.status) << r.err;
    const int decoders = std::min(4, int(std::max(1u, std::thread::hardware_concurrency())));
    const std::regex line("tavrix-track: 20 frames, 6 tracks \\(0 lost\\) in [0-9.]+ s, "
                          "[0-9.]+ frames/s; reading [0-9.]+ s on " +
                          std::to_string(decoders) +
                          " threads, waited [0-9.]+ s; tracking [0-9.]+ s on 6 jobs, "
                          "([0-9.]+) s CPU, ([0-9.]+) \u00b5s per track and frame; "
                          "writing [0-9.]+ s\n");
    std::smatch m;
    ASSERT_TRUE(std::regex_match(r.err, m, line)) << r.err;
    const double cpu = std::stod(m[1]), perStep = std::stod(m[2]);
    ASSERT_GT(cpu, 0.02) << "too little work to check the rate against";
    // The CPU seconds are printed to two places.
    EXPECT_NEAR(cpu, perStep * 120 / 1e6, 0.005 + 0.05 * 120 / 1e6);
}

TEST(TavrixTrackJobs, AJobCountBelowOneIsRefused) {
    TempDir dir;
    movingplate::writePlate(dir, 32, 32, 1, 2);
    const std::string plate = dir / "plate.####.png --track 10,10 ";
    const struct {
        std::string args, error;
    } cases[] = {
        {"--jobs 0", "--jobs: must be at least 1, got \"0\""},
        {"-j -2", "-j: must be at least 1, got \"-2\""},
        {"--jobs=two", "--jobs: malformed whole number \"two\""},
        {"--jobs", "--jobs needs a value"},
    };
    for (const auto& c : cases) {
        const Result r = run(dir, plate + c.args);
        EXPECT_EQ(2, r.status) << c.args;
        EXPECT_EQ("tavrix-track: " + c.error + "\n", r.err);
        EXPECT_EQ("", r.out);
    }
}

// Frames read on the tracking thread, or on any number of readers, give the
// same bytes; the summary then shows the reading as the pass's own time.
TEST(TavrixTrackJobs, ReadersChangeWhereFramesAreReadNotTheResults) {
    TempDir dir;
    movingplate::writePlate(dir, 160, 120, 1, 12);
    const std::string args = dir / "plate.####.png --track 40.5,40.5 --track 90.5,60.5 "
                                   "--track 120.5,80.5 --out " +
                             dir / "r.csv";
    const Result ahead = run(dir, args + " --jobs 1");
    ASSERT_EQ(0, ahead.status) << ahead.err;
    const std::string written = readFile(dir / "r.csv");
    EXPECT_GT(count(written, "\n"), 30);
    const struct {
        const char* options;
        std::string reading;
    } cases[] = {{" --jobs 1 --readers 0", "reading [0-9.]+ s; "},
                 {" --readers 1 --jobs 2", "reading [0-9.]+ s on 1 threads, waited [0-9.]+ s; "},
                 {" --readers=3", "reading [0-9.]+ s on 3 threads, waited [0-9.]+ s; "}};
    for (const auto& c : cases) {
        const Result r = run(dir, args + c.options);
        ASSERT_EQ(0, r.status) << c.options << ": " << r.err;
        EXPECT_TRUE(written == readFile(dir / "r.csv")) << c.options;
        EXPECT_TRUE(std::regex_search(r.err, std::regex("frames/s; " + c.reading + "tracking ")))
            << c.options << ": " << r.err;
    }
    const Result refused = run(dir, args + " --readers -1");
    EXPECT_EQ(2, refused.status);
    EXPECT_EQ("tavrix-track: --readers: must be at least 0, got \"-1\"\n", refused.err);
}
