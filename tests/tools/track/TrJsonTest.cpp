#include "tools/track/TrJson.h"

#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

using testsupport::expectThrows;

TEST(TrJson, ReadsEveryKindWithItsPosition) {
    const TrJsonValue v = parseJson("{\"a\": [1, -2.5e2, true, false, null],\n \"b\": \"x\"}");
    ASSERT_EQ(TrJsonValue::Object, v.kind);
    ASSERT_EQ(2u, v.members.size());
    EXPECT_EQ("a", v.members[0].first);
    const TrJsonValue& a = v.members[0].second;
    ASSERT_EQ(5u, a.items.size());
    EXPECT_EQ(1.0, a.items[0].number);
    EXPECT_EQ(-250.0, a.items[1].number);
    EXPECT_TRUE(a.items[2].boolean);
    EXPECT_EQ(TrJsonValue::Bool, a.items[3].kind);
    EXPECT_FALSE(a.items[3].boolean);
    EXPECT_EQ(TrJsonValue::Null, a.items[4].kind);
    EXPECT_EQ(1, a.items[1].line);
    EXPECT_EQ(11, a.items[1].column);
    const TrJsonValue& b = v.members[1].second;
    EXPECT_EQ("x", b.text);
    EXPECT_EQ(2, b.line);
    EXPECT_EQ(7, b.column);
}

TEST(TrJson, EscapesBecomeUtf8) {
    const TrJsonValue v = parseJson(R"("q\"b\\s\/n\nt\tu\u00e9\ud83d\ude00")");
    EXPECT_EQ("q\"b\\s/n\nt\tu\xc3\xa9\xf0\x9f\x98\x80", v.text);
}

TEST(TrJson, QuoteAndNumberReadBackUnchanged) {
    const std::string text = std::string("tab\there \"quoted\" back\\slash \x01 end");
    EXPECT_EQ(text, parseJson(jsonQuote(text)).text);
    std::mt19937 rng(5);
    std::uniform_real_distribution<double> d(-1e6, 1e6);
    for (int i = 0; i < 200; ++i) {
        const double v = d(rng) / (i + 1);
        EXPECT_EQ(v, parseJson(jsonNumber(v)).number);
    }
    EXPECT_EQ("null", jsonNumber(std::numeric_limits<double>::infinity()));
}

TEST(TrJson, ErrorsSayWhereAndWhat) {
    expectThrows<IllegalArgumentException>([] { parseJson("{\"a\": 1,}"); },
                                           "line 1, column 9: expected a key in double quotes, "
                                           "found '}'");
    expectThrows<IllegalArgumentException>([] { parseJson("[1,\n 2\n 3]"); },
                                           "line 3, column 2: expected ',' or ']', found '3'");
    expectThrows<IllegalArgumentException>([] { parseJson("{\"a\": 1, \"a\": 2}"); },
                                           "line 1, column 10: repeated key \"a\"");
    expectThrows<IllegalArgumentException>([] { parseJson("01"); },
                                           "line 1, column 2: unexpected text after the value");
    expectThrows<IllegalArgumentException>([] { parseJson("[NaN]"); },
                                           "line 1, column 2: expected a value, found 'N'");
    expectThrows<IllegalArgumentException>([] { parseJson("\"abc"); },
                                           "line 1, column 5: unterminated string");
    expectThrows<IllegalArgumentException>([] { parseJson("\"a\tb\""); },
                                           "line 1, column 3: control character in a string, "
                                           "found byte 0x09");
    expectThrows<IllegalArgumentException>([] { parseJson("\"\\ud800x\""); },
                                           "line 1, column 8: unpaired surrogate in \\u escape");
    expectThrows<IllegalArgumentException>([] { parseJson("1e400"); },
                                           "line 1, column 1: number out of range 1e400");
    expectThrows<IllegalArgumentException>([] { parseJson(""); },
                                           "line 1, column 1: expected a value, found the end "
                                           "of the text");
    expectThrows<IllegalArgumentException>([] { parseJson("// note\n{}"); },
                                           "line 1, column 1: expected a value, found '/'");
}

TEST(TrJson, DeepNestingIsRefusedNotOverflowed) {
    EXPECT_NO_THROW(parseJson(std::string(64, '[') + std::string(64, ']')));
    expectThrows<IllegalArgumentException>([] { parseJson(std::string(100000, '[')); },
                                           "line 1, column 66: nesting deeper than 64 levels");
}
