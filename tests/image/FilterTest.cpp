#include "image/Filter.h"
#include "image/Kernel.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>

using namespace Orvane;

TEST(Filter, ValuesAtTheKnots) {
    // clang-format off
    const struct {
        double (*f)(double);
        double x, expected;
    } cases[] = {
        {filt_box, 0.4999, 1},        {filt_box, -0.5001, 0},       {filt_triangle, 0, 1},
        {filt_triangle, -1, 0},       {filt_triangle, -0.25, 0.75}, {filt_quadratic, 0, 0.75},
        {filt_quadratic, 1.5, 0},     {filt_quadratic, -1.5, 0},    {filt_quadratic, 0.5, 0.5},
        {filt_quadratic, -1, 0.125},  {filt_mitchell, 0, 8.0 / 9},  {filt_mitchell, 1, 1.0 / 18},
        {filt_mitchell, -2, 0},       {filt_gaussian, 1.5, 0},      {filt_lanczos2, 2, 0},
        {filt_lanczos3, -3.5, 0},     {filt_sinc, 0, 1},            {filt_sinc, 1, 0},
        {filt_gaussian, 0, 1 - 0.006329715427485747}, {filt_sinc, 5.5, -2 / (11 * M_PI)},
    };
    // clang-format on
    // Terms of up to 10/3 cancel in the outer Mitchell piece.
    for (const auto& c : cases)
        EXPECT_NEAR(c.expected, c.f(c.x), 4 * DBL_EPSILON * 10 / 3) << c.x;
    EXPECT_EQ(1.0, filt_sinc(0.0));
    EXPECT_LT(filt_gaussian(2.0), 0.0);
}

TEST(Kernel, TableSamplesTheGaussianFromMinusTheRadius) {
    kernel<int> k(3, 10, 256);
    EXPECT_EQ(6144, k.count);
    EXPECT_EQ(-3072, k.first);
    EXPECT_EQ(254, k.table[3072]);
    for (int i = 0; i < k.count; ++i) {
        double x = i / 1024.0 - 3.0;
        double g = std::exp(-(1.5 * x) * (1.5 * x)) - 0.006329715427485747;
        ASSERT_EQ(int(g * 256), getIntKern().table[i]) << i;
    }
    EXPECT_EQ(-1, k.table[0]); // the negative tail truncates toward zero
}
