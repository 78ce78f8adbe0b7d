#include "tools/track/TrTrackFile.h"

#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <tuple>

TEST(TrTrackFile, ReadsEveryFieldAndFillsNames) {
    const std::vector<TrTrackSpec> specs = parseTrackFile(
        R"({"tracks": [{"name": "corner", "position": [812.5, 440.5], "pattern": [21, 15],
            "search": [61, 41], "colorMode": "red"}, {"position": [10, 20]}]})",
        "t.json", 3);
    ASSERT_EQ(2u, specs.size());
    const TrTrackSpec &a = specs[0], &b = specs[1];
    EXPECT_EQ(
        std::make_tuple(std::string("corner"), 812.5, 440.5, 21, 15, 61, 41, std::string("red")),
        std::make_tuple(a.name, a.x, a.y, a.patternWidth, a.patternHeight, a.searchWidth,
                        a.searchHeight, a.colorMode));
    // Unnamed tracks are numbered by place; unset sizes stay 0 for the
    // command's defaults.
    EXPECT_EQ(std::make_tuple(std::string("4"), 10.0, 20.0, 0, std::string("")),
              std::make_tuple(b.name, b.x, b.y, b.patternWidth, b.colorMode));
}

TEST(TrTrackFile, SchemaErrorsNameFileLineAndColumn) {
    const struct {
        const char* text;
        const char* message;
    } cases[] = {
        {"[]", "t.json: line 1, column 1: the file must be an object, not an array"},
        {"{}", "t.json: line 1, column 1: missing key \"tracks\""},
        {"{\"tracks\": []}", "t.json: line 1, column 12: \"tracks\" holds no track"},
        {"{\"track\": []}",
         "t.json: line 1, column 11: unknown key \"track\" (expected \"tracks\")"},
        {"{\"tracks\": [{\"name\": \"a\"}]}",
         "t.json: line 1, column 13: track without \"position\""},
        {"{\"tracks\": [\n {\"position\": [1, 2], \"colour\": \"red\"}]}",
         "t.json: line 2, column 33: unknown key \"colour\" (expected name, position, pattern, "
         "search, colorMode)"},
        {"{\"tracks\": [{\"position\": [1]}]}",
         "t.json: line 1, column 26: \"position\" must hold two numbers"},
        {"{\"tracks\": [{\"position\": [1, \"2\"]}]}",
         "t.json: line 1, column 30: \"position\" must be a number, not a string"},
        {"{\"tracks\": [{\"position\": [1, 2], \"pattern\": [20.5, 21]}]}",
         "t.json: line 1, column 46: \"pattern\" must hold two positive whole numbers"},
        {"{\"tracks\": [{\"position\": [1, 2], \"colorMode\": \"purple\"}]}",
         "t.json: line 1, column 47: unknown colour mode \"purple\" (expected one of red, green, "
         "blue, luminance, saturation, hue)"},
        {"{\"tracks\": [{\"position\": [1, 2], \"name\": \"\"}]}",
         "t.json: line 1, column 42: \"name\" is empty"},
        {"{\"tracks\": [{\"position\": [1, 2], \"name\": \"a\"}, {\"position\": [1, 2], "
         "\"name\": \"a\"}]}",
         "t.json: line 1, column 48: a second track named \"a\""},
        {"{\"tracks\": [{\"position\": [1, 2],}]}",
         "t.json: line 1, column 33: expected a key in double quotes, found '}'"},
    };
    for (const auto& c : cases)
        expectThrows<IllegalArgumentException>([&] { parseTrackFile(c.text, "t.json"); },
                                               c.message);
}

// A file is read whole, so whatever is not a regular file of sensible size
// ends with one line rather than a read that never ends.
TEST(TrTrackFile, ReadingStopsAtTheLimitAndNamesWhatCannotBeRead) {
    expectThrows<IllegalArgumentException>(
        [] { readTrackText("/dev/zero"); },
        "/dev/zero: larger than 256 MiB, too large for a track file");
    expectThrows<IllegalArgumentException>([] { readTrackFile("/nonexistent/t.json"); },
                                           "/nonexistent/t.json: No such file or directory");
    expectThrows<IllegalArgumentException>([] { readTrackFile("/"); }, "/: cannot be read");
    EXPECT_EQ("", readTrackText("/dev/null"));
}

// What formatTrackFile writes reads back exactly, awkward names and
// positions that have no short decimal form included.
TEST(TrTrackFile, WrittenFilesReadBackExactly) {
    std::vector<TrTrackSpec> specs(3);
    const char* names[] = {"1", "a \"quoted\"\\name", "\xc3\xa9t\xc3\xa9"};
    for (size_t i = 0; i < specs.size(); ++i) {
        TrTrackSpec& s = specs[i];
        s.name = names[i];
        s.x = 0.1 + 0.2 + double(i) * 1000.25;
        s.y = 1.0 / 3 + double(i);
        s.patternWidth = 21 + int(i);
        s.patternHeight = 15;
        s.searchWidth = 61;
        s.searchHeight = 41 + 2 * int(i);
        s.colorMode = i == 1 ? "hue" : "luminance";
    }
    const std::vector<TrTrackSpec> back = parseTrackFile(formatTrackFile(specs), "t.json");
    ASSERT_EQ(specs.size(), back.size());
    for (size_t i = 0; i < specs.size(); ++i) {
        const TrTrackSpec &a = specs[i], &b = back[i];
        EXPECT_EQ(std::make_tuple(a.name, a.x, a.y, a.patternWidth, a.patternHeight, a.searchWidth,
                                  a.searchHeight, a.colorMode),
                  std::make_tuple(b.name, b.x, b.y, b.patternWidth, b.patternHeight, b.searchWidth,
                                  b.searchHeight, b.colorMode));
    }
    expectThrows<IllegalArgumentException>([&] { writeTrackFile("/nonexistent/t.json", specs); },
                                           "cannot write \"/nonexistent/t.json\"");
}
