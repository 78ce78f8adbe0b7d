#include "krovel/vec/mat2.h"

#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <limits>
#include <random>
#include <sstream>
#include <string>

namespace {

// Rows as written on paper; the constructor takes columns.
mat2 rows(double a, double b, double c, double d) {
    return mat2(vec2(a, c), vec2(b, d));
}

std::string text(const mat2& m) {
    std::ostringstream os;
    os << m;
    return os.str();
}

std::string stderrOfIndex(const mat2& m, int i) {
    testing::internal::CaptureStderr();
    const double* p = m[i];
    (void)p;
    return testing::internal::GetCapturedStderr();
}

} // namespace

TEST(mat2, ConstructorsFillColumnByColumn) {
    EXPECT_EQ(mat2(0.0), mat2());
    const mat2 m(vec2(1, 2), vec2(3, 4));
    EXPECT_EQ(1.0, m(0, 0));
    EXPECT_EQ(2.0, m(1, 0));
    EXPECT_EQ(3.0, m(0, 1));
    EXPECT_EQ(4.0, m(1, 1));
    EXPECT_EQ(3.0, m[1][0]);
    EXPECT_EQ(4.0, m[1][1]);
    EXPECT_EQ(m[0] + 2, m[1]) << "column 1 follows column 0 in one block";
    const mat2 v(2.5);
    for (int r = 0; r < 2; ++r) {
        for (int c = 0; c < 2; ++c) {
            EXPECT_EQ(2.5, v(r, c));
        }
    }
}

TEST(mat2, ElementWiseOperations) {
    const mat2 a = rows(1, -2, 3, 4);
    const mat2 b = rows(0.5, 1, -1, 2);
    EXPECT_EQ(rows(1.5, -1, 2, 6), a + b);
    EXPECT_EQ(rows(0.5, -3, 4, 2), a - b);
    EXPECT_EQ(rows(-1, 2, -3, -4), -a);
    EXPECT_EQ(rows(3, -6, 9, 12), 3.0 * a);
    EXPECT_EQ(a * 3.0, 3.0 * a);
    EXPECT_EQ(rows(0.5, -1, 1.5, 2), a / 2.0);
    mat2 c = a;
    c += b;
    c -= a;
    EXPECT_EQ(b, c);
    c *= 4.0;
    c /= 2.0;
    EXPECT_EQ(b + b, c);
    c = a;
    EXPECT_EQ(rows(1, 4, 9, 16), c.apply([](double x) { return x * x; }));
    EXPECT_EQ(rows(1, 4, 9, 16), c) << "apply works in place";
}

TEST(mat2, EqualityIsExactAndNaNIsNeverEqual) {
    const mat2 a = rows(1, 2, 3, 4);
    EXPECT_TRUE(a == rows(1, 2, 3, 4));
    EXPECT_TRUE(a != rows(1, 2, 3, 4 + 4 * DBL_EPSILON));
    mat2 n = a;
    n(1, 0) = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(n == n);
    EXPECT_TRUE(n != n);
}

TEST(mat2, ProductsTransposeAndDeterminant) {
    const mat2 a = rows(1, 2, 3, 4);
    const mat2 b = rows(5, 6, 7, 8);
    EXPECT_EQ(rows(19, 22, 43, 50), a * b);
    EXPECT_EQ(vec2(-3, -5), a * vec2(1, -2));
    EXPECT_EQ(rows(1, 3, 2, 4), a.transpose());
    EXPECT_EQ(-2.0, a.determinant());
    EXPECT_EQ((a * b).determinant(), a.determinant() * b.determinant());
}

