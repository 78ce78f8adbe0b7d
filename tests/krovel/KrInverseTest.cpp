#include "krovel/KrInverse.h"
#include "krovel/KrSvd.h"

#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace {

// Uniform in [-1, 1]; `dominant` puts ±(n + 1) on the diagonal, which keeps the
// matrix well conditioned and spares LU any row interchange.
template <class T> KrGenMatrix<T> randomMatrix(int rows, int cols, unsigned seed, bool dominant) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> u(-1, 1);
    KrGenMatrix<T> a(rows, cols, seed % 2 ? KrGenMatrix<T>::RowMajor : KrGenMatrix<T>::ColumnMajor);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c)
            a(r, c) = T(dominant && r == c ? (cols + 1) * (u(rng) < 0 ? -1 : 1) : u(rng));
    return a;
}

template <class T> double norm1(const KrGenMatrix<T>& a) {
    double best = 0;
    for (int c = 0; c < a.cols(); ++c) {
        double sum = 0;
        for (int r = 0; r < a.rows(); ++r)
            sum += std::fabs(double(a(r, c)));
        best = std::max(best, sum);
    }
    return best;
}

// Laplace expansion of the rows from `row` on, restricted to `cols`: independent of LU.
long double cofactor(const KrGenMatrix<double>& a, std::vector<int> cols, int row = 0) {
    if (cols.size() == 1)
        return a(row, cols[0]);
    long double det = 0;
    for (size_t j = 0; j < cols.size(); ++j) {
        std::vector<int> minor = cols;
        minor.erase(minor.begin() + j);
        det += (j % 2 ? -1 : 1) * a(row, cols[j]) * cofactor(a, minor, row + 1);
    }
    return det;
}

template <class T> class KrInverseTyped : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(KrInverseTyped, Precisions);

} // namespace

TYPED_TEST(KrInverseTyped, TimesTheMatrixGivesTheIdentity) {
    const double eps = std::numeric_limits<TypeParam>::epsilon();
    for (int n = 1; n <= 9; ++n) {
        const KrGenMatrix<TypeParam> a = randomMatrix<TypeParam>(n, n, n, true);
        const KrGenMatrix<TypeParam> inv = inverse(a);
        // The residual of a backward-stable inverse is bounded by n·ε·cond(A).
        const double tol = 4 * n * eps * norm1(a) * norm1(inv);
        for (int r = 0; r < n; ++r)
            for (int c = 0; c < n; ++c) {
                double sum = 0;
                for (int k = 0; k < n; ++k)
                    sum += double(a(r, k)) * double(inv(k, c));
                EXPECT_NEAR(r == c ? 1.0 : 0.0, sum, tol) << n << ": " << r << "," << c;
            }
    }
}

TEST(KrInverse, SingularAndNonSquareMatricesAreReported) {
    expectThrows<KrMatrixError>([] { inverse(KrGenMatrix<float>(2, 2)); },
                                "inverse: singular matrix");
}

TEST(KrDeterminant, FlipsTheSignForEveryPivotComparedWithItsZeroBasedIndex) {
    // LAPACK pivots count from 1, so every one differs from its 0-based index:
    // the result is (-1)^n (-1)^swaps times the true determinant.
    for (int n = 1; n <= 6; ++n) {
        KrGenMatrix<double> a = randomMatrix<double>(n, n, 5 + n, true);
        std::vector<int> cols(n);
        for (int c = 0; c < n; ++c)
            cols[c] = c;
        const long double det = cofactor(a, cols);
        const double tol = 8 * n * DBL_EPSILON * std::fabs(double(det));
        EXPECT_NEAR(double((n % 2 ? -1 : 1) * det), determinant(a), tol) << n;
        if (n < 2)
            continue;
        // Swapping two rows flips the true determinant, and LU swaps them back:
        // the pivot rule ignores the interchange, so the result stays put.
        for (int c = 0; c < n; ++c)
            std::swap(a(0, c), a(1, c));
        EXPECT_NEAR(double((n % 2 ? -1 : 1) * det), determinant(a), tol) << n;
    }
}

