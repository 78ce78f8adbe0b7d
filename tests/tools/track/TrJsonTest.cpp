#include "tools/track/TrJson.h"

#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <tuple>

TEST(TrJson, ReadsEveryKindWithItsPosition) {
    const TrJsonValue v = parseJson("{\"a\": [1, -2.5e2, true, false, null],\n \"b\": \"x\"}");
    ASSERT_EQ(2u, v.members.size());
    const TrJsonValue &a = v.members[0].second, &b = v.members[1].second;
    ASSERT_EQ(5u, a.items.size());
    EXPECT_EQ(std::make_tuple(1.0, -250.0, true, TrJsonValue::Bool, false, TrJsonValue::Null),
              std::make_tuple(a.items[0].number, a.items[1].number, a.items[2].boolean,
                              a.items[3].kind, a.items[3].boolean, a.items[4].kind));
    // Where values start: -2.5e2 at line 1, column 11; "x" at line 2, column 7.
    EXPECT_EQ(std::make_tuple(std::string("a"), 1, 11, std::string("x"), 2, 7),
              std::make_tuple(v.members[0].first, a.items[1].line, a.items[1].column, b.text,
                              b.line, b.column));
    EXPECT_EQ("q\"b\\s/n\nt\tu\xc3\xa9\xf0\x9f\x98\x80",
              parseJson(R"("q\"b\\s\/n\nt\tu\u00e9\ud83d\ude00")").text);
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

// Strict RFC 8259: each error gives the offending character's line and column.
TEST(TrJson, ErrorsSayWhereAndWhat) {
    const struct {
        std::string text;
        const char* message;
    } cases[] = {
        {"{\"a\": 1,}", "line 1, column 9: expected a key in double quotes, found '}'"},
        {"[1,\n 2\n 3]", "line 3, column 2: expected ',' or ']', found '3'"},
        {"{\"a\": 1, \"a\": 2}", "line 1, column 10: repeated key \"a\""},
        {"01", "line 1, column 2: unexpected text after the value"},
        {"[NaN]", "line 1, column 2: expected a value, found 'N'"},
        {"\"abc", "line 1, column 5: unterminated string"},
        {"\"a\tb\"", "line 1, column 3: control character in a string, found byte 0x09"},
        {"\"\\ud800x\"", "line 1, column 8: unpaired surrogate in \\u escape"},
        {"1e400", "line 1, column 1: number out of range 1e400"},
        {"", "line 1, column 1: expected a value, found the end of the text"},
        {"// note\n{}", "line 1, column 1: expected a value, found '/'"},
        // Deep nesting is refused, not followed into a stack overflow.
        {std::string(100000, '['), "line 1, column 66: nesting deeper than 64 levels"},
    };
    for (const auto& c : cases)
        expectThrows<IllegalArgumentException>([&] { parseJson(c.text); }, c.message);
    EXPECT_NO_THROW(parseJson(std::string(64, '[') + std::string(64, ']')));
}
