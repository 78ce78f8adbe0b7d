#include "krovel/AffineWarp.h"

#include "image/Format.h"
#include "image/Image.h"
#include "krovel/KrMatrixError.h"
#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <random>

using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::Image;

namespace {

KrGenMatrix<double> randomAffine(std::mt19937& rng, KrGenMatrix<double>::Layout l) {
    std::uniform_real_distribution<double> u(-2, 2);
    KrGenMatrix<double> m(2, 3, l);
    for (int r = 0; r < 2; ++r)
        for (int c = 0; c < 3; ++c)
            m(r, c) = u(rng);
    return m;
}

// A plane sampled at pixel centres, which bilinear sampling reproduces
// exactly wherever it does not clamp.
double plane(double u, double v) {
    return 0.75 * u - 0.5 * v + 3;
}

} // namespace

TEST(AffineWarp, MultiplyIsTheThreeByThreeProductAndComposes) {
    std::mt19937 rng(3);
    std::uniform_real_distribution<double> u(-10, 10);
    for (int trial = 0; trial < 20; ++trial) {
        const KrGenMatrix<double> a = randomAffine(rng, KrGenMatrix<double>::RowMajor);
        const KrGenMatrix<double> b = randomAffine(rng, KrGenMatrix<double>::ColumnMajor);
        const KrGenMatrix<double> ab = multiply2x3(a, b);
        for (int r = 0; r < 2; ++r)
            for (int c = 0; c < 3; ++c) {
                // Row r of [a; 0 0 1] times column c of [b; 0 0 1].
                const double expected = a(r, 0) * b(0, c) + a(r, 1) * b(1, c) + (c == 2) * a(r, 2);
                EXPECT_NEAR(expected, ab(r, c), 1e-14);
            }
        const GenPoint<double> p(u(rng), u(rng));
        const GenPoint<double> direct = transform2x3(ab, p);
        const GenPoint<double> stepwise = transform2x3(a, transform2x3(b, p));
        EXPECT_NEAR(stepwise.x, direct.x, 1e-12);
        EXPECT_NEAR(stepwise.y, direct.y, 1e-12);
    }
}

TEST(AffineWarp, MultiplyIntoAnOperand) {
    std::mt19937 rng(5);
    KrGenMatrix<double> a = randomAffine(rng, KrGenMatrix<double>::RowMajor);
    const KrGenMatrix<double> b = randomAffine(rng, KrGenMatrix<double>::RowMajor);
    const KrGenMatrix<double> expected = multiply2x3(a, b);
    multiply2x3(a, b, a);
    EXPECT_EQ(1, a.colStride()) << "the output keeps its layout";
    for (int r = 0; r < 2; ++r)
        for (int c = 0; c < 3; ++c)
            EXPECT_EQ(expected(r, c), a(r, c));
}

TEST(AffineWarp, WrongShapeIsReported) {
    const KrGenMatrix<float> good(2, 3), tall(3, 3), narrow(2, 2);
    expectThrows<KrMatrixError>([&] { multiply2x3(tall, good); }, "KrMatrix row mismatch 2 != 3");
    expectThrows<KrMatrixError>([&] { multiply2x3(good, narrow); }, "KrMatrix col mismatch 3 != 2");
    expectThrows<KrMatrixError>([&] { transform2x3(narrow, GenPoint<float>()); },
                                "KrMatrix col mismatch 3 != 2");
}

TEST(AffineWarp, CentredWarpMapsAnchorOffsetsToCentreOffsets) {
    // The dst pixel centre p samples src at centre + M (p - anchor).
    const GenRect<int> sb(20, 30, 40, 40);
    Image src(sb, Orvane::Format("l", Orvane::FLOAT, false));
    float* s;
    src.getBuffer(s);
    for (int y = 0; y < sb.h; ++y)
        for (int x = 0; x < sb.w; ++x)
            s[y * sb.w + x] = float(plane(sb.x + x + 0.5, sb.y + y + 0.5));

    Image dst(GenRect<int>(-5, -5, 11, 11), Orvane::Format("l", Orvane::FLOAT, false));
    const GenPoint<float> anchor(0.25f, -0.5f), centre(40.5f, 49.75f);
    const double c = std::cos(0.4), s4 = std::sin(0.4);
    KrGenMatrix<float> m(2, 3, KrGenMatrix<float>::RowMajor);
    m(0, 0) = float(1.1 * c), m(0, 1) = float(-1.1 * s4), m(0, 2) = 1.5f;
    m(1, 0) = float(0.9 * s4), m(1, 1) = float(0.9 * c), m(1, 2) = -0.75f;
    Orvane::xform_bilinear<float>(src, dst, m, centre, anchor);
    float* p;
    dst.getBuffer(p);
    for (int y = 0; y < 11; ++y)
        for (int x = 0; x < 11; ++x) {
            const double dx = -5 + x + 0.5 - anchor.x, dy = -5 + y + 0.5 - anchor.y;
            const double u = centre.x + m(0, 0) * dx + m(0, 1) * dy + m(0, 2);
            const double v = centre.y + m(1, 0) * dx + m(1, 1) * dy + m(1, 2);
            // Positions are formed in float, about 50 pixels from the origin.
            EXPECT_NEAR(plane(u, v), p[y * 11 + x], 16 * FLT_EPSILON * 50) << x << "," << y;
        }
}
