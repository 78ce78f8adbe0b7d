#include "krovel/vec/mat3.h"

#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <sstream>
#include <string>

namespace {

// Rows as written on paper; the constructor takes columns.
mat3 rows(double a, double b, double c, double d, double e, double f, double g, double h,
          double i) {
    return mat3(vec3(a, d, g), vec3(b, e, h), vec3(c, f, i));
}

void expectNear(const mat3& expected, const mat3& actual, double tolerance) {
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c) {
            EXPECT_NEAR(expected(r, c), actual(r, c), tolerance) << "(" << r << ", " << c << ")";
        }
    }
}

std::string stderrOfIndex(const mat3& m, int i) {
    testing::internal::CaptureStderr();
    const double* p = m[i];
    (void)p;
    return testing::internal::GetCapturedStderr();
}

} // namespace

TEST(mat3, ConstructorsAndIdentity) {
    EXPECT_EQ(mat3(0.0), mat3());
    EXPECT_NE(identity2D(), mat3());
    EXPECT_EQ(rows(1, 0, 0, 0, 1, 0, 0, 0, 1), identity2D());
    const mat3 m = rows(1, 2, 3, 4, 5, 6, 7, 8, 9);
    EXPECT_EQ(4.0, m[0][1]) << "column 0 holds (1, 4, 7)";
    EXPECT_EQ(9.0, m[2][2]);
    EXPECT_EQ(m[0] + 6, m[2]);
}

TEST(mat3, EqualityIsExactAndNaNIsNeverEqual) {
    const mat3 a = rows(1, 2, 3, 4, 5, 6, 7, 8, 9);
    EXPECT_EQ(a, (a + mat3(0.5)) - mat3(0.5));
    EXPECT_EQ(2.0 * a, a + a);
    EXPECT_NE(a, a.transpose());
    mat3 n = a;
    n(2, 1) = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(n == n);
    EXPECT_TRUE(n != n);
}

TEST(mat3, ProductTransposeAndDeterminant) {
    const mat3 a = rows(2, -1, 0, 1, 3, 2, 0, 1, 4);
    const mat3 b = rows(1, 0, 2, -1, 1, 0, 3, 2, 1);
    EXPECT_EQ(rows(3, -1, 4, 4, 7, 4, 11, 9, 4), a * b);
    EXPECT_EQ(rows(2, 1, 0, -1, 3, 1, 0, 2, 4), a.transpose());
    EXPECT_EQ((a * b).transpose(), b.transpose() * a.transpose());
    EXPECT_EQ(24.0, a.determinant());
    EXPECT_EQ(-9.0, b.determinant());
    EXPECT_EQ(24.0 * -9.0, (a * b).determinant());
    EXPECT_EQ(a, identity2D() * a);
    EXPECT_EQ(vec3(2, 9, 16), a * vec3(1, 0, 4));
}

TEST(mat3, InverseIsNotProvided) {
    expectThrows<const char*>([] { identity2D().inverse(); }, "niy");
}

TEST(mat3, HomogeneousBuildersMatchHandDerivedMatrices) {
    EXPECT_EQ(rows(1, 0, 3, 0, 1, -2, 0, 0, 1), translation2D(vec2(3, -2)));
    EXPECT_EQ(rows(2, 0, 0, 0, 0.5, 0, 0, 0, 1), scaling2D(vec2(2, 0.5)));
    EXPECT_EQ(vec2(4, -1), translation2D(vec2(3, -2)) * vec2(1, 1));
    EXPECT_EQ(vec2(2, 0.5), scaling2D(vec2(2, 0.5)) * vec2(1, 1));

    // 30 degrees about (2, 1): cos = sqrt(3)/2, sin = 1/2.
    const double c = std::sqrt(3.0) / 2;
    const double s = 0.5;
    const mat3 expected = rows(c, -s, (1 - c) * 2 + s * 1, s, c, (1 - c) * 1 - s * 2, 0, 0, 1);
    expectNear(expected, rotation2D(vec2(2, 1), 30), 4 * DBL_EPSILON);
}

