#include "krovel/KrSvd.h"

#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

template <class T> KrGenMatrix<T> randomMatrix(int rows, int cols, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> u(-1, 1);
    KrGenMatrix<T> a(rows, cols, KrGenMatrix<T>::RowMajor);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c)
            a(r, c) = T(u(rng));
    return a;
}

template <class T> double frobenius(const KrGenMatrix<T>& a) {
    double sum = 0;
    for (int r = 0; r < a.rows(); ++r)
        for (int c = 0; c < a.cols(); ++c)
            sum += double(a(r, c)) * double(a(r, c));
    return std::sqrt(sum);
}

// Aᵀ(b − Ax): zero at the least-squares solution (the normal equations).
template <class T>
std::vector<double> normalResidual(const KrGenMatrix<T>& a, const KrGenVector<T>& b,
                                   const KrGenVector<T>& x) {
    std::vector<double> r(a.rows()), g(a.cols());
    for (int i = 0; i < a.rows(); ++i) {
        r[i] = b(i);
        for (int j = 0; j < a.cols(); ++j)
            r[i] -= double(a(i, j)) * x(j);
    }
    for (int j = 0; j < a.cols(); ++j)
        for (int i = 0; i < a.rows(); ++i)
            g[j] += double(a(i, j)) * r[i];
    return g;
}

template <class T> class KrSvdTyped : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(KrSvdTyped, Precisions);

void ignore(const char*) {}

} // namespace

TYPED_TEST(KrSvdTyped, FactorsReconstructTheMatrixWithDescendingValues) {
    const double eps = std::numeric_limits<TypeParam>::epsilon();
    const int shapes[][2] = {{1, 1}, {5, 3}, {3, 5}, {6, 6}, {8, 2}};
    for (auto& shape : shapes) {
        const int m = shape[0], n = shape[1], k = std::min(m, n);
        KrGenMatrix<TypeParam> a = randomMatrix<TypeParam>(m, n, 17 * m + n);
        KrSvd<TypeParam> svd;
        ASSERT_TRUE(Krovel::_svdCall(svd, a));
        ASSERT_EQ(m, svd.U.rows());
        ASSERT_EQ(n, svd.U.cols());
        ASSERT_EQ(n, svd.V.rows());
        ASSERT_EQ(n, svd.S.length());
        EXPECT_EQ(double(svd.S(0)), svd.magnitude());
        // Backward stability: errors of order max(m, n)·ε·‖A‖.
        const double tol = 8 * std::max(m, n) * eps * frobenius(a);
        for (int i = 0; i < n; ++i) {
            if (i > 0) {
                EXPECT_GE(svd.S(i - 1), svd.S(i));
            }
            if (i >= k) {
                EXPECT_EQ(TypeParam(0), svd.S(i)) << "only min(m, n) values exist";
                for (int r = 0; r < m; ++r)
                    EXPECT_EQ(TypeParam(0), svd.U(r, i));
            }
        }
        for (int r = 0; r < m; ++r)
            for (int c = 0; c < n; ++c) {
                double sum = 0;
                for (int i = 0; i < k; ++i)
                    sum += double(svd.U(r, i)) * svd.S(i) * svd.V(c, i);
                EXPECT_NEAR(double(a(r, c)), sum, tol) << m << "x" << n << ": " << r << "," << c;
            }
        // V's columns are orthonormal: VᵀV = I.
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j) {
                double dot = 0;
                for (int r = 0; r < n; ++r)
                    dot += double(svd.V(r, i)) * svd.V(r, j);
                EXPECT_NEAR(i == j ? 1.0 : 0.0, dot, 8 * n * eps);
            }
    }
}

TEST(KrSvd, SingularValuesOfAPermutedDiagonalAreItsSortedMagnitudes) {
    KrGenMatrix<double> a(3, 3);
    a(0, 1) = -5;
    a(1, 2) = 1;
    a(2, 0) = 3;
    KrSvd<double> svd;
    ASSERT_TRUE(Krovel::_svdCall(svd, a));
    const double expected[] = {5, 3, 1};
    for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(expected[i], svd.S(i), 4 * DBL_EPSILON * expected[i]);
    // Column 0 of V maps onto the largest value: A·v₀ = s₀·u₀.
    for (int r = 0; r < 3; ++r) {
        double av = 0;
        for (int c = 0; c < 3; ++c)
            av += a(r, c) * svd.V(c, 0);
        EXPECT_NEAR(5 * svd.U(r, 0), av, 16 * DBL_EPSILON);
    }
}

