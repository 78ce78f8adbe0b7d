#include "tools/track/TrTrackFile.h"

#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include <unistd.h>

using testsupport::expectThrows;

TEST(TrTrackFile, ReadsEveryFieldAndFillsNames) {
    const std::vector<TrTrackSpec> specs = parseTrackFile(R"({"tracks": [
        {"name": "corner", "position": [812.5, 440.5], "pattern": [21, 15],
         "search": [61, 41], "colorMode": "red"},
        {"position": [10, 20]}
    ]})",
                                                          "t.json", 3);
    ASSERT_EQ(2u, specs.size());
    EXPECT_EQ("corner", specs[0].name);
    EXPECT_EQ(812.5, specs[0].x);
    EXPECT_EQ(440.5, specs[0].y);
    EXPECT_EQ(21, specs[0].patternWidth);
    EXPECT_EQ(15, specs[0].patternHeight);
    EXPECT_EQ(61, specs[0].searchWidth);
    EXPECT_EQ(41, specs[0].searchHeight);
    EXPECT_EQ("red", specs[0].colorMode);
    // Unnamed tracks are numbered by place; unset sizes stay 0 for the
    // command's defaults.
    EXPECT_EQ("4", specs[1].name);
    EXPECT_EQ(0, specs[1].patternWidth);
    EXPECT_EQ("", specs[1].colorMode);
}

TEST(TrTrackFile, SchemaErrorsNameFileLineAndColumn) {
    struct Case {
        const char* text;
        const char* message;
    };
    const Case cases[] = {
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
        {"{\"tracks\": [{\"position\": [1, 2], \"search\": [0, 21]}]}",
         "t.json: line 1, column 45: \"search\" must hold two positive whole numbers"},
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
    for (const Case& c : cases)
        expectThrows<IllegalArgumentException>([&] { parseTrackFile(c.text, "t.json"); },
                                               c.message);
}

TEST(TrTrackFile, ReadsFromDiskAndNamesAMissingFile) {
    char path[] = "/tmp/tavrix-tracks-XXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    std::ofstream(path) << "{\"tracks\": [{\"position\": [3.5, 4.5]}]}";
    const std::vector<TrTrackSpec> specs = readTrackFile(path);
    ASSERT_EQ(1u, specs.size());
    EXPECT_EQ(3.5, specs[0].x);
    std::remove(path);
    expectThrows<IllegalArgumentException>([&] { readTrackFile(path); },
                                           std::string(path) + ": No such file or directory");
}
