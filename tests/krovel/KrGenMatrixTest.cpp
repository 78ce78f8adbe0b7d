#include "krovel/KrGenMatrix.h"
#include "krovel/KrGenVector.h"
#include "krovel/KrMatrixError.h"
#include "krovel/KrVectorKernels.h"

#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using M = KrGenMatrix<double>;

// A value that differs in every element.
double label(int r, int c) {
    return 10 * r + c + 1;
}

M numbered(int rows, int cols, M::Layout l) {
    M m(rows, cols, l);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c)
            m(r, c) = label(r, c);
    return m;
}

std::vector<std::string> reported;

} // namespace

TEST(KrGenMatrix, ViewsShareStorageAndWriteThrough) {
    M m = numbered(4, 5, M::RowMajor);
    M handle = m;
    M view = m(KrRange(1, 2), KrRange(2, 4));
    EXPECT_EQ(label(2, 4), view(1, 2));
    view(0, 0) = -7;
    EXPECT_EQ(-7, handle(1, 2));
    m.column(1)(2) = 5;
    EXPECT_EQ(5, m(2, 1));
}

TEST(KrGenMatrix, SetFromAnOverlappingViewUsesTheOldValues) {
    for (auto layout : {M::ColumnMajor, M::RowMajor}) {
        M m = numbered(5, 5, layout);
        m(KrRange(0, 3), KrRange(1, 4)).set(m(KrRange(1, 4), KrRange(0, 3)));
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 4; ++c)
                EXPECT_EQ(label(r + 1, c), m(r, c + 1)) << r << "," << c;
    }
}

TEST(KrGenMatrix, ResizeAndUniqueChooseTheBlockAndLayout) {
    M m = numbered(3, 3, M::ColumnMajor);
    M sharer = m;
    m.resize(3, 3, M::ColumnMajor);
    EXPECT_EQ(sharer.data(), m.data()) << "same shape and layout keeps the block";
    m.resize(3, 3, M::RowMajor);
    EXPECT_NE(sharer.data(), m.data());
    EXPECT_EQ(1, m.colStride());
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            EXPECT_EQ(label(r, c), m(r, c));

    // m is now row-major and private; unique leaves it alone until it is shared.
    const double* before = m.data();
    m.unique();
    EXPECT_EQ(before, m.data());
    sharer = m;
    m.unique();
    EXPECT_NE(before, m.data());
    EXPECT_EQ(1, m.rowStride()) << "a shared matrix turns column-major";
    EXPECT_EQ(label(2, 1), m(2, 1));
}

TEST(KrGenMatrix, ErrorTexts) {
    M m(2, 3);
    KrGenVector<float> v(3, 1.0f);
    const struct {
        std::function<void()> call;
        const char* text;
    } cases[] = {
        {[&] { m(5, 3); }, "KrMatrix col 3 out of range 0..2"},
        {[&] { m(2, -1); }, "KrMatrix col -1 out of range 0..2"},
        {[&] { m(2, 0); }, "KrMatrix row 2 out of range 0..1"},
        {[&] { m(KrRange(0, 2), KrRange(4, 4)); }, "KrMatrix row 2 out of range 0..1"},
        {[&] { m(KrAll(), KrRange(1, 3)); }, "KrMatrix col 3 out of range 0..2"},
        {[&] { M(3, 3).set(m); }, "KrMatrix row mismatch 3 != 2"},
        {[&] { M(2, 4).set(m); }, "KrMatrix col mismatch 4 != 3"},
        {[&] { m.resize(-1, 2); }, "KrMatrix size -1 by 2 must be nonnegative"},
        {[&] { (void)v(-1); }, "KrVector index -1 out of range 2"},
        {[&] { (void)v[3]; }, "KrVector index 3 out of range 2"},
        {[] { KrGenVector<int>(-2); }, "KrVector length -2 must be nonnegative"},
        {[&] { KrGenVector<float>(4).set(v); }, "KrVector length mismatch 4 != 3"},
        {[&] { covariance(v, KrGenVector<float>(2)); }, "KrVector length mismatch 3 != 2"},
        {[] { KrMatrixError::err("a %d b %s", 7, "c"); }, "a 7 b c"},
    };
    for (const auto& c : cases)
        expectThrows<KrMatrixError>(c.call, c.text);
}

