#include "image/Filter.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>

using namespace Orvane;

namespace {

const double pi = 3.141592653589793;

// The Mitchell-Netravali family in its textbook form, for any B and C.
double mitchellNetravali(double x, double B, double C) {
    double t = std::fabs(x);
    if (t < 1)
        return ((12 - 9 * B - 6 * C) * t * t * t + (-18 + 12 * B + 6 * C) * t * t + (6 - 2 * B)) /
               6;
    if (t < 2)
        return ((-B - 6 * C) * t * t * t + (6 * B + 30 * C) * t * t + (-12 * B - 48 * C) * t +
                (8 * B + 24 * C)) /
               6;
    return 0;
}

// Sum of f over samples one apart around x: 1 for a filter that keeps a
// constant signal constant.
double shiftedSum(double (*f)(double), double x) {
    double s = 0;
    for (int k = -4; k <= 4; ++k)
        s += f(x + k);
    return s;
}

} // namespace

TEST(Filter, BoxIsHalfOpen) {
    EXPECT_EQ(1.0, filt_box(0.0));
    EXPECT_EQ(1.0, filt_box(-0.5));
    EXPECT_EQ(1.0, filt_box(0.4999));
    EXPECT_EQ(0.0, filt_box(0.5));
    EXPECT_EQ(0.0, filt_box(-0.5001));
}

TEST(Filter, TriangleAndQuadraticAtKnots) {
    EXPECT_EQ(1.0, filt_triangle(0.0));
    EXPECT_EQ(0.0, filt_triangle(-1.0));
    EXPECT_EQ(0.0, filt_triangle(1.0));
    EXPECT_EQ(0.75, filt_triangle(0.25));
    EXPECT_EQ(0.75, filt_triangle(-0.25));
    EXPECT_EQ(0.75, filt_quadratic(0.0));
    EXPECT_EQ(0.0, filt_quadratic(1.5));
    EXPECT_EQ(0.0, filt_quadratic(-1.5));
    // Both pieces meet at 0.5 with the value 0.5.
    EXPECT_EQ(0.5, filt_quadratic(0.5));
    EXPECT_EQ(0.5, filt_quadratic(-0.5));
    EXPECT_EQ(0.125, filt_quadratic(1.0));
    EXPECT_EQ(0.125, filt_quadratic(-1.0));
}

TEST(Filter, MitchellMatchesTheGeneralFormulaWithBAndCAThird) {
    EXPECT_DOUBLE_EQ(8.0 / 9.0, filt_mitchell(0.0));
    // The outer piece cancels terms of up to 10/3 down to 1/18.
    EXPECT_NEAR(1.0 / 18.0, filt_mitchell(1.0), 4 * DBL_EPSILON * 10 / 3);
    EXPECT_EQ(0.0, filt_mitchell(2.0));
    EXPECT_EQ(0.0, filt_mitchell(-2.0));
    for (double x = -2.5; x <= 2.5; x += 0.0625)
        EXPECT_NEAR(mitchellNetravali(x, 1.0 / 3, 1.0 / 3), filt_mitchell(x), 8 * DBL_EPSILON) << x;
}

TEST(Filter, PiecewiseFiltersKeepConstantsConstant) {
    for (double x = -0.5; x < 0.5; x += 0.03125) {
        EXPECT_DOUBLE_EQ(1.0, shiftedSum(filt_box, x)) << x;
        EXPECT_DOUBLE_EQ(1.0, shiftedSum(filt_triangle, x)) << x;
        EXPECT_DOUBLE_EQ(1.0, shiftedSum(filt_quadratic, x)) << x;
        EXPECT_NEAR(1.0, shiftedSum(filt_mitchell, x), 8 * DBL_EPSILON) << x;
    }
}

TEST(Filter, GaussianReachesZeroAtOneAndAHalfAndDipsBelowBeyond) {
    EXPECT_EQ(1.0 - 0.006329715427485747, filt_gaussian(0.0));
    EXPECT_NEAR(0.0, filt_gaussian(1.5), DBL_EPSILON * 0.0064);
    EXPECT_NEAR(0.0, filt_gaussian(-1.5), DBL_EPSILON * 0.0064);
    EXPECT_LT(filt_gaussian(2.0), 0.0);
    EXPECT_NEAR(std::exp(-2.25) - std::exp(-5.0625), filt_gaussian(1.0), 4 * DBL_EPSILON);
    EXPECT_EQ(filt_gaussian(0.7), filt_gaussian(-0.7));
}

TEST(Filter, LanczosIsWindowedSinc) {
    for (double a : {2.0, 3.0}) {
        double (*f)(double) = a == 2.0 ? filt_lanczos2 : filt_lanczos3;
        EXPECT_EQ(1.0, f(0.0));
        EXPECT_EQ(0.0, f(a));
        EXPECT_EQ(0.0, f(-a - 0.5));
        for (double x = 0.125; x < a; x += 0.125) {
            double expected = std::sin(pi * x) / (pi * x) * std::sin(pi * x / a) / (pi * x / a);
            EXPECT_NEAR(expected, f(x), 8 * DBL_EPSILON) << a << " " << x;
            EXPECT_EQ(f(x), f(-x));
        }
    }
}

TEST(Filter, SincIsExactAtZeroAndVanishesAtIntegers) {
    EXPECT_EQ(1.0, filt_sinc(0.0));
    EXPECT_NEAR(0.0, filt_sinc(1.0), 4 * DBL_EPSILON);
    EXPECT_NEAR(0.0, filt_sinc(-3.0), 4 * DBL_EPSILON);
    EXPECT_NEAR(2.0 / pi, filt_sinc(0.5), 4 * DBL_EPSILON);
    // Unwindowed: far out it still rings.
    EXPECT_NEAR(-2.0 / (11 * pi), filt_sinc(5.5), 4 * DBL_EPSILON);
}
