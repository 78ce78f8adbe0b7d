#include "track/Sequence/TrFramePattern.h"

#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <random>
#include <string>
#include <tuple>

namespace {

// What printf writes for the number, the reference for every form.
std::string printed(int frame, int width) {
    char buf[96];
    std::snprintf(buf, sizeof buf, "%0*d", width, frame);
    return buf;
}

} // namespace

TEST(TrFramePattern, EveryFormSplitsAroundItsFieldAndWritesItselfBack) {
    const struct {
        const char* pattern;
        const char* directory;
        const char* prefix;
        const char* suffix;
        char marker;
        int width;
        const char* name;
    } cases[] = {
        {"shots/plate.####.exr", "shots/", "plate.", ".exr", '#', 4, "plate.####.exr"},
        {"/a/b/plate.@@@.exr", "/a/b/", "plate.", ".exr", '@', 3, "plate.@@@.exr"},
        {"plate.%04d.exr", "", "plate.", ".exr", '%', 4, "plate.%04d.exr"},
        {"plate%d", "", "plate", "", '%', 0, "plate%d"},
        {"%0d.png", "", "", ".png", '%', 0, "%d.png"},
        {"x.%012d.png", "", "x.", ".png", '%', 12, "x.%012d.png"},
        // "#" comes first, then "%": the others are plain characters.
        {"50%_a@2x.##.png", "", "50%_a@2x.", ".png", '#', 2, "50%_a@2x.##.png"},
        {"a@2x.%03d.png", "", "a@2x.", ".png", '%', 3, "a@2x.%03d.png"},
        {"100%%.%02d.%%", "", "100%.", ".%", '%', 2, "100%%.%02d.%%"},
        // The directory is taken as written, markers and all.
        {"take#2/%d/p.@.tif", "take#2/%d/", "p.", ".tif", '@', 1, "p.@.tif"},
    };
    for (const auto& c : cases) {
        const TrFramePattern p = TrFramePattern::parse(c.pattern);
        EXPECT_EQ(std::make_tuple(std::string(c.directory), std::string(c.prefix),
                                  std::string(c.suffix), c.marker, c.width, std::string(c.name)),
                  std::make_tuple(p.directory, p.prefix, p.suffix, p.marker, p.width, p.name()))
            << c.pattern;
        // The written-back name reads as the same pattern.
        const TrFramePattern again = TrFramePattern::parse(p.name());
        EXPECT_EQ(std::make_tuple(p.prefix, p.suffix, p.marker, p.width),
                  std::make_tuple(again.prefix, again.suffix, again.marker, again.width));
    }
}

TEST(TrFramePattern, NumbersAreWrittenAsPrintfWritesThem) {
    std::mt19937 rng(20261125);
    std::uniform_int_distribution<int> widths(0, 12);
    std::uniform_int_distribution<int> digits(1, 9);
    for (int i = 0; i < 500; ++i) {
        const int width = widths(rng);
        // Numbers of every length, both signs, and the ends of the range.
        int frame = static_cast<int>(rng() % 1000000000u) % (1 << (3 * digits(rng)));
        frame = i % 3 == 0 ? -frame : frame;
        frame = i == 0 ? INT_MAX : i == 1 ? INT_MIN : frame;
        const std::string field = "%0" + std::to_string(width) + "d";
        EXPECT_EQ("d/p." + printed(frame, width) + ".exr",
                  expandFramePattern("d/p." + field + ".exr", frame))
            << field << " " << frame;
        if (width > 0) {
            EXPECT_EQ("p." + printed(frame, width),
                      expandFramePattern("p." + std::string(width, i % 2 ? '#' : '@'), frame))
                << width << " " << frame;
        }
    }
}

TEST(TrFramePattern, MatchTakesBackWhatExpandWrites) {
    std::mt19937 rng(7);
    for (const char* pattern : {"p.%05d.exr", "p.%d.exr", "p.###.exr", "p.@.exr"}) {
        const TrFramePattern p = TrFramePattern::parse(pattern);
        for (int i = 0; i < 200; ++i) {
            const int frame = static_cast<int>(rng() % 2000000u) >> (rng() % 21);
            int got = -1;
            int count = -1;
            ASSERT_TRUE(p.match(p.expand(frame), got, count)) << pattern << " " << frame;
            EXPECT_EQ(frame, got);
            EXPECT_EQ(static_cast<int>(printed(frame, p.width).size()), count);
        }
    }
    // "@" and printf fields take only the names they write; "#" any digits.
    const TrFramePattern percent = TrFramePattern::parse("p.%04d.exr");
    const TrFramePattern at = TrFramePattern::parse("p.@@@@.exr");
    const TrFramePattern run = TrFramePattern::parse("p.####.exr");
    int frame = 0;
    int count = 0;
    const struct {
        const char* name;
        bool fixedFits;
        bool runFits;
    } names[] = {
        {"p.0012.exr", true, true},         {"p.12345.exr", true, true},
        {"p.12.exr", false, true},          {"p.00012.exr", false, true},
        {"p.0000.exr", true, true},         {"p.2147483647.exr", true, true},
        {"p.2147483648.exr", false, false}, {"p.000000000000007.exr", false, true},
        {"p.-012.exr", false, false},       {"p.12a4.exr", false, false},
        {"p..exr", false, false},           {"q.0012.exr", false, false},
        {"p.0012.exr.bak", false, false},   {"p.0012", false, false},
    };
    for (const auto& n : names) {
        EXPECT_EQ(n.fixedFits, percent.match(n.name, frame, count)) << n.name;
        EXPECT_EQ(n.fixedFits, at.match(n.name, frame, count)) << n.name;
        EXPECT_EQ(n.runFits, run.match(n.name, frame, count)) << n.name;
    }
    ASSERT_TRUE(run.match("p.000000000000007.exr", frame, count));
    EXPECT_EQ(std::make_pair(7, 15), std::make_pair(frame, count));
}

TEST(TrFramePattern, MalformedPatternsSayWhatIsWrongOnOneLine) {
    const std::pair<std::string, std::string> cases[] = {
        {"plate.exr", "has no '#' for the frame number"},
        {"plates####/plate.exr", "has no '#' for the frame number"},
        {"p.%%.exr", "has no '#' for the frame number"},
        {"", "has no '#' for the frame number"},
        {"a.##.b.##.exr", "has more than one frame number: \"##\" and \"##\""},
        {"a.@@@_@.exr", "has more than one frame number: \"@@@\" and \"@\""},
        {"a.%d.%04d.exr", "has more than one frame number: \"%d\" and \"%04d\""},
        {"a.%q.exr",
         "has \"%q\", which is not a frame number (use %d, %04d, or %% for a plain '%')"},
        {"a.%4d.exr",
         "has \"%4d\", which is not a frame number (use %d, %04d, or %% for a plain '%')"},
        {"a.%04x.exr",
         "has \"%04x\", which is not a frame number (use %d, %04d, or %% for a plain '%')"},
        {"a.%-4d.exr",
         "has \"%-\", which is not a frame number (use %d, %04d, or %% for a plain '%')"},
        {"a.%", "has \"%\", which is not a frame number (use %d, %04d, or %% for a plain '%')"},
        {"a.%065d.exr", "has \"%065d\", wider than 64 digits"},
        {"a.%0999999999999d.exr", "has \"%0999999999999d\", wider than 64 digits"},
    };
    for (const auto& c : cases)
        expectThrows<IllegalArgumentException>([&] { TrFramePattern::parse(c.first); },
                                               "the frame pattern \"" + c.first + "\" " + c.second);
    EXPECT_EQ(64, TrFramePattern::parse("a.%064d").width);
}
