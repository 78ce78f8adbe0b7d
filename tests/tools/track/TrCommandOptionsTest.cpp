#include "tools/track/TrCommandOptions.h"

#include "support/ExpectThrows.h"
#include "track/TrModes.h"

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

namespace {

// The usage text with each line break and the indent after it read as one
// blank, so that wrapped help reads as one line.
std::string unwrapped(const std::string& text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\n') {
            out += text[i];
            continue;
        }
        while (i + 1 < text.size() && text[i + 1] == ' ')
            ++i;
        out += ' ';
    }
    std::string single;
    for (char c : out)
        if (!(c == ' ' && !single.empty() && single.back() == ' '))
            single += c;
    return single;
}

} // namespace

TEST(TrCommandOptions, UsageListsEveryOptionModeAndDefault) {
    const std::string usage = TrCommandOptions::usage();
    std::istringstream lines(usage);
    for (std::string line; std::getline(lines, line);)
        EXPECT_LE(line.size(), 79u) << line;
    const std::string text = unwrapped(usage);
    for (const char* name : {"--track X,Y",
                             "--tracks FILE.json",
                             "--pattern WxH",
                             "--search WxH",
                             "--color-mode MODE",
                             "--from N",
                             "--to N",
                             "--tolerance T",
                             "--behavior B",
                             "--rotate",
                             "--no-rotate",
                             "--scale",
                             "--no-scale",
                             "--stretch",
                             "--no-stretch",
                             "--precise-sums",
                             "--out, -o FILE.csv|.json",
                             "--overlay DIR",
                             "--homography FILE.json",
                             "--quiet, -q",
                             "--demo",
                             "--help, -h"})
        EXPECT_NE(std::string::npos, text.find(std::string(" ") + name + " ")) << name;
    // The modes with their help come from the tables the driver reads; the
    // default is marked where it is listed.
    for (const auto& row : TrModes::behaviors)
        EXPECT_NE(std::string::npos, text.find(std::string(" ") + row.name + " " + row.help))
            << row.name;
    for (const auto& row : TrModes::colorModes)
        EXPECT_NE(std::string::npos, text.find(std::string(" ") + row.name + " " + row.help))
            << row.name;
    const TrCommandOptions defaults;
    EXPECT_NE(std::string::npos,
              text.find(defaults.behavior + " " +
                        TrModes::findBehavior(defaults.behavior.c_str())->help + " (default)"));
    EXPECT_NE(std::string::npos,
              text.find(defaults.colorMode + " " +
                        TrModes::findColorMode(defaults.colorMode.c_str())->help + " (default)"));
    EXPECT_NE(std::string::npos, text.find("(default 21x21)"));
    EXPECT_NE(std::string::npos, text.find("(default 0.8)"));
}

TEST(TrCommandOptions, ShortFormsSwitchesAndTheEndOfOptions) {
    const TrCommandOptions o = parse("-q -o r.csv a#.png --track 1,1 --scale --no-scale -h");
    EXPECT_EQ(std::make_tuple(true, std::string("r.csv"), false, true),
              std::make_tuple(o.quiet, o.out, o.scale, o.help));
    // After "--" every argument is the frame pattern, whatever it looks like.
    EXPECT_EQ("-odd#.png", parse("--track 1,1 -- -odd#.png").input);
    // "=" belongs to long names only; a switch takes no value, an empty one
    // included.
    const struct {
        const char* line;
        const char* message;
    } cases[] = {
        {"a#.png --track 1,1 -o=r.csv", "unknown option \"-o=r.csv\" (see --help)"},
        {"a#.png --track 1,1 --demo=", "--demo takes no value"},
        {"a#.png --track 1,1 --out=", "--out: the file must end in .csv or .json, got \"\""},
        {"a#.png --track 1,1 --overlay=", "--overlay needs a directory"},
        {"a#.png --track 1,1 -o", "-o needs a value"},
        {"a#.png --track 1,1 --trac 1,1", "unknown option \"--trac\" (see --help)"},
    };
    for (const auto& c : cases)
        expectThrows<IllegalArgumentException>([&] { parse(c.line); }, c.message);
}

// Robust is the default and the last mode given wins; the scale and sums
// switches override the mode wherever they stand.
TEST(TrCommandOptions, ModesAndTheSwitchesThatOverrideThem) {
    const struct {
        const char* line;
        bool robust, scale, preciseSums;
    } cases[] = {
        {"", true, true, true},
        {"--design", false, false, false},
        {"--design --robust", true, true, true},
        {"--robust --design", false, false, false},
        {"--no-scale", true, false, true},
        {"--no-precise-sums --design --robust", true, true, false},
        {"--scale --design", false, true, false},
        {"--design --precise-sums --no-scale", false, false, true},
    };
    for (const auto& c : cases) {
        const TrCommandOptions o = parse(std::string("a#.png --track 1,1 ") + c.line);
        EXPECT_EQ(std::make_tuple(c.robust, c.scale, c.preciseSums),
                  std::make_tuple(o.robust, o.useScale(), o.usePreciseSums()))
            << c.line;
    }
    const std::string usage = unwrapped(TrCommandOptions::usage());
    EXPECT_EQ(2, [&] {
        int n = 0;
        for (size_t at = usage.find("(default on with --robust, off with --design)");
             at != std::string::npos;
             at = usage.find("(default on with --robust, off with --design)", at + 1))
            ++n;
        return n;
    }()) << usage;
}

TEST(TrCommandOptions, DetectTakesACountAndAFileAndNoOtherTracks) {
    const TrCommandOptions o = parse("a#.png --detect 50 --detect-out d.json");
    EXPECT_EQ(std::make_tuple(50, std::string("d.json"), size_t(0)),
              std::make_tuple(o.detect, o.detectOut, o.tracks.size()));
    const struct {
        const char* line;
        const char* message;
    } cases[] = {
        {"a#.png --detect 5", "--detect needs --detect-out FILE.json to write its tracks to"},
        {"a#.png --track 1,1 --detect-out d.json",
         "--detect-out names the file of --detect N, which is not given"},
        {"a#.png --detect 0 --detect-out d.json",
         "--detect: must lie between 1 and 10000, got \"0\""},
        {"a#.png --detect 5 --detect-out d.txt",
         "--detect-out: the file must end in .json, got \"d.txt\""},
        {"a#.png --detect 5 --detect-out d.json --track 1,1",
         "--detect places its own tracks; --track and --tracks cannot be used with it"},
        {"--demo --detect 5 --detect-out d.json",
         "--demo places its own tracks; --detect cannot be used with it"},
        {"a#.png --detect 5 --detect-out d.json --pattern 41x41 --search 41x61",
         "the search area must be larger than the pattern"},
    };
    for (const auto& c : cases)
        expectThrows<IllegalArgumentException>([&] { parse(c.line); }, c.message);
}