TEST(KrGenMatrix, WithAHandlerTheAccessGoesAhead) {
    KrGenMatrix<int> m(4, 4, KrGenMatrix<int>::RowMajor);
    m(2, 0) = 42;
    KrGenMatrix<int> corner = m(KrRange(0, 1), KrRange(0, 1));
    reported.clear();
    const auto previous =
        KrMatrixError::setErrorHandler([](const char* s) { reported.push_back(s); });
    // Row 2 lies outside the view but inside its parent, at the computed address.
    EXPECT_EQ(&m(2, 0), &corner(2, 0));
    KrGenVector<int> shorter(3);
    shorter.set(m.row(2));
    KrMatrixError::setErrorHandler(previous);
    EXPECT_EQ(42, shorter(0)) << "the common part is copied";
    EXPECT_EQ((std::vector<std::string>{"KrMatrix row 2 out of range 0..1",
                                        "KrVector length mismatch 3 != 4"}),
              reported);
}

TEST(KrGenMatrix, PrintsWithoutTrailingZeros) {
    M d(2, 2);
    d(0, 0) = 1, d(0, 1) = 2.5, d(1, 0) = -3, d(1, 1) = 10;
    KrGenMatrix<int> i(2, 2, KrGenMatrix<int>::RowMajor);
    i(0, 0) = 10, i(0, 1) = 7, i(1, 0) = -100;
    std::ostringstream out;
    out << d << '|' << i << '|' << M(0, 3) << '|';
    EXPECT_EQ("[[  1. 2.5 ]\n [ -3. 10. ]]\n|[[   10 7 ]\n [ -100 0 ]]\n||", out.str());
}

TEST(KrVectorKernels, SumsMatchALongDoubleReference) {
    for (int n : {0, 1, 3, 4, 8, 37, 1024}) {
        std::mt19937 rng(11 + n);
        std::uniform_real_distribution<float> u(-1, 1);
        std::vector<float> v(3 * n);
        for (float& x : v)
            x = u(rng);
        long double sum = 0, strided = 0, sq = 0, stridedSq = 0;
        for (int i = 0; i < n; ++i) {
            sum += v[i], strided += v[3 * i];
            sq += (long double)v[i] * v[i], stridedSq += (long double)v[3 * i] * v[3 * i];
        }
        // Recursive summation errs by at most (n - 1)·ε·Σ|x|, and |x| ≤ 1.
        const double tol = (n + 1) * FLT_EPSILON * 2 * n;
        EXPECT_NEAR(double(sum), Krovel::_vector_sum(v.data(), n), tol) << n;
        EXPECT_NEAR(double(sum), Krovel::_vector_sum_2(v.data(), n), tol) << n;
        EXPECT_NEAR(double(strided), Krovel::_vector_sum(v.data(), n, 3), tol) << n;
        EXPECT_NEAR(double(sq), Krovel::_vector_norm2(v.data(), n), tol) << n;
        EXPECT_NEAR(double(sq), Krovel::_vector_norm2_2(v.data(), n), tol) << n;
        EXPECT_NEAR(double(stridedSq), Krovel::_vector_norm2(v.data(), n, 3), tol) << n;
    }
}

TEST(KrMatrixError, KrexceptionEchoesTheMessageToStandardError) {
    // The child re-executes the binary, so it reads the variable afresh; it
    // raises one error, catches it and leaves quietly.
    const auto raise = [] {
        try {
            KrGenVector<double>(2)(5) = 1;
        } catch (const KrMatrixError&) {
            _exit(0);
        }
        _exit(1);
    };
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    setenv("KREXCEPTION", "", 1);
    EXPECT_EXIT(raise(), ::testing::ExitedWithCode(0),
                "^Matrix exception - KrVector index 5 out of range 1\n$");
    unsetenv("KREXCEPTION");
    EXPECT_EXIT(raise(), ::testing::ExitedWithCode(0), "^$");
}
