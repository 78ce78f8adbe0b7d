#include "tools/track/TrNumbers.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

TEST(TrNumbers, TextIsPercentGWithTheDigitsToReadBackExactly) {
    const struct {
        double value;
        const char* text;
    } cases[] = {{250, "250"},
                 {20, "20"},
                 {60.5, "60.5"},
                 {0.1, "0.1"},
                 {-3.25, "-3.25"},
                 {812.5, "812.5"},
                 {1e21, "1e+21"},
                 {0, "0"},
                 {1.0 / 3, "0.3333333333333333"},
                 {1234567.5, "1234567.5"}};
    for (const auto& c : cases)
        EXPECT_EQ(c.text, TrNumbers::text(c.value));
    std::mt19937 random(7);
    std::uniform_real_distribution<double> position(-5000, 5000);
    for (int k = 0; k < 1000; ++k) {
        const double v = position(random);
        const std::string t = TrNumbers::text(v);
        EXPECT_EQ(v, std::strtod(t.c_str(), nullptr)) << t;
        EXPECT_EQ(v, TrNumbers::parseDouble(t, "v")) << t;
    }
}
