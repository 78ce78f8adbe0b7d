#include "krovel/KrGenVector.h"
#include "krovel/KrVectorKernels.h"

#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

TEST(KrGenVector, ViewsOfExternalMemoryWriteThroughUnlessCopied) {
    float data[3] = {1, 2, 3};
    KrGenVector<float> view(data, 3, false);
    EXPECT_EQ(0u, view.refCount());
    view(1) = 20;
    EXPECT_EQ(20, data[1]);

    KrGenVector<float> own(data, 3, true);
    EXPECT_EQ(1u, own.refCount());
    own(0) = -1;
    EXPECT_EQ(1, data[0]);
    EXPECT_EQ(20, own(1));
}

TEST(KrGenVector, SetFromAnOverlappingWindowUsesTheOldValues) {
    KrGenMatrix<int> m(1, 8, KrGenMatrix<int>::RowMajor);
    for (int c = 0; c < 8; ++c)
        m(0, c) = c * c;
    KrGenVector<int> left = m(KrAll(), KrRange(0, 5)).row(0);
    KrGenVector<int> right = m(KrAll(), KrRange(2, 7)).row(0);
    left.set(right);
    for (int c = 0; c < 6; ++c)
        EXPECT_EQ((c + 2) * (c + 2), m(0, c));

    KrGenVector<double> wide(6);
    wide.set(left);
    EXPECT_EQ(double((5 + 2) * (5 + 2)), wide(5));
}

TEST(KrGenVector, ResizeKeepsThePrefixAndStridedVectorsOfEqualLength) {
    KrGenMatrix<float> m(2, 3, KrGenMatrix<float>::RowMajor);
    m(0, 1) = 4;
    m(1, 1) = 5;
    KrGenVector<float> column = m.column(1);
    column.resize(2);
    EXPECT_EQ(3, column.stride());
    column.resize(4);
    EXPECT_EQ(1, column.stride());
    EXPECT_EQ(4, column(0));
    EXPECT_EQ(5, column(1));
    EXPECT_EQ(0, column(3));
    column(0) = 7;
    EXPECT_EQ(4, m(0, 1)) << "the resized vector has its own block";
}

TEST(KrGenVector, ScalesAndMultipliesElementwiseThroughStrides) {
    KrGenMatrix<double> m(2, 3, KrGenMatrix<double>::RowMajor);
    m = 6.0;
    KrGenVector<double> column = m.column(0);
    column /= 4.0;
    EXPECT_EQ(1.5, m(1, 0));
    KrGenVector<double> factors(2, 2.0);
    factors(1) = -1;
    column *= factors;
    EXPECT_EQ(3.0, m(0, 0));
    EXPECT_EQ(-1.5, m(1, 0));
    EXPECT_EQ(6.0, m(1, 1));
}

TEST(KrGenVector, ErrorsHaveTheirTexts) {
    KrGenVector<float> v(3, 1.0f);
    expectThrows<KrMatrixError>([&] { (void)v(-1); }, "KrVector index -1 out of range 2");
    expectThrows<KrMatrixError>([&] { (void)v[3]; }, "KrVector index 3 out of range 2");
    expectThrows<KrMatrixError>([] { KrGenVector<int>(-2); },
                                "KrVector length -2 must be nonnegative");
    expectThrows<KrMatrixError>([] { KrGenVector<int>(nullptr, -1, false); },
                                "KrVector length -1 must be nonnegative");
    expectThrows<KrMatrixError>([&] { KrGenVector<float>(4).set(v); },
                                "KrVector length mismatch 4 != 3");
    expectThrows<KrMatrixError>([&] { covariance(v, KrGenVector<float>(2)); },
                                "KrVector length mismatch 3 != 2");
}

namespace {

template <class T> std::vector<T> randomValues(int n, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> u(-1, 1);
    std::vector<T> v(n);
    for (auto& x : v)
        x = T(u(rng));
    return v;
}

} // namespace