TEST(mat3, RotationTurnsAboutItsCentre) {
    const vec2 p = rotation2D(vec2(0, 0), 90) * vec2(1, 0);
    EXPECT_NEAR(0.0, p.x, 2 * DBL_EPSILON);
    EXPECT_NEAR(1.0, p.y, 2 * DBL_EPSILON);

    const vec2 centre(5, -3);
    const mat3 r = rotation2D(centre, 37);
    const vec2 fixed = r * centre;
    EXPECT_NEAR(centre.x, fixed.x, 16 * DBL_EPSILON);
    EXPECT_NEAR(centre.y, fixed.y, 16 * DBL_EPSILON);
    expectNear(translation2D(centre) * rotation2D(vec2(0, 0), 37) * translation2D(-centre), r,
               16 * DBL_EPSILON);

    // The linear part is orthonormal.
    mat3 linear = r;
    linear(0, 2) = 0;
    linear(1, 2) = 0;
    expectNear(identity2D(), linear * linear.transpose(), 4 * DBL_EPSILON);
}

TEST(mat3, PointProductDividesByTheThirdComponent) {
    mat3 m = identity2D();
    m(2, 2) = 2;
    EXPECT_EQ(vec2(1.5, -2), m * vec2(3, -4));
}

TEST(mat3, SwapsExchangeColumnsRowsOrAxes) {
    const mat3 a = rows(1, 2, 3, 4, 5, 6, 7, 8, 9);
    EXPECT_EQ(rows(2, 1, 3, 5, 4, 6, 8, 7, 9), a.swapCols(0, 1));
    EXPECT_EQ(rows(7, 8, 9, 4, 5, 6, 1, 2, 3), a.swapRows(0, 2));
    EXPECT_EQ(a, a.swapCols(1, 1));

    // With x and y interchanged on both sides, the map is the same.
    const mat3 m = rotation2D(vec2(1, 2), 20) * scaling2D(vec2(3, 0.5));
    const vec2 p(-2, 7);
    const vec2 direct = m * p;
    const vec2 swapped = m.swapColsRows(0, 1) * vec2(p.y, p.x);
    EXPECT_NEAR(direct.x, swapped.y, 16 * DBL_EPSILON);
    EXPECT_NEAR(direct.y, swapped.x, 16 * DBL_EPSILON);

    expectThrows<BadIndexException>([&] { a.swapCols(0, 3); }, "mat3::swapCols");
    expectThrows<BadIndexException>([&] { a.swapRows(-1, 0); }, "mat3::swapRows");
    expectThrows<BadIndexException>([&] { a.swapColsRows(1, 3); }, "mat3::swapColsRows");
}

TEST(mat3, ColumnIndexOutsideThreeIsReported) {
    const mat3 m = identity2D();
    EXPECT_EQ("", stderrOfIndex(m, 2));
    EXPECT_EQ("mat3 [] operator: illegal access; index = 3\n", stderrOfIndex(m, 3));
    EXPECT_EQ("mat3 [] operator: illegal access; index = -2\n", stderrOfIndex(m, -2));
    expectThrows<BadIndexException>([&] { (void)m(3, 0); }, "mat3::operator()");
}

TEST(mat3, AssignmentCopiesEveryElement) {
    mat3 a = identity2D();
    const mat3 b = rows(1, 2, 3, 4, 5, 6, 7, 8, 9);
    a = b;
    EXPECT_EQ(b, a);
    a[1][0] = 0;
    EXPECT_EQ(2.0, b(0, 1)) << "copies do not share elements";
}

TEST(mat3, WritesRowsOnThreeLines) {
    std::ostringstream os;
    os << rows(1, 2, 3, 4, 5, 6, 7, 8, -9.5);
    EXPECT_EQ("| 1 2 3 |\n| 4 5 6 |\n| 7 8 -9.5 |", os.str());
}

TEST(mat3, InputIsUnsupported) {
    std::istringstream in("1 2 3 4 5 6 7 8 9");
    mat3 m;
    expectThrows<UnsupportedOperationException>([&] { in >> m; },
                                                "krovel/vec line 396: not implemented yet");
}
