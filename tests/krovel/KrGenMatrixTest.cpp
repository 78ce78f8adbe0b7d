#include "krovel/KrGenMatrix.h"

#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <vector>

namespace {

using MatrixTypes = ::testing::Types<float, double, int>;

// Element r, c of a numbering that differs in every element and fits every type.
template <class T> T label(int r, int c) {
    return T(10 * r + c + 1);
}

template <class T> KrGenMatrix<T> numbered(int rows, int cols, typename KrGenMatrix<T>::Layout l) {
    KrGenMatrix<T> m(rows, cols, l);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c)
            m(r, c) = label<T>(r, c);
    return m;
}

template <class T> class KrGenMatrixTyped : public ::testing::Test {};
TYPED_TEST_SUITE(KrGenMatrixTyped, MatrixTypes);

} // namespace

// GCC 12 cannot see that the copy's release leaves the count above zero and
// warns that the block is read after being freed.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuse-after-free"
TEST(KrGenBlockRef, CountsSharersAndHoldsNothingWhenEmpty) {
    KrGenBlockRef<double> empty(0);
    EXPECT_EQ(nullptr, empty.get());
    EXPECT_EQ(0u, empty.count());

    KrGenBlockRef<double> block(5);
    EXPECT_EQ(5u * sizeof(double), block.bytes());
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(0.0, block.get()[i]);
    {
        KrGenBlockRef<double> other(block);
        EXPECT_EQ(2u, block.count());
        other.assign(other.get());
        EXPECT_EQ(2u, block.count());
    }
    EXPECT_EQ(1u, block.count());
}
#pragma GCC diagnostic pop

TYPED_TEST(KrGenMatrixTyped, LayoutsPlaceElementsByTheirStrides) {
    using M = KrGenMatrix<TypeParam>;
    M col = numbered<TypeParam>(3, 4, M::ColumnMajor);
    M row = numbered<TypeParam>(3, 4, M::RowMajor);
    EXPECT_EQ(1, col.rowStride());
    EXPECT_EQ(3, col.colStride());
    EXPECT_EQ(4, row.rowStride());
    EXPECT_EQ(1, row.colStride());
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 4; ++c) {
            EXPECT_EQ(label<TypeParam>(r, c), col.data()[r + 3 * c]);
            EXPECT_EQ(label<TypeParam>(r, c), row.data()[4 * r + c]);
        }
}

TYPED_TEST(KrGenMatrixTyped, ViewsAndHandleCopiesShareElements) {
    using M = KrGenMatrix<TypeParam>;
    M m = numbered<TypeParam>(4, 5, M::RowMajor);
    M handle = m;
    EXPECT_EQ(2u, m.refCount());
    M view = m(KrRange(1, 2), KrRange(2, 4));
    EXPECT_EQ(2, view.rows());
    EXPECT_EQ(3, view.cols());
    EXPECT_EQ(label<TypeParam>(2, 4), view(1, 2));
    view(0, 0) = TypeParam(-7);
    EXPECT_EQ(TypeParam(-7), handle(1, 2));

    M cols = m(KrAll(), KrRange(3, 3));
    EXPECT_EQ(4, cols.rows());
    EXPECT_EQ(label<TypeParam>(3, 3), cols(3, 0));
    KrGenVector<TypeParam> column = m.column(1);
    column(2) = TypeParam(5);
    EXPECT_EQ(TypeParam(5), m(2, 1));
    EXPECT_EQ(label<TypeParam>(3, 4), m.row(3)(4));
}

TYPED_TEST(KrGenMatrixTyped, FillWritesOnlyTheViewedElements) {
    using M = KrGenMatrix<TypeParam>;
    M m = numbered<TypeParam>(3, 3, M::ColumnMajor);
    M inner = m(KrRange(1, 2), KrRange(0, 1));
    inner = TypeParam(9);
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) {
            const bool inside = r >= 1 && c <= 1;
            EXPECT_EQ(inside ? TypeParam(9) : label<TypeParam>(r, c), m(r, c));
        }
}

TYPED_TEST(KrGenMatrixTyped, CopyIsPrivateAndUniqueTurnsSharedMatricesColumnMajor) {
    using M = KrGenMatrix<TypeParam>;
    M m = numbered<TypeParam>(2, 3, M::RowMajor);
    M c = m.copy(M::RowMajor);
    EXPECT_EQ(1u, c.refCount());
    EXPECT_EQ(1, c.colStride());
    c(0, 0) = TypeParam(0);
    EXPECT_EQ(label<TypeParam>(0, 0), m(0, 0));

    TypeParam* before = m.data();
    m.unique();
    EXPECT_EQ(before, m.data()) << "a private matrix is left alone";

    M sharer = m;
    m.unique();
    EXPECT_NE(before, m.data());
    EXPECT_EQ(1, m.rowStride());
    EXPECT_EQ(2, m.colStride());
    for (int r = 0; r < 2; ++r)
        for (int col = 0; col < 3; ++col)
            EXPECT_EQ(label<TypeParam>(r, col), m(r, col));
    EXPECT_EQ(1u, sharer.refCount());
}

