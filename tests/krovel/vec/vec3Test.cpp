#include "krovel/vec/vec3.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

TEST(vec3, ElementsAreContiguous) {
    vec3 v(1, 2, 3);
    const double* p = v();
    EXPECT_EQ(1.0, p[0]);
    EXPECT_EQ(2.0, p[1]);
    EXPECT_EQ(3.0, p[2]);
    EXPECT_EQ(vec3(0, 0, 0), vec3());
}

TEST(vec3, StreamsBarredAndBare) {
    std::ostringstream os;
    os << vec3(1, -0.5, 2e10);
    EXPECT_EQ("| 1 -0.5 2e+10 |", os.str());

    std::istringstream in("| 1 -0.5 2e+10 | 4 5 6");
    vec3 a, b;
    in >> a >> b;
    EXPECT_FALSE(in.fail());
    EXPECT_EQ(vec3(1, -0.5, 2e10), a);
    EXPECT_EQ(vec3(4, 5, 6), b);

    std::istringstream bad("| 1 2 |");
    vec3 c(7, 8, 9);
    bad >> c;
    EXPECT_TRUE(bad.fail()) << "a bar where the third number belongs";
    EXPECT_EQ(vec3(7, 8, 9), c);
}
