#include "krovel/vec/mat2.h"
#include "krovel/vec/mat3.h"

#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <random>
#include <sstream>
#include <string>

namespace {

// Rows as written on paper; the constructors take columns.
mat2 rows(double a, double b, double c, double d) {
    return mat2(vec2(a, c), vec2(b, d));
}
mat3 rows(double a, double b, double c, double d, double e, double f, double g, double h,
          double i) {
    return mat3(vec3(a, d, g), vec3(b, e, h), vec3(c, f, i));
}

template <class T> std::string text(const T& v) {
    std::ostringstream os;
    os << v;
    return os.str();
}

} // namespace

TEST(mat2, InverseTimesMatrixIsIdentity) {
    std::mt19937 rng(2024);
    std::uniform_real_distribution<double> u(-10, 10);
    for (int trial = 0; trial < 100; ++trial) {
        const mat2 a = rows(u(rng), u(rng), u(rng), u(rng));
        const mat2 inv = a.inverse();
        // Rounding scales with the sizes of both factors.
        const auto big = [](const mat2& m) {
            return std::max(
                {std::abs(m(0, 0)), std::abs(m(0, 1)), std::abs(m(1, 0)), std::abs(m(1, 1))});
        };
        const double tol = 8 * DBL_EPSILON * big(a) * big(inv);
        const mat2 left = inv * a, right = a * inv;
        for (int r = 0; r < 2; ++r)
            for (int c = 0; c < 2; ++c) {
                EXPECT_NEAR(r == c, left(r, c), tol) << trial;
                EXPECT_NEAR(r == c, right(r, c), tol) << trial;
            }
    }
}

TEST(mat3, HomogeneousBuildersMatchHandDerivedMatrices) {
    expectThrows<const char*>([] { identity2D().inverse(); }, "niy");
    EXPECT_EQ(rows(1, 0, 3, 0, 1, -2, 0, 0, 1), translation2D(vec2(3, -2)));
    EXPECT_EQ(rows(2, 0, 0, 0, 0.5, 0, 0, 0, 1), scaling2D(vec2(2, 0.5)));
    EXPECT_EQ(vec2(4, -1), translation2D(vec2(3, -2)) * vec2(1, 1));

    // 30 degrees about (2, 1): cos = √3/2, sin = 1/2, and the centre stays put.
    const double c = std::sqrt(3.0) / 2, s = 0.5;
    const mat3 expected = rows(c, -s, (1 - c) * 2 + s * 1, s, c, (1 - c) * 1 - s * 2, 0, 0, 1);
    const mat3 r = rotation2D(vec2(2, 1), 30);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            EXPECT_NEAR(expected(i, j), r(i, j), 4 * DBL_EPSILON) << i << "," << j;
}

TEST(vec, StreamFormats) {
    EXPECT_EQ("| 1.5 -2 |", text(vec2(1.5, -2)));
    EXPECT_EQ("| 1 -0.5 2e+10 |", text(vec3(1, -0.5, 2e10)));
    EXPECT_EQ("| 1 2 |\n| 3 -4.5 |", text(rows(1, 2, 3, -4.5)));
    EXPECT_EQ("| 1 2 3 |\n| 4 5 6 |\n| 7 8 -9.5 |", text(rows(1, 2, 3, 4, 5, 6, 7, 8, -9.5)));

    // Input takes the barred or the bare form; a matrix is read by columns.
    std::istringstream in(" |  0.1 -7 |  5 6|next | 1 -0.5 2e+10 | 4 5 6 | 1 3 | | 2 4 | 1 3 2 4");
    vec2 a, b;
    vec3 c, d;
    mat2 e, f;
    in >> a >> b;
    std::string rest;
    in >> rest >> c >> d >> e >> f;
    EXPECT_FALSE(in.fail()) << "the end of the input after the last number is no failure";
    EXPECT_EQ(vec2(0.1, -7), a);
    EXPECT_EQ(vec2(5, 6), b);
    EXPECT_EQ("|next", rest) << "only the barred form consumes a closing bar";
    EXPECT_EQ(vec3(1, -0.5, 2e10), c);
    EXPECT_EQ(vec3(4, 5, 6), d);
    EXPECT_EQ(rows(1, 2, 3, 4), e);
    EXPECT_EQ(rows(1, 2, 3, 4), f);

    std::istringstream in3("1 2 3 4 5 6 7 8 9");
    mat3 m;
    expectThrows<UnsupportedOperationException>([&] { in3 >> m; },
                                                "krovel/vec line 396: not implemented yet");
}

TEST(mat2, ColumnIndexBoundIsThreeAndReportedOnStandardError) {
    const mat2 m = rows(1, 2, 3, 4);
    for (int i : {-1, 0, 2, 3}) {
        testing::internal::CaptureStderr();
        const double* p = m[i];
        EXPECT_EQ(i == -1 || i == 3
                      ? "mat2 [] operator: illegal access; index = " + std::to_string(i) + "\n"
                      : "",
                  testing::internal::GetCapturedStderr());
        EXPECT_EQ(m[0] + 2 * i, p) << "the pointer is returned all the same";
    }
    expectThrows<BadIndexException>([&] { (void)m(2, 0); }, "mat2::operator()");
}
