#include "track/TrTrackInfo.h"

#include <gtest/gtest.h>

namespace {

using Matrix = KrGenMatrix<float>;

// Element (r, c) of the test matrices.
float element(int r, int c) {
    return float(1 + 3 * r + c);
}

TEST(TrStepState, CopiesOwnTheirMatrixInItsLayout) {
    Matrix m(2, 3, Matrix::RowMajor);
    for (int r = 0; r < 2; ++r)
        for (int c = 0; c < 3; ++c)
            m(r, c) = element(r, c);
    TrStepState state;
    // Assigning a plain handle shares, as any handle does.
    state.matrix = m;
    ASSERT_EQ(m.data(), state.matrix.data());

    const TrStepState copied = state;
    TrStepState assigned;
    assigned = state;
    m(1, 2) = -element(1, 2);
    EXPECT_EQ(-element(1, 2), state.matrix(1, 2));
    const TrStepState* copies[] = {&copied, &assigned};
    for (const TrStepState* s : copies) {
        EXPECT_EQ(1u, s->matrix.refCount());
        EXPECT_EQ(m.rowStride(), s->matrix.rowStride());
        EXPECT_EQ(m.colStride(), s->matrix.colStride());
        ASSERT_EQ(2, s->matrix.rows());
        ASSERT_EQ(3, s->matrix.cols());
        for (int r = 0; r < 2; ++r)
            for (int c = 0; c < 3; ++c)
                EXPECT_EQ(element(r, c), s->matrix(r, c)) << r << " " << c;
    }

    // The other way round: writing into a copy leaves the source alone.
    TrStepState again = copied;
    again.matrix(0, 0) = -element(0, 0);
    EXPECT_EQ(element(0, 0), copied.matrix(0, 0));
    // A fresh record has no matrix yet; its copy has none either.
    EXPECT_TRUE(TrStepState(TrStepState()).matrix.isEmpty());
}

} // namespace
