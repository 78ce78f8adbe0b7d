#include "tools/track/TrCommandOptions.h"

#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

using testsupport::expectThrows;

namespace {

TrCommandOptions parse(std::vector<std::string> args) {
    return TrCommandOptions::parse(args);
}

void expectError(std::vector<std::string> args, const std::string& message) {
    expectThrows<IllegalArgumentException>([&] { TrCommandOptions::parse(args); }, message);
}

} // namespace

TEST(TrCommandOptions, DefaultsSuitATypicalPlate) {
    const TrCommandOptions o = parse({"plate.####.png", "--track", "100.5,50.5"});
    EXPECT_EQ("plate.####.png", o.input);
    ASSERT_EQ(1u, o.tracks.size());
    const TrTrackSpec& t = o.tracks[0];
    EXPECT_EQ("1", t.name);
    EXPECT_EQ(100.5, t.x);
    EXPECT_EQ(50.5, t.y);
    EXPECT_EQ(21, t.patternWidth);
    EXPECT_EQ(21, t.patternHeight);
    EXPECT_EQ(61, t.searchWidth);
    EXPECT_EQ(61, t.searchHeight);
    EXPECT_EQ("luminance", t.colorMode);
    EXPECT_FALSE(o.hasFrom);
    EXPECT_FALSE(o.hasTo);
    EXPECT_EQ(0.8, o.tolerance);
    EXPECT_EQ("default", o.behavior);
    EXPECT_TRUE(o.rotate);
    EXPECT_FALSE(o.scale);
    EXPECT_FALSE(o.stretch);
    EXPECT_FALSE(o.preciseSums);
    EXPECT_EQ("", o.out);
    EXPECT_FALSE(o.jsonOut());
}

TEST(TrCommandOptions, EveryOptionInBothSpellings) {
    const TrCommandOptions o = parse({"--track=1,2",
                                      "--pattern",
                                      "15x11",
                                      "--search=41x31",
                                      "--from",
                                      "40",
                                      "--to=-3",
                                      "--tolerance",
                                      "0.65",
                                      "--behavior=predictAndKey",
                                      "--color-mode",
                                      "hue",
                                      "--no-rotate",
                                      "--scale",
                                      "--stretch",
                                      "--precise-sums",
                                      "--out",
                                      "r.json",
                                      "--overlay",
                                      "ov",
                                      "--homography=h.json",
                                      "--quiet",
                                      "--track",
                                      "3,4",
                                      "--track",
                                      "5,6",
                                      "--track",
                                      "7,8",
                                      "s/a.#.exr"});
    EXPECT_EQ("s/a.#.exr", o.input);
    ASSERT_EQ(4u, o.tracks.size());
    EXPECT_EQ("4", o.tracks[3].name);
    EXPECT_EQ(7.0, o.tracks[3].x);
    EXPECT_EQ(15, o.tracks[0].patternWidth);
    EXPECT_EQ(11, o.tracks[0].patternHeight);
    EXPECT_EQ(41, o.tracks[0].searchWidth);
    EXPECT_EQ(31, o.tracks[0].searchHeight);
    EXPECT_EQ("hue", o.tracks[0].colorMode);
    EXPECT_EQ(40, o.from);
    EXPECT_EQ(-3, o.to);
    EXPECT_EQ(0.65, o.tolerance);
    EXPECT_EQ("predictAndKey", o.behavior);
    EXPECT_FALSE(o.rotate);
    EXPECT_TRUE(o.scale);
    EXPECT_TRUE(o.stretch);
    EXPECT_TRUE(o.preciseSums);
    EXPECT_TRUE(o.jsonOut());
    EXPECT_EQ("ov", o.overlayDir);
    EXPECT_EQ("h.json", o.homographyFile);
    EXPECT_TRUE(o.quiet);
}

TEST(TrCommandOptions, EveryBehaviourAndColourModeOfTheTracker) {
    for (const char* b :
         {"default", "stop", "predict", "predictAndKey", "dontPredict", "useExistingCurve"})
        EXPECT_EQ(b, parse({"a#.png", "--track", "1,1", "--behavior", b}).behavior);
    for (const char* m : {"red", "green", "blue", "luminance", "saturation", "hue"})
        EXPECT_EQ(m, parse({"a#.png", "--track", "1,1", "--color-mode", m}).tracks[0].colorMode);
}

TEST(TrCommandOptions, DemoNeedsNoTracksOrPattern) {
    const TrCommandOptions o = parse({"--demo", "--overlay", "out/demo"});
    EXPECT_TRUE(o.demo);
    EXPECT_TRUE(o.tracks.empty());
    EXPECT_TRUE(parse({"--help"}).help);
}

TEST(TrCommandOptions, BadArgumentsSayWhatWasWrong) {
    expectError({"a#.png", "--track", "1,1", "--bogus"}, "unknown option \"--bogus\" (see --help)");
    expectError({"a#.png", "--track"}, "--track needs a value");
    expectError({"a#.png", "--track", "1;2"}, "--track: expected X,Y, got \"1;2\"");
    expectError({"a#.png", "--track", "1,1", "--quiet=yes"}, "--quiet takes no value");
    expectError({"a#.png", "--track", "1,1", "--behavior", "retry"},
                "unknown failure behavior \"retry\" (expected one of default, stop, predict, "
                "predictAndKey, dontPredict, useExistingCurve)");
    expectError({"a#.png", "--track", "1,1", "--color-mode", "cyan"},
                "unknown color mode \"cyan\" (expected one of red, green, blue, luminance, "
                "saturation, hue)");
    expectError({"a#.png", "--track", "1,1", "--tolerance", "1.5"},
                "--tolerance: must lie between -1 and 1, got \"1.5\"");
    expectError({"a#.png", "--track", "1,1", "--out", "r.txt"},
                "--out: the file must end in .csv or .json, got \"r.txt\"");
    expectError({"a#.png", "--track", "1,1", "--homography", "h.csv"},
                "--homography: the file must end in .json, got \"h.csv\"");
    expectError({"a#.png", "b#.png"}, "more than one frame pattern: \"a#.png\" and \"b#.png\"");
    expectError({"--track", "1,1"},
                "no frame pattern given (e.g. shots/plate.####.png), nor --demo");
    expectError({"a.png", "--track", "1,1"},
                "the frame pattern \"a.png\" has no '#' for the frame number");
    expectError({"a#.png"}, "no tracks: give --track X,Y or --tracks FILE.json");
    expectError({"--demo", "--track", "1,1"},
                "--demo places its own tracks; --track and --tracks cannot be used with it");
    expectError({"a#.png", "--track", "1,1", "--pattern", "61x61"},
                "track \"1\": the search area 61x61 must be larger than the pattern 61x61");
    expectError({"a#.png", "--tracks", "/nonexistent/t.json"},
                "/nonexistent/t.json: No such file or directory");
}