TYPED_TEST(KrSvdTyped, SolveSatisfiesTheNormalEquations) {
    const double eps = std::numeric_limits<TypeParam>::epsilon();
    KrGenMatrix<TypeParam> a = randomMatrix<TypeParam>(12, 4, 99);
    KrGenVector<TypeParam> b(12);
    for (int i = 0; i < 12; ++i)
        b(i) = TypeParam(std::sin(1.0 + i));
    KrSvd<TypeParam> svd(0);
    ASSERT_TRUE(Krovel::_svdCall(svd, a, b));
    const double na = frobenius(a);
    double nx = 0, nb = 0;
    for (int j = 0; j < 4; ++j)
        nx += double(svd.solution(j)) * svd.solution(j);
    for (int i = 0; i < 12; ++i)
        nb += double(b(i)) * b(i);
    const double cond = svd.S(0) / svd.S(3);
    const double tol = 16 * 12 * eps * cond * na * (na * std::sqrt(nx) + std::sqrt(nb));
    for (double g : normalResidual(a, b, svd.solution))
        EXPECT_NEAR(0.0, g, tol);
    EXPECT_NE(b.data(), svd.rhs.data());
    EXPECT_EQ(b(5), svd.rhs(5));
}

TEST(KrSvd, RankDeficientSolveDropsSmallValuesAndGivesTheMinimumNorm) {
    // Columns 0 and 2 are equal, so x0 and x2 share the load equally.
    KrGenMatrix<double> a = randomMatrix<double>(6, 3, 4);
    for (int r = 0; r < 6; ++r)
        a(r, 2) = a(r, 0);
    KrGenVector<double> b(6);
    for (int i = 0; i < 6; ++i)
        b(i) = i - 2.5;
    KrSvd<double> svd(1e-10f);
    ASSERT_TRUE(Krovel::_svdCall(svd, a, b));
    double nb = 0;
    for (int i = 0; i < 6; ++i)
        nb += b(i) * b(i);
    const double tol = 16 * 6 * DBL_EPSILON * frobenius(a) * frobenius(a) * std::sqrt(nb);
    for (double g : normalResidual(a, b, svd.solution))
        EXPECT_NEAR(0.0, g, tol);
    EXPECT_NEAR(svd.solution(0), svd.solution(2), tol);

    svd.cutoff = 1;
    ASSERT_TRUE(Krovel::_svdCall(svd, a, b));
    for (int j = 0; j < 3; ++j)
        EXPECT_EQ(0.0, svd.solution(j)) << "no value lies above the largest";
}

TEST(KrSvd, ResultsHeldByACallerSurviveTheNextCall) {
    KrSvd<float> svd;
    ASSERT_TRUE(Krovel::_svdCall(svd, randomMatrix<float>(3, 3, 1)));
    KrGenVector<float> kept = svd.S;
    KrGenVector<float> before = kept.copy();
    ASSERT_TRUE(Krovel::_svdCall(svd, randomMatrix<float>(3, 3, 2)));
    EXPECT_NE(kept.data(), svd.S.data());
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(before(i), kept(i));
    EXPECT_EQ(0, svd.spare.length());
}

TEST(KrSvd, NonFiniteInputThrowsPastTheHandler) {
    auto previous = KrMatrixError::setErrorHandler(ignore);
    KrGenMatrix<double> a(2, 2);
    a(1, 0) = std::numeric_limits<double>::quiet_NaN();
    KrSvd<double> svd;
    expectThrows<IllegalArgumentException>([&] { Krovel::_svdCall(svd, a); }, "NaN");
    a(1, 0) = std::numeric_limits<double>::infinity();
    KrSvd<float> fsvd;
    KrGenMatrix<float> fa(3, 1);
    fa(2, 0) = -std::numeric_limits<float>::infinity();
    expectThrows<IllegalArgumentException>([&] { Krovel::_svdCall(svd, a); }, "infinite number");
    expectThrows<IllegalArgumentException>([&] { Krovel::_svdCall(fsvd, fa); }, "infinite number");
    KrMatrixError::setErrorHandler(previous);
    expectThrows<KrMatrixError>([&] { Krovel::_svdCall(svd, a, KrGenVector<double>(3)); },
                                "KrVector length mismatch 2 != 3");
}

TEST(KrSvd, AnEmptyMatrixDecomposesTrivially) {
    KrSvd<double> svd;
    EXPECT_TRUE(Krovel::_svdCall(svd, KrGenMatrix<double>(0, 2), KrGenVector<double>()));
    EXPECT_EQ(2, svd.solution.length());
    EXPECT_EQ(0.0, svd.magnitude());
}
