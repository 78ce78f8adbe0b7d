#include "tools/track/TrNumbers.h"

#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

using testsupport::expectThrows;

TEST(TrNumbers, ReadsDecimalsExactlyAsStrtodDoes) {
    EXPECT_EQ(12.5, TrNumbers::parseDouble("12.5", "--x"));
    EXPECT_EQ(-0.25, TrNumbers::parseDouble("-0.25", "--x"));
    EXPECT_EQ(1e-3, TrNumbers::parseDouble("1e-3", "--x"));
    EXPECT_EQ(7.0, TrNumbers::parseDouble("+7", "--x"));
}

TEST(TrNumbers, RefusesWhatIsNotAPlainFiniteNumber) {
    expectThrows<IllegalArgumentException>([] { TrNumbers::parseDouble("12a", "--tolerance"); },
                                           "--tolerance: malformed number \"12a\"");
    expectThrows<IllegalArgumentException>([] { TrNumbers::parseDouble("", "--tolerance"); },
                                           "--tolerance: malformed number \"\"");
    expectThrows<IllegalArgumentException>([] { TrNumbers::parseDouble(" 1", "--tolerance"); },
                                           "--tolerance: malformed number \" 1\"");
    expectThrows<IllegalArgumentException>([] { TrNumbers::parseDouble("nan", "--tolerance"); },
                                           "--tolerance: malformed number \"nan\"");
    expectThrows<IllegalArgumentException>([] { TrNumbers::parseDouble("0x10", "--tolerance"); },
                                           "--tolerance: malformed number \"0x10\"");
    expectThrows<IllegalArgumentException>([] { TrNumbers::parseDouble("1e999", "--tolerance"); },
                                           "--tolerance: number out of range \"1e999\"");
}

TEST(TrNumbers, WholeNumbersAreWholeAndInRange) {
    EXPECT_EQ(-12, TrNumbers::parseInt("-12", "--from"));
    EXPECT_EQ(2147483647, TrNumbers::parseInt("2147483647", "--from"));
    expectThrows<IllegalArgumentException>([] { TrNumbers::parseInt("1.5", "--from"); },
                                           "--from: malformed whole number \"1.5\"");
    expectThrows<IllegalArgumentException>([] { TrNumbers::parseInt("-", "--from"); },
                                           "--from: malformed whole number \"-\"");
    expectThrows<IllegalArgumentException>([] { TrNumbers::parseInt("2147483648", "--from"); },
                                           "--from: whole number out of range \"2147483648\"");
}

TEST(TrNumbers, PointsAndSizes) {
    const TrNumbers::Point p = TrNumbers::parsePoint("100.5,-3", "--track");
    EXPECT_EQ(100.5, p.x);
    EXPECT_EQ(-3.0, p.y);
    const TrNumbers::Size s = TrNumbers::parseSize("21x15", "--pattern");
    EXPECT_EQ(21, s.width);
    EXPECT_EQ(15, s.height);

    expectThrows<IllegalArgumentException>([] { TrNumbers::parsePoint("100", "--track"); },
                                           "--track: expected X,Y, got \"100\"");
    expectThrows<IllegalArgumentException>([] { TrNumbers::parsePoint("1,2,3", "--track"); },
                                           "--track: expected X,Y, got \"1,2,3\"");
    expectThrows<IllegalArgumentException>([] { TrNumbers::parsePoint("1,y", "--track"); },
                                           "--track: malformed number \"y\"");
    expectThrows<IllegalArgumentException>([] { TrNumbers::parseSize("21", "--pattern"); },
                                           "--pattern: expected WxH, got \"21\"");
    expectThrows<IllegalArgumentException>([] { TrNumbers::parseSize("0x5", "--pattern"); },
                                           "--pattern: sizes must be positive, got \"0x5\"");
    expectThrows<IllegalArgumentException>([] { TrNumbers::parseSize("2.5x5", "--search"); },
                                           "--search: malformed whole number \"2.5\"");
}