TEST(mat2, InverseTimesMatrixIsIdentity) {
    const mat2 i = mat2(vec2(1, 0), vec2(0, 1));
    const mat2 known = rows(4, 7, 2, 6).inverse();
    const mat2 expected = rows(0.6, -0.7, -0.2, 0.4);
    for (int r = 0; r < 2; ++r) {
        for (int c = 0; c < 2; ++c) {
            EXPECT_NEAR(expected(r, c), known(r, c), 4 * DBL_EPSILON);
        }
    }

    std::mt19937 rng(2024);
    std::uniform_real_distribution<double> u(-10, 10);
    for (int trial = 0; trial < 100; ++trial) {
        const mat2 a = rows(u(rng), u(rng), u(rng), u(rng));
        const mat2 inv = a.inverse();
        // Rounding scales with the sizes of both factors over the determinant.
        double big = 0;
        double bigInv = 0;
        for (int r = 0; r < 2; ++r) {
            for (int c = 0; c < 2; ++c) {
                big = std::max(big, std::abs(a(r, c)));
                bigInv = std::max(bigInv, std::abs(inv(r, c)));
            }
        }
        const double tolerance = 8 * DBL_EPSILON * big * bigInv;
        const mat2 left = inv * a;
        const mat2 right = a * inv;
        for (int r = 0; r < 2; ++r) {
            for (int c = 0; c < 2; ++c) {
                EXPECT_NEAR(i(r, c), left(r, c), tolerance) << trial;
                EXPECT_NEAR(i(r, c), right(r, c), tolerance) << trial;
            }
        }
    }
}

TEST(mat2, SingularInverseIsNotFiniteAndDoesNotThrow) {
    const mat2 inv = rows(1, 2, 2, 4).inverse();
    for (int r = 0; r < 2; ++r) {
        for (int c = 0; c < 2; ++c) {
            EXPECT_FALSE(std::isfinite(inv(r, c)));
        }
    }
}

TEST(mat2, ColumnIndexBoundIsThree) {
    const mat2 m = rows(1, 2, 3, 4);
    EXPECT_EQ("", stderrOfIndex(m, 0));
    EXPECT_EQ("", stderrOfIndex(m, 1));
    EXPECT_EQ("", stderrOfIndex(m, 2));
    EXPECT_EQ("mat2 [] operator: illegal access; index = 3\n", stderrOfIndex(m, 3));
    EXPECT_EQ("mat2 [] operator: illegal access; index = -1\n", stderrOfIndex(m, -1));
    testing::internal::CaptureStderr();
    const double* p = m[5];
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(m[0] + 10, p) << "the pointer is returned all the same";
}

TEST(mat2, ElementIndexIsChecked) {
    mat2 m;
    expectThrows<BadIndexException>([&] { m(2, 0) = 1; }, "mat2::operator()");
    expectThrows<BadIndexException>([&] { (void)m(0, -1); }, "mat2::operator()");
}

TEST(mat2, WritesRowsOnTwoLines) {
    EXPECT_EQ("| 1 2 |\n| 3 -4.5 |", text(rows(1, 2, 3, -4.5)));
}

TEST(mat2, ReadsColumns) {
    std::istringstream in("| 1 3 | | 2 4 |");
    mat2 m;
    in >> m;
    EXPECT_EQ(rows(1, 2, 3, 4), m);

    std::istringstream bare("1 3 2 4");
    bare >> m;
    EXPECT_FALSE(bare.fail()) << "the end of the input after the last number is no failure";
    EXPECT_EQ(rows(1, 2, 3, 4), m);
}

TEST(mat2, PrintedFormReadsBackTransposed) {
    // Output is by rows, input by columns.
    const mat2 a = rows(1, 2, 3, 4);
    std::istringstream in(text(a));
    mat2 back;
    in >> back;
    EXPECT_EQ(a.transpose(), back);
}

TEST(mat2, FailedReadLeavesMatrix) {
    const mat2 a = rows(1, 2, 3, 4);
    for (const char* input : {"| 1 3 | | 2 |", "| 1 3 |", "1 2 3 x"}) {
        std::istringstream in(input);
        mat2 m = a;
        in >> m;
        EXPECT_TRUE(in.fail()) << input;
        EXPECT_EQ(a, m) << input;
    }
}
