#include "krovel/AffineTransform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <random>
#include <sstream>

namespace {

using Mat2 = std::array<double, 4>; // row-major 2 by 2

Mat2 product(const Mat2& p, const Mat2& q) {
    return {p[0] * q[0] + p[1] * q[2], p[0] * q[1] + p[1] * q[3], p[2] * q[0] + p[3] * q[2],
            p[2] * q[1] + p[3] * q[3]};
}

void expectLinear(const KrGenMatrix<float>& m, double m00, double m01, double m10, double m11,
                  double tol) {
    EXPECT_NEAR(m00, m(0, 0), tol);
    EXPECT_NEAR(m01, m(0, 1), tol);
    EXPECT_NEAR(m10, m(1, 0), tol);
    EXPECT_NEAR(m11, m(1, 1), tol);
}

} // namespace

TEST(AffineTransform, DefaultIsIdentity) {
    EXPECT_EQ(AffineTransform(0, 0, 0, 1, 1, 1), AffineTransform());
    AffineTransform u(3, 4, 5, 6, 7, 8);
    EXPECT_EQ(AffineTransform(), u.identity());
    EXPECT_EQ(AffineTransform(0, 0, 0, 0, 0, 0), u.zero());
    KrGenMatrix<float> m;
    AffineTransform().getMatrix(m);
    ASSERT_EQ(2, m.rows());
    ASSERT_EQ(3, m.cols());
    expectLinear(m, 1, 0, 0, 1, 0);
    EXPECT_EQ(0.0f, m(0, 2));
    EXPECT_EQ(0.0f, m(1, 2));
}

TEST(AffineTransform, HandDerivedMatrices) {
    KrGenMatrix<float> m;
    AffineTransform(5, -7, 0, 2, 1, 1).getMatrix(m);
    expectLinear(m, 2, 0, 0, 2, 0);
    EXPECT_EQ(5.0f, m(0, 2));
    EXPECT_EQ(-7.0f, m(1, 2));

    // st1 = 1 makes b = 0: diag(sc·st0, sc/st0) · R, here diag(1.875, 1/1.2).
    AffineTransform(0, 0, 0.3f, 1.25f, 1.5f, 1).getMatrix(m);
    const double c = std::cos(0.3), s = std::sin(0.3);
    expectLinear(m, 1.875 * c, -1.875 * s, s / 1.2, c / 1.2, 8 * FLT_EPSILON);

    // st1 = 2 without rotation: a = 1.25, b = 0.75.
    AffineTransform(0, 0, 0, 1, 1, 2).getMatrix(m);
    expectLinear(m, 1.25, 0.75, 0.75, 1.25, 0);

    AffineTransform(0, 0, float(M_PI / 2), 1, 1, 1).getMatrix(m);
    expectLinear(m, 0, -1, 1, 0, FLT_EPSILON);
}

TEST(AffineTransform, RandomMatricesMatchTheCompositionAndHaveDeterminantScaleSquared) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> angle(-3.2f, 3.2f), scale(0.5f, 2.0f),
        stretch(0.6f, 1.7f), shift(-50, 50);
    for (int trial = 0; trial < 200; ++trial) {
        const AffineTransform t(shift(rng), shift(rng), angle(rng), scale(rng), stretch(rng),
                                stretch(rng));
        KrGenMatrix<float> m;
        t.getMatrix(m);
        // diag(sc·st0, sc/st0) · [[a, b], [b, a]] · R as generic products in double.
        const double c = std::cos(double(t.ro)), s = std::sin(double(t.ro));
        const double a = (t.st1 + 1.0 / t.st1) / 2, b = (t.st1 - 1.0 / t.st1) / 2;
        const Mat2 e = product({double(t.sc) * t.st0, 0, 0, double(t.sc) / t.st0},
                               product({a, b, b, a}, {c, -s, s, c}));
        const double e00 = e[0], e01 = e[1], e10 = e[2], e11 = e[3];
        const double largest =
            std::max({std::fabs(e00), std::fabs(e01), std::fabs(e10), std::fabs(e11)});
        // A few float roundings of terms no larger than the largest entry.
        const double tol = 16 * FLT_EPSILON * largest;
        expectLinear(m, e00, e01, e10, e11, tol);
        EXPECT_EQ(t.tx, m(0, 2));
        EXPECT_EQ(t.ty, m(1, 2));
        const double det = double(m(0, 0)) * m(1, 1) - double(m(0, 1)) * m(1, 0);
        EXPECT_NEAR(double(t.sc) * t.sc, det, 2 * tol * largest) << t;
    }
}

TEST(AffineTransform, MatrixKeepsTheLayoutAndWritesSharedStorage) {
    const AffineTransform t(1, 2, 0.5f, 1.5f, 0.8f, 1.2f);
    KrGenMatrix<float> reference;
    t.getMatrix(reference);

    KrGenMatrix<float> rowMajor(2, 3, KrGenMatrix<float>::RowMajor);
    const KrGenMatrix<float> sharer = rowMajor;
    t.getMatrix(rowMajor);
    EXPECT_EQ(sharer.data(), rowMajor.data()) << "a 2 by 3 row-major matrix is written in place";

    KrGenMatrix<float> colMajor(4, 4, KrGenMatrix<float>::ColumnMajor);
    t.getMatrix(colMajor);
    EXPECT_EQ(1, colMajor.rowStride());
    KrGenMatrix<double> wide(2, 3, KrGenMatrix<double>::ColumnMajor);
    t.getMatrix(wide);
    EXPECT_EQ(1, wide.rowStride());
    for (int r = 0; r < 2; ++r)
        for (int c = 0; c < 3; ++c) {
            EXPECT_EQ(reference(r, c), sharer(r, c));
            EXPECT_EQ(reference(r, c), colMajor(r, c));
            EXPECT_EQ(double(reference(r, c)), wide(r, c));
        }
}

TEST(AffineTransform, ArithmeticIsComponentWise) {
    const AffineTransform a(1, 2, 3, 4, 5, 6);
    const AffineTransform b(0.5f, -1, 0.25f, 2, -3, 8);
    EXPECT_EQ(AffineTransform(1.5f, 1, 3.25f, 6, 2, 14), a + b);
    EXPECT_EQ(AffineTransform(0.5f, 3, 2.75f, 2, 8, -2), a - b);
    EXPECT_EQ(AffineTransform(2.5f, 5, 7.5f, 10, 12.5f, 15), a * 2.5f);
    EXPECT_EQ(AffineTransform(0.25f, 0.5f, 0.75f, 1, 1.25f, 1.5f), a / 4);
    AffineTransform c = a;
    EXPECT_EQ(a + b, c += b);
    EXPECT_EQ(a, c -= b);
    EXPECT_EQ(a * 3, c *= 3);
    EXPECT_EQ(a, c /= 3);
}

TEST(AffineTransform, Printing) {
    std::ostringstream os;
    os << AffineTransform();
    EXPECT_EQ("(tx 0, ty 0, ro 0, sc 1, st0 1, st1 1)", os.str());
    os.str("");
    os << AffineTransform(1.5f, -2, 0.25f, 1e10f, 0.125f, 3);
    EXPECT_EQ("(tx 1.5, ty -2, ro 0.25, sc 1e+10, st0 0.125, st1 3)", os.str());
    os.str("");
    os.precision(3);
    os << AffineTransform(1.0f / 3, 0, 0, 1, 1, 1);
    EXPECT_EQ("(tx 0.333, ty 0, ro 0, sc 1, st0 1, st1 1)", os.str());
}
