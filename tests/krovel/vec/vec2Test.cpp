#include "krovel/vec/vec2.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>
#include <string>

namespace {

std::string text(const vec2& v) {
    std::ostringstream os;
    os << v;
    return os.str();
}

} // namespace

TEST(vec2, ElementsAreContiguous) {
    vec2 v(3, -4);
    double* p = v();
    EXPECT_EQ(3.0, p[0]);
    EXPECT_EQ(-4.0, p[1]);
    p[1] = 9;
    EXPECT_EQ(9.0, v.y);
    EXPECT_EQ(vec2(0, 0), vec2());
}

TEST(vec2, WritesBarredPairInStreamFormat) {
    EXPECT_EQ("| 1.5 -2 |", text(vec2(1.5, -2)));
    std::ostringstream os;
    os << std::setprecision(3) << vec2(3.14159, 1e-7);
    EXPECT_EQ("| 3.14 1e-07 |", os.str());
}

TEST(vec2, ReadsBarredAndBareForms) {
    std::istringstream in(" |  0.1 -7 |  5 6|next");
    vec2 a, b;
    in >> a >> b;
    EXPECT_EQ(vec2(0.1, -7), a);
    EXPECT_EQ(vec2(5, 6), b);
    std::string rest;
    in >> rest;
    EXPECT_EQ("|next", rest) << "only the barred form consumes a closing bar";

    std::istringstream bare("8 9");
    bare >> a;
    EXPECT_FALSE(bare.fail());
    EXPECT_EQ(vec2(8, 9), a);
}

TEST(vec2, WrittenValueReadsBackExactly) {
    const vec2 v(0.1, -1.0 / 3.0);
    std::stringstream io;
    io << std::setprecision(17) << v;
    vec2 back;
    io >> back;
    EXPECT_EQ(v, back);
}

TEST(vec2, FailedReadLeavesValue) {
    for (const char* input : {"| 1 2 ]", "| 1 x |", "1", ""}) {
        std::istringstream in(input);
        vec2 v(4, 5);
        in >> v;
        EXPECT_TRUE(in.fail()) << input;
        EXPECT_EQ(vec2(4, 5), v) << input;
    }
}
