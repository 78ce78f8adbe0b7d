#include "tools/track/TrCommandOptions.h"

#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <tuple>

namespace {

// The arguments of a command line split at spaces.
TrCommandOptions parse(const std::string& line) {
    std::vector<std::string> args;
    std::istringstream in(line);
    for (std::string a; in >> a;)
        args.push_back(a);
    return TrCommandOptions::parse(args);
}

} // namespace

TEST(TrCommandOptions, EveryOptionInBothSpellingsAndTheDefaults) {
    for (const char* line :
         {"--track=1,2 --pattern 15x11 --search=41x31 --from 40 --to=-3 --tolerance 0.65 "
          "--behavior=predictAndKey --color-mode hue --no-rotate --scale --stretch --precise-sums "
          "--out r.json --overlay=ov --homography h.json --quiet --track 3,4 s/a.#.exr",
          "--track 1,2 --pattern=15x11 --search 41x31 --from=40 --to -3 --tolerance=0.65 "
          "--behavior predictAndKey --color-mode=hue --no-rotate --scale --stretch "
          "--precise-sums --out=r.json --overlay ov --homography=h.json --quiet --track=3,4 "
          "s/a.#.exr"}) {
        const TrCommandOptions o = parse(line);
        ASSERT_EQ(2u, o.tracks.size());
        const TrTrackSpec &t = o.tracks[0], &u = o.tracks[1];
        EXPECT_EQ(std::make_tuple(std::string("2"), 3.0, 4.0, 15, 11, 41, 31, std::string("hue")),
                  std::make_tuple(u.name, u.x, u.y, t.patternWidth, t.patternHeight, t.searchWidth,
                                  t.searchHeight, t.colorMode));
        EXPECT_EQ(
            std::make_tuple(std::string("s/a.#.exr"), true, 40, true, -3, 0.65,
                            std::string("predictAndKey")),
            std::make_tuple(o.input, o.hasFrom, o.from, o.hasTo, o.to, o.tolerance, o.behavior));
        EXPECT_EQ(
            std::make_tuple(false, true, true, true, true, true),
            std::make_tuple(o.rotate, o.scale, o.stretch, o.preciseSums, o.quiet, o.jsonOut()));
        EXPECT_EQ(std::make_tuple(std::string("ov"), std::string("h.json")),
                  std::make_tuple(o.overlayDir, o.homographyFile));
    }
    // Tracks given without sizes or a colour mode take the command's defaults.
    const TrCommandOptions d = parse("plate.####.png --track 100.5,50.5");
    ASSERT_EQ(1u, d.tracks.size());
    const TrTrackSpec& t = d.tracks[0];
    EXPECT_EQ(
        std::make_tuple(std::string("1"), 100.5, 50.5, 21, 21, 61, 61, std::string("luminance")),
        std::make_tuple(t.name, t.x, t.y, t.patternWidth, t.patternHeight, t.searchWidth,
                        t.searchHeight, t.colorMode));
    const TrCommandOptions demo = parse("--demo --overlay out/demo");
    EXPECT_TRUE(demo.demo && demo.tracks.empty());
    EXPECT_TRUE(parse("--help").help);
}

TEST(TrCommandOptions, EveryBehaviourColourModeAndNumberForm) {
    for (const char* b :
         {"default", "stop", "predict", "predictAndKey", "dontPredict", "useExistingCurve"})
        EXPECT_EQ(b, parse(std::string("a#.png --track 1,1 --behavior ") + b).behavior);
    for (const char* m : {"red", "green", "blue", "luminance", "saturation", "hue"})
        EXPECT_EQ(m,
                  parse(std::string("a#.png --track 1,1 --color-mode ") + m).tracks[0].colorMode);
    for (const char* t : {"-0.25", "1e-3", "+0.5", ".5"})
        EXPECT_EQ(std::strtod(t, nullptr),
                  parse(std::string("a#.png --track 1,1 --tolerance ") + t).tolerance);
    EXPECT_EQ(2147483647, parse("a#.png --track 1,1 --from 2147483647").from);
}

TEST(TrCommandOptions, BadArgumentsSayWhatWasWrong) {
    const struct {
        const char* line;
        const char* message;
    } cases[] = {
        {"a#.png --track", "--track needs a value"},
        {"a#.png --track 1;2", "--track: expected X,Y, got \"1;2\""},
        {"a#.png --track 1,1 --quiet=yes", "--quiet takes no value"},
        {"a#.png --track 1,1 --tolerance 1.5",
         "--tolerance: must lie between -1 and 1, got \"1.5\""},
        {"a#.png --track 1,1 --out r.txt",
         "--out: the file must end in .csv or .json, got \"r.txt\""},
        {"a#.png --track 1,1 --homography h.csv",
         "--homography: the file must end in .json, got \"h.csv\""},
        {"a#.png b#.png", "more than one frame pattern: \"a#.png\" and \"b#.png\""},
        {"--track 1,1", "no frame pattern given (e.g. shots/plate.####.png), nor --demo"},
        {"a.png --track 1,1", "the frame pattern \"a.png\" has no '#' for the frame number"},
        {"a#.png", "no tracks: give --track X,Y or --tracks FILE.json"},
        {"--demo --track 1,1",
         "--demo places its own tracks; --track and --tracks cannot be used with it"},
        {"a#.png --track 1,1 --pattern 61x61",
         "track \"1\": the search area 61x61 must be larger than the pattern 61x61"},
        {"a#.png --tracks /nonexistent/t.json", "/nonexistent/t.json: No such file or directory"},
        // Numbers are plain, finite and in range.
        {"a#.png --track 1,1 --tolerance 12a", "--tolerance: malformed number \"12a\""},
        {"a#.png --track 1,1 --tolerance nan", "--tolerance: malformed number \"nan\""},
        {"a#.png --track 1,1 --tolerance 0x1", "--tolerance: malformed number \"0x1\""},
        {"a#.png --track 1,1 --tolerance 1e999", "--tolerance: number out of range \"1e999\""},
        {"a#.png --track 1,1 --from 1.5", "--from: malformed whole number \"1.5\""},
        {"a#.png --track 1,1 --from -", "--from: malformed whole number \"-\""},
        {"a#.png --track 1,1 --to 2147483648", "--to: whole number out of range \"2147483648\""},
        {"a#.png --track 100", "--track: expected X,Y, got \"100\""},
        {"a#.png --track 1,2,3", "--track: expected X,Y, got \"1,2,3\""},
        {"a#.png --track 1,y", "--track: malformed number \"y\""},
        {"a#.png --track 1,1 --pattern 21", "--pattern: expected WxH, got \"21\""},
        {"a#.png --track 1,1 --pattern 0x5", "--pattern: sizes must be positive, got \"0x5\""},
        {"a#.png --track 1,1 --search 2.5x5", "--search: malformed whole number \"2.5\""},
    };
    for (const auto& c : cases)
        expectThrows<IllegalArgumentException>([&] { parse(c.line); }, c.message);
    for (const std::string text : {"", " 1"})
        expectThrows<IllegalArgumentException>(
            [&] {
                TrCommandOptions::parse({"a#.png", "--track", "1,1", "--tolerance", text});
            },
            "--tolerance: malformed number \"" + text + "\"");
}
