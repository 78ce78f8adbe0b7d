#include "krovel/KrInverse.h"

#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <random>
#include <string>
#include <vector>

namespace {

// A random matrix whose diagonal outweighs the rest of its column, so it is
// well conditioned and LU factorises it without row interchanges.
template <class T>
KrGenMatrix<T> columnDominant(int n, std::mt19937& rng, typename KrGenMatrix<T>::Layout l) {
    std::uniform_real_distribution<double> u(-1, 1);
    KrGenMatrix<T> a(n, n, l);
    for (int c = 0; c < n; ++c) {
        for (int r = 0; r < n; ++r)
            a(r, c) = T(u(rng));
        a(c, c) = T((n + 1) * (u(rng) < 0 ? -1 : 1));
    }
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

// Laplace expansion along the first row: slow, but independent of LU.
long double cofactorDeterminant(const std::vector<std::vector<long double>>& a) {
    const size_t n = a.size();
    if (n == 1)
        return a[0][0];
    long double det = 0;
    for (size_t j = 0; j < n; ++j) {
        std::vector<std::vector<long double>> minor;
        for (size_t r = 1; r < n; ++r) {
            std::vector<long double> row;
            for (size_t c = 0; c < n; ++c)
                if (c != j)
                    row.push_back(a[r][c]);
            minor.push_back(row);
        }
        det += (j % 2 ? -1 : 1) * a[0][j] * cofactorDeterminant(minor);
    }
    return det;
}

long double cofactorDeterminant(const KrGenMatrix<double>& m) {
    std::vector<std::vector<long double>> a(m.rows(), std::vector<long double>(m.cols()));
    for (int r = 0; r < m.rows(); ++r)
        for (int c = 0; c < m.cols(); ++c)
            a[r][c] = m(r, c);
    return cofactorDeterminant(a);
}

template <class T> class KrInverseTyped : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(KrInverseTyped, Precisions);

std::vector<std::string> reported;
void record(const char* message) {
    reported.push_back(message);
}

} // namespace

TYPED_TEST(KrInverseTyped, TimesTheMatrixGivesTheIdentity) {
    using M = KrGenMatrix<TypeParam>;
    const double eps = std::numeric_limits<TypeParam>::epsilon();
    std::mt19937 rng(3);
    for (int n = 1; n <= 9; ++n) {
        M a = columnDominant<TypeParam>(n, rng, n % 2 ? M::RowMajor : M::ColumnMajor);
        M inv = inverse(a);
        ASSERT_EQ(n, inv.rows());
        EXPECT_EQ(1, inv.rowStride()) << "the inverse is column-major";
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

TEST(KrInverse, TwoByTwoMatchesTheAdjugate) {
    KrGenMatrix<double> a(2, 2, KrGenMatrix<double>::RowMajor);
    a(0, 0) = 4, a(0, 1) = 7, a(1, 0) = 2, a(1, 1) = 6;
    const double det = 4 * 6 - 7 * 2;
    KrGenMatrix<double> inv = inverse(a);
    EXPECT_NEAR(6 / det, inv(0, 0), 4 * DBL_EPSILON);
    EXPECT_NEAR(-7 / det, inv(0, 1), 4 * DBL_EPSILON);
    EXPECT_NEAR(-2 / det, inv(1, 0), 4 * DBL_EPSILON);
    EXPECT_NEAR(4 / det, inv(1, 1), 4 * DBL_EPSILON);
    EXPECT_EQ(4.0, a(0, 0)) << "the argument is left alone";
}

TEST(KrInverse, SingularAndNonSquareMatricesAreReported) {
    expectThrows<KrMatrixError>([] { inverse(KrGenMatrix<float>(2, 2)); },
                                "inverse: singular matrix");
    expectThrows<KrMatrixError>([] { inverse(KrGenMatrix<double>(2, 2)); },
                                "inverse: singular matrix");
    expectThrows<KrMatrixError>([] { inverse(KrGenMatrix<double>(2, 3)); },
                                "inverse: matrix 2 by 3 is not square");
    expectThrows<KrMatrixError>([] { determinant(KrGenMatrix<double>(3, 3)); },
                                "inverse: singular matrix");
    expectThrows<KrMatrixError>([] { determinant(KrGenMatrix<double>(3, 1)); },
                                "inverse: matrix 3 by 1 is not square");
    EXPECT_EQ(0, inverse(KrGenMatrix<double>()).rows());
}

TEST(KrInverse, WithAHandlerTheSingularResultIsStillReturned) {
    reported.clear();
    auto previous = KrMatrixError::setErrorHandler(record);
    KrGenMatrix<float> result = inverse(KrGenMatrix<float>(2, 2));
    KrMatrixError::setErrorHandler(previous);
    EXPECT_EQ(2, result.rows());
    // Once from the factorisation, once from the inversion.
    EXPECT_EQ(std::vector<std::string>(2, "inverse: singular matrix"), reported);
}

TEST(KrDeterminant, FlipsTheSignForEveryPivotComparedWithItsZeroBasedIndex) {
    KrGenMatrix<double> three(1, 1);
    three(0, 0) = 3;
    EXPECT_EQ(-3.0, determinant(three));
    KrGenMatrix<double> identity(3, 3);
    for (int i = 0; i < 3; ++i)
        identity(i, i) = 1;
    EXPECT_EQ(-1.0, determinant(identity));
    EXPECT_EQ(1.0, determinant(identity(KrRange(0, 1), KrRange(0, 1))));
    EXPECT_EQ(1.0, determinant(KrGenMatrix<double>()));

    // LAPACK pivots count from 1, so every one differs from its 0-based index:
    // the result is (-1)^n (-1)^swaps times the true determinant.
    std::mt19937 rng(5);
    for (int n = 1; n <= 6; ++n) {
        KrGenMatrix<double> a = columnDominant<double>(n, rng, KrGenMatrix<double>::ColumnMajor);
        const long double det = cofactorDeterminant(a);
        const double tol = 8 * n * DBL_EPSILON * std::fabs(double(det));
        EXPECT_NEAR(double((n % 2 ? -1 : 1) * det), determinant(a), tol) << n;
        if (n < 2)
            continue;
        // Exchanging the first two rows costs LU one interchange.
        KrGenMatrix<double> swapped = a.copy();
        for (int c = 0; c < n; ++c)
            std::swap(swapped(0, c), swapped(1, c));
        EXPECT_NEAR(double((n % 2 ? 1 : -1) * cofactorDeterminant(swapped)), determinant(swapped),
                    tol)
            << n;
    }
}