TYPED_TEST(KrGenMatrixTyped, SetFromAnOverlappingViewUsesTheOldValues) {
    using M = KrGenMatrix<TypeParam>;
    for (auto layout : {M::ColumnMajor, M::RowMajor}) {
        M m = numbered<TypeParam>(5, 5, layout);
        M dst = m(KrRange(0, 3), KrRange(1, 4));
        M src = m(KrRange(1, 4), KrRange(0, 3));
        dst.set(src);
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 4; ++c)
                EXPECT_EQ(label<TypeParam>(r + 1, c), m(r, c + 1)) << r << "," << c;
        EXPECT_EQ(label<TypeParam>(4, 4), m(4, 4));
    }
}

TEST(KrGenMatrix, SetMatchesAnElementLoopAcrossLayoutsAndViews) {
    std::mt19937 rng(7);
    using M = KrGenMatrix<double>;
    for (int trial = 0; trial < 40; ++trial) {
        const int rows = 1 + rng() % 6, cols = 1 + rng() % 6;
        M big = numbered<double>(rows + 2, cols + 2, trial % 2 ? M::RowMajor : M::ColumnMajor);
        M src = big(KrRange(1, rows), KrRange(2, cols + 1));
        KrGenMatrix<float> dst(
            rows, cols, trial % 3 ? KrGenMatrix<float>::RowMajor : KrGenMatrix<float>::ColumnMajor);
        dst.set(src);
        M back(rows, cols);
        back.set(dst);
        for (int r = 0; r < rows; ++r)
            for (int c = 0; c < cols; ++c) {
                EXPECT_EQ(float(big(r + 1, c + 2)), dst(r, c));
                EXPECT_EQ(big(r + 1, c + 2), back(r, c));
            }
    }
}

TYPED_TEST(KrGenMatrixTyped, ResizeKeepsTheTopLeftAndChoosesTheLayout) {
    using M = KrGenMatrix<TypeParam>;
    M m = numbered<TypeParam>(3, 3, M::ColumnMajor);
    M sharer = m;
    m.resize(3, 3, M::ColumnMajor);
    EXPECT_EQ(sharer.data(), m.data()) << "same shape and layout keeps the block";
    m.resize(3, 3, M::AnyLayout);
    EXPECT_EQ(sharer.data(), m.data());

    m.resize(3, 3, M::RowMajor);
    EXPECT_NE(sharer.data(), m.data());
    EXPECT_EQ(1, m.colStride());
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            EXPECT_EQ(label<TypeParam>(r, c), m(r, c));

    m.resize(4, 2, M::AnyLayout);
    EXPECT_EQ(1, m.colStride()) << "AnyLayout keeps row-major";
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 2; ++c)
            EXPECT_EQ(r < 3 ? label<TypeParam>(r, c) : TypeParam(0), m(r, c));
    EXPECT_EQ(label<TypeParam>(2, 2), sharer(2, 2)) << "the sharer keeps the old block";
}

TEST(KrGenMatrix, ErrorsReportTheColumnBeforeTheRow) {
    KrGenMatrix<double> m(2, 3);
    expectThrows<KrMatrixError>([&] { m(5, 3); }, "KrMatrix col 3 out of range 0..2");
    expectThrows<KrMatrixError>([&] { m(2, -1); }, "KrMatrix col -1 out of range 0..2");
    expectThrows<KrMatrixError>([&] { m(2, 0); }, "KrMatrix row 2 out of range 0..1");
    expectThrows<KrMatrixError>([&] { m(KrRange(0, 2), KrRange(4, 4)); },
                                "KrMatrix row 2 out of range 0..1");
    expectThrows<KrMatrixError>([&] { m(KrAll(), KrRange(1, 3)); },
                                "KrMatrix col 3 out of range 0..2");
    expectThrows<KrMatrixError>([&] { KrGenMatrix<double>(3, 3).set(m); },
                                "KrMatrix row mismatch 3 != 2");
    expectThrows<KrMatrixError>([&] { KrGenMatrix<double>(2, 4).set(m); },
                                "KrMatrix col mismatch 4 != 3");
    expectThrows<KrMatrixError>([&] { m.resize(-1, 2); },
                                "KrMatrix size -1 by 2 must be nonnegative");
}

TEST(KrGenMatrix, PrintsRightAlignedColumnsWithoutTrailingZeros) {
    KrGenMatrix<double> d(2, 2);
    d(0, 0) = 1.0;
    d(0, 1) = 2.5;
    d(1, 0) = -3.0;
    d(1, 1) = 10.0;
    std::ostringstream out;
    out << d;
    EXPECT_EQ("[[  1. 2.5 ]\n [ -3. 10. ]]\n", out.str());

    KrGenMatrix<int> i(2, 2, KrGenMatrix<int>::RowMajor);
    i(0, 0) = 10;
    i(0, 1) = 7;
    i(1, 0) = -100;
    std::ostringstream ints;
    ints << i;
    EXPECT_EQ("[[   10 7 ]\n [ -100 0 ]]\n", ints.str());

    std::ostringstream none;
    none << KrGenMatrix<double>(0, 3);
    EXPECT_EQ("", none.str());
}