TYPED_TEST(KrInverseTyped, SvdReconstructsAndSolvesLeastSquares) {
    const double eps = std::numeric_limits<TypeParam>::epsilon();
    for (auto shape : {std::pair<int, int>{1, 1}, {5, 3}, {3, 5}, {6, 6}, {12, 4}}) {
        const int m = shape.first, n = shape.second, k = std::min(m, n);
        const KrGenMatrix<TypeParam> a = randomMatrix<TypeParam>(m, n, 17 * m + n, false);
        KrGenVector<TypeParam> b(m);
        for (int i = 0; i < m; ++i)
            b(i) = TypeParam(std::sin(1.0 + i));
        KrSvd<TypeParam> svd(0);
        ASSERT_TRUE(Krovel::_svdCall(svd, a, b));
        ASSERT_EQ(n, svd.S.length());
        for (int i = 1; i < n; ++i)
            EXPECT_GE(svd.S(i - 1), svd.S(i));
        // Backward stability: U·S·Vᵀ within max(m, n)·ε·‖A‖₁ of A.
        const double na = norm1(a), tol = 8 * std::max(m, n) * eps * na;
        for (int r = 0; r < m; ++r)
            for (int c = 0; c < n; ++c) {
                double sum = 0;
                for (int i = 0; i < k; ++i)
                    sum += double(svd.U(r, i)) * svd.S(i) * svd.V(c, i);
                EXPECT_NEAR(double(a(r, c)), sum, tol) << m << "x" << n << ": " << r << "," << c;
            }
        // Aᵀ(b − Ax) vanishes at the least-squares solution, up to rounding in
        // cond(A)·‖A‖·(‖A‖·‖x‖ + ‖b‖); every |b_i| ≤ 1.
        double nx = 0;
        for (int j = 0; j < n; ++j)
            nx = std::max(nx, std::fabs(double(svd.solution(j))));
        const double ls = 16 * m * eps * (svd.S(0) / svd.S(k - 1)) * na * (na * nx + m);
        for (int j = 0; j < n; ++j) {
            double g = 0;
            for (int i = 0; i < m; ++i) {
                double r = b(i);
                for (int c = 0; c < n; ++c)
                    r -= double(a(i, c)) * svd.solution(c);
                g += double(a(i, j)) * r;
            }
            EXPECT_NEAR(0.0, g, ls) << m << "x" << n << ": " << j;
        }
    }
}

TEST(KrSvd, NonFiniteInputThrowsPastTheHandler) {
    const auto previous = KrMatrixError::setErrorHandler([](const char*) {});
    KrGenMatrix<double> a(2, 2);
    KrGenMatrix<float> fa(3, 1);
    KrSvd<double> svd;
    KrSvd<float> fsvd;
    a(1, 0) = std::numeric_limits<double>::quiet_NaN();
    expectThrows<IllegalArgumentException>([&] { Krovel::_svdCall(svd, a); }, "NaN");
    fa(2, 0) = -std::numeric_limits<float>::infinity();
    expectThrows<IllegalArgumentException>([&] { Krovel::_svdCall(fsvd, fa); }, "infinite number");
    KrMatrixError::setErrorHandler(previous);
}

TYPED_TEST(KrInverseTyped, AKeptInverterMatchesAFreshInverseAcrossSizes) {
    using T = TypeParam;
    KrInverter<T> inverter;
    // Sizes that come back after others: the workspace asked for at one size
    // must not be used at another.
    const int sizes[] = {3, 6, 3, 1, 9, 6, 6};
    for (int i = 0; i < 7; ++i) {
        const int n = sizes[i];
        const KrGenMatrix<T> a = randomMatrix<T>(n, n, 40 + i, false);
        const KrGenMatrix<T> fresh = inverse(a);
        const KrGenMatrix<T>& kept = inverter.invert(a);
        ASSERT_EQ(n, kept.rows());
        ASSERT_EQ(n, kept.cols());
        for (int r = 0; r < n; ++r)
            for (int c = 0; c < n; ++c)
                ASSERT_EQ(fresh(r, c), kept(r, c)) << n << ": " << r << "," << c;
        // And it is an inverse: the residual bound of the test above.
        const double tol = 4 * n * std::numeric_limits<T>::epsilon() * norm1(a) * norm1(kept);
        for (int r = 0; r < n; ++r) {
            double sum = 0;
            for (int k = 0; k < n; ++k)
                sum += double(a(r, k)) * double(kept(k, r));
            EXPECT_NEAR(1.0, sum, tol) << n << ": " << r;
        }
    }
    KrGenMatrix<T> singular(3, 3);
    expectThrows<KrMatrixError>([&] { inverter.invert(singular); }, "inverse: singular matrix");
    expectThrows<KrMatrixError>([&] { inverter.invert(KrGenMatrix<T>(2, 3)); },
                                "inverse: matrix 2 by 3 is not square");
}