TEST(KrVectorKernels, SumsMatchAnExtendedPrecisionReference) {
    for (int n : {0, 1, 3, 4, 8, 16, 37, 64, 1024}) {
        auto v = randomValues<float>(3 * n, 11 + n);
        long double sum = 0, strided = 0, sq = 0, stridedSq = 0, absSum = 0;
        for (int i = 0; i < n; ++i) {
            sum += v[i];
            sq += (long double)v[i] * v[i];
            strided += v[3 * i];
            stridedSq += (long double)v[3 * i] * v[3 * i];
            absSum += std::fabs(v[i]) + std::fabs(v[3 * i]);
        }
        // Recursive summation errs by at most (n - 1)·ε·Σ|x|.
        const double tol = (n + 1) * FLT_EPSILON * double(absSum + sq + stridedSq);
        EXPECT_NEAR(double(sum), Krovel::_vector_sum(v.data(), n), tol) << n;
        EXPECT_NEAR(double(sum), Krovel::_vector_sum_2(v.data(), n), tol) << n;
        EXPECT_NEAR(double(strided), Krovel::_vector_sum(v.data(), n, 3), tol) << n;
        EXPECT_NEAR(double(sq), Krovel::_vector_norm2(v.data(), n), tol) << n;
        EXPECT_NEAR(double(sq), Krovel::_vector_norm2_2(v.data(), n), tol) << n;
        EXPECT_NEAR(double(stridedSq), Krovel::_vector_norm2(v.data(), n, 3), tol) << n;
    }
}

TEST(KrVectorKernels, PairwiseSumStaysWithinItsLogarithmicBound) {
    const int n = 1 << 20;
    std::vector<float> v(n, 0.1f);
    const double exact = double(n) * double(0.1f);
    // Pairwise summation errs by at most log2(n)·ε·Σ|x|; the plain loop does not.
    const double bound = 20 * FLT_EPSILON * exact;
    EXPECT_NEAR(exact, Krovel::_vector_sum_2(v.data(), n), bound);
    EXPECT_GT(std::fabs(Krovel::_vector_sum(v.data(), n) - exact), bound);
    EXPECT_NEAR(n * 0.1 * 0.1, Krovel::_vector_norm2_2(v.data(), n), 20 * FLT_EPSILON * n * 0.01);
}

TEST(KrVectorKernels, CovarianceMatchesTheTwoPassFormula) {
    auto a = randomValues<float>(50, 1);
    auto b = randomValues<float>(100, 2);
    KrGenVector<float> va(a.data(), 50, false);
    KrGenMatrix<float> mb(b.data(), 50, 2, KrGenMatrix<float>::RowMajor);
    KrGenVector<float> vb = mb.column(1);
    long double ma = 0, mbar = 0;
    for (int i = 0; i < 50; ++i) {
        ma += a[i];
        mbar += b[2 * i + 1];
    }
    ma /= 50;
    mbar /= 50;
    long double cov = 0;
    for (int i = 0; i < 50; ++i)
        cov += (a[i] - ma) * (b[2 * i + 1] - mbar);
    cov /= 50;
    EXPECT_NEAR(double(cov), covariance(va, vb), 50 * DBL_EPSILON);
    EXPECT_TRUE(std::isnan(covariance(KrGenVector<float>(), KrGenVector<float>())));
}

TEST(KrVectorKernels, FiniteRejectsNaNAndInfinityAnywhere) {
    KrGenMatrix<double> m(3, 3);
    EXPECT_TRUE(finite(m));
    m(2, 1) = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(finite(m));
    EXPECT_TRUE(finite(m(KrAll(), KrRange(0, 0))));
    KrGenVector<double> v(4, 1.0);
    EXPECT_TRUE(finite(v));
    v(3) = -std::numeric_limits<double>::infinity();
    EXPECT_FALSE(finite(v));
    EXPECT_FALSE(finite(m.row(2)));
}
