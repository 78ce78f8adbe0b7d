#include "base/dstring.h"

#include "support/ExpectThrows.h"

#include <cstdlib>

TEST(dstring, AssignmentReusesAnUnsharedBlockAndLeavesASharedOneAlone) {
    EXPECT_EQ(nullptr, dstring("").data()) << "the empty string is a null block";
    dstring a("hello");
    const char* block = a.data();
    a = "hey";
    a = "hello";      // exactly fills the capacity
    a = a.data() + 2; // a tail of its own text
    EXPECT_EQ(block, a.data());
    EXPECT_STREQ("llo", a.c_str());
    a = "hello!";
    EXPECT_NE(block, a.data());

    dstring b = a;
    EXPECT_EQ(a.data(), b.data());
    EXPECT_EQ(2u, a.refCount());
    a = "hi"; // fits, but the block is shared: a takes a new one
    EXPECT_NE(b.data(), a.data());
    EXPECT_STREQ("hello!", b.c_str());
    EXPECT_EQ(1u, b.refCount());
}

TEST(dstring, SubstringsShareOnlyWhenTheWholeStringIsAsked) {
    dstring s("hello");
    EXPECT_EQ(s.data(), s.substr(0, 5).data());
    EXPECT_EQ(s.data(), s.to(9).data());
    EXPECT_NE(s.data(), s.from(0).data());
    const struct {
        dstring got;
        const char* expected;
    } rows[] = {{s.substr(1, 2), "el"}, {s.substr(2, 10), "llo"}, {s.to(1), "he"},
                {s.from(3), "lo"},      {s.to(-1), ""},           {s.from(5), ""}};
    for (const auto& row : rows)
        EXPECT_STREQ(row.expected, row.got.c_str());
}

TEST(dstring, NumbersParseAPrefixOrThrow) {
    EXPECT_EQ(255, dstring("ffz").toLong(16));
    EXPECT_EQ(2.5, dstring("2.5e0x").toDouble());
    EXPECT_EQ(0.1, std::strtod(dstring::formatDouble(0.1).c_str(), nullptr));
    expectThrows<IllegalArgumentException>([] { dstring("abc").toLong(); },
                                           "dstring.toLong: failed");
    expectThrows<IllegalArgumentException>([] { dstring().toLong(); },
                                           "dstring.toLong: length zero");
    expectThrows<IllegalArgumentException>([] { dstring("x").toDouble(); },
                                           "dstring.toDouble: failed");
    expectThrows<IllegalArgumentException>([] { dstring("").toDouble(); },
                                           "dstring.toDouble: length zero");
}
