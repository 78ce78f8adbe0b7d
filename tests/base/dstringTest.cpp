#include "base/dstring.h"

#include "support/ExpectThrows.h"

#include <cmath>
#include <cstring>
#include <limits>

TEST(dstring, EmptyTextsGiveTheNullString) {
    dstring a(""), b(static_cast<const char*>(nullptr)), c("abc", 0), d{std::string()};
    for (const dstring* s : {&a, &b, &c, &d}) {
        EXPECT_TRUE(s->empty());
        EXPECT_EQ(nullptr, s->data());
        EXPECT_STREQ("", s->c_str());
    }
    EXPECT_TRUE(a == b);
}

TEST(dstring, EqualityComparesLengthsThenCharacters) {
    EXPECT_FALSE(dstring("a") == dstring("ab"));
    EXPECT_FALSE(dstring("a") == dstring());
    EXPECT_TRUE(dstring("abc") == dstring(std::string("abc")));
    EXPECT_FALSE(dstring("abc") == dstring("abd"));
}

TEST(dstring, CopiesShareOneCountedBlock) {
    dstring a("hello");
    {
        dstring b = a;
        EXPECT_EQ(a.data(), b.data());
        EXPECT_EQ(2u, a.refCount());
    }
    EXPECT_EQ(1u, a.refCount());
    a.dec();
    EXPECT_TRUE(a.empty());
}

TEST(dstring, AssigningShorterTextReusesAnUnsharedBlock) {
    dstring a("hello");
    const char* block = a.data();
    a = "hey";
    EXPECT_EQ(block, a.data());
    EXPECT_STREQ("hey", a.c_str());
    EXPECT_EQ(3, a.length());
    // Same length as the capacity minus the zero still fits; one more does not.
    a = "hello";
    EXPECT_EQ(block, a.data());
    a = "hello!";
    EXPECT_NE(block, a.data());
}

TEST(dstring, AssigningToASharedStringLeavesTheOtherHolderAlone) {
    dstring a("hello");
    dstring b = a;
    a = "hi";
    EXPECT_STREQ("hi", a.c_str());
    EXPECT_STREQ("hello", b.c_str());
    EXPECT_EQ(1u, b.refCount());
}

TEST(dstring, AssigningItsOwnTextOrATailOfIt) {
    dstring a("hello");
    a = a.data();
    EXPECT_STREQ("hello", a.c_str());
    a = a.data() + 2;
    EXPECT_STREQ("llo", a.c_str());
    a = "";
    EXPECT_TRUE(a.empty());
}

TEST(dstring, SubstringsShareWhereTheWholeStringIsAsked) {
    dstring s("hello");
    EXPECT_EQ(s.data(), s.substr(0, 5).data());
    EXPECT_STREQ("el", s.substr(1, 2).c_str());
    EXPECT_STREQ("llo", s.substr(2, 10).c_str());
    EXPECT_STREQ("he", s.to(1).c_str());
    EXPECT_EQ(s.data(), s.to(9).data());
    EXPECT_TRUE(s.to(-1).empty());
    EXPECT_TRUE(s.from(5).empty());
    EXPECT_STREQ("lo", s.from(3).c_str());
    EXPECT_TRUE(dstring().substr(0, 3).empty());
}

TEST(dstring, OutOfRangeCharactersReadTheScratchCharacter) {
    dstring s("ab");
    EXPECT_EQ('b', s[1]);
    EXPECT_EQ(&dstring::getInvalidChar(), &s[2]);
    EXPECT_EQ(&dstring::getInvalidChar(), &s[-1]);
}

TEST(dstring, NumbersParseAPrefixOrThrow) {
    EXPECT_EQ(12, dstring("12abc").toLong(10));
    EXPECT_EQ(255, dstring("ff").toLong(16));
    EXPECT_DOUBLE_EQ(2.5, dstring("2.5e0x").toDouble());
    expectThrows<IllegalArgumentException>([] { dstring("abc").toLong(10); },
                                           "dstring.toLong: failed");
    expectThrows<IllegalArgumentException>([] { dstring().toLong(10); },
                                           "dstring.toLong: length zero");
    expectThrows<IllegalArgumentException>([] { dstring("x").toDouble(); },
                                           "dstring.toDouble: failed");
    expectThrows<IllegalArgumentException>([] { dstring("").toDouble(); },
                                           "dstring.toDouble: length zero");
}

TEST(dstring, FormatFollowsPrintfAndCutsAt2047) {
    EXPECT_STREQ("7", dstring::format(7).c_str());
    EXPECT_STREQ("-3", dstring::format(short(-3)).c_str());
    EXPECT_STREQ("123456789012", dstring::format(123456789012L).c_str());
    EXPECT_STREQ("0.1", dstring::format(0.1f).c_str());
    EXPECT_STREQ("x=4,y=ab", dstring::format("x=%d,y=%s", 4, "ab").c_str());
    std::string longText(5000, 'q');
    EXPECT_EQ(2047, dstring::format("%s", longText.c_str()).length());
}

TEST(dstring, FormatDoubleReadsBackExactly) {
    for (double v : {0.1, 1.0 / 3.0, -2.5, 1e300, 6.02214076e23, 0.0}) {
        dstring text = dstring::formatDouble(v);
        EXPECT_EQ(v, std::strtod(text.c_str(), nullptr)) << text;
    }
    EXPECT_STREQ("0.1", dstring::formatDouble(0.1).c_str());
}
