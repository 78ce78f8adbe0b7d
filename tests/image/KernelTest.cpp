#include "image/Kernel.h"

#include "support/ExpectThrows.h"

#include <cmath>

using namespace Orvane;

TEST(Kernel, IntTableHasTheDocumentedShape) {
    kernel<int> k(3, 10, 256);
    EXPECT_EQ(6144, k.count);
    EXPECT_EQ(-3072, k.first);
    EXPECT_EQ(3, k.radius);
    EXPECT_EQ(10, k.bits);
    EXPECT_EQ(256, k.amplitude);
    EXPECT_EQ(254, k.table[3072]);
}

TEST(Kernel, EntriesSampleTheGaussianAndAreSymmetric) {
    const kernel<int>& ik = getIntKern();
    const kernel<float>& fk = getFloatKern();
    ASSERT_EQ(6144, ik.count);
    ASSERT_EQ(6144, fk.count);
    for (int i = 0; i < ik.count; ++i) {
        double x = i / 1024.0 - 3.0;
        double g = std::exp(-(1.5 * x) * (1.5 * x)) - 0.006329715427485747;
        ASSERT_EQ(int(g * 256), ik.table[i]) << i;
        ASSERT_EQ(float(g * 256), fk.table[i]) << i;
        if (i > 0) {
            ASSERT_EQ(ik.table[i], ik.table[6144 - i]) << i;
        }
    }
    // The tail past 1.5 is negative, and the integer table truncates it.
    EXPECT_EQ(-1, ik.table[0]);
    EXPECT_LT(fk.table[0], 0.0f);
}

TEST(Kernel, SharedInstancesAreBuiltOnce) {
    EXPECT_EQ(&getIntKern(), &getIntKern());
    EXPECT_EQ(&getFloatKern(), &getFloatKern());
    EXPECT_EQ(256.0f, getFloatKern().amplitude);
    EXPECT_EQ(65536, getFixOne());
    EXPECT_EQ(&getFixOne(), &getFixOne());
}

TEST(Kernel, RejectsShapesTheFixedPointCannotHold) {
    expectThrows<IllegalArgumentException>([] { kernel<int>(0, 10, 256); },
                                           "kernel: radius or bits out of range");
    expectThrows<IllegalArgumentException>([] { kernel<int>(3, 17, 256); },
                                           "kernel: radius or bits out of range");
    expectThrows<IllegalArgumentException>([] { kernel<float>(3, -1, 1.0f); },
                                           "kernel: radius or bits out of range");
    kernel<float> coarse(1, 0, 1.0f);
    EXPECT_EQ(2, coarse.count);
    EXPECT_FLOAT_EQ(float(std::exp(-2.25) - 0.006329715427485747), coarse.table[0]);
}
