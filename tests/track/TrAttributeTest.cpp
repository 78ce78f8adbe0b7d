#include "track/TrAttribute.h"

#include "base/Exception.h"
#include "image/GenRect.h"
#include "krovel/AffineTransform.h"
#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>

using Orvane::GenPoint;
using Orvane::GenRect;

namespace {

// Keys 10 -> 1.0 and 20 -> 3.0, the pair most cases below read between.
struct TwoKeys : testing::Test {
    TwoKeys() : attr(nullptr) {
        attr.setValue(10, 1.0);
        attr.setValue(20, 3.0);
    }
    TrAttributeImpl<double> attr;
};

void expectFloatNear(float expected, float actual) {
    EXPECT_NEAR(expected, actual, 4 * FLT_EPSILON * std::max(1.0f, std::abs(expected)));
}

} // namespace

TEST(TrAttribute, UnkeyedDefaultsHoldAtEveryFrame) {
    TrAttributeImpl<double> quality(nullptr);
    TrAttributeImpl<GenPoint<double>> point(nullptr);
    TrAttributeImpl<GenRect<double>> rect(nullptr);
    TrAttributeImpl<AffineTransform> transform(nullptr);
    for (int frame : {INT_MIN, -7, 0, 1, 1000, INT_MAX}) {
        EXPECT_EQ(0.0, quality.getValue(frame));
        EXPECT_EQ(GenPoint<double>(0, 0), point.getValue(frame));
        EXPECT_EQ(GenRect<double>(0, 0, 0, 0), rect.getValue(frame));
        EXPECT_EQ(AffineTransform(0, 0, 0, 1, 1, 1), transform.getValue(frame));
        EXPECT_FALSE(quality.isKeyed(frame));
    }
    EXPECT_EQ(-1, quality.findKey(0));
}

TEST(TrAttribute, EmptyAttributeHasNoFirstOrLastKey) {
    TrAttributeImpl<double> attr(nullptr);
    int frame = 42;
    EXPECT_FALSE(attr.firstKey(frame));
    EXPECT_EQ(42, frame);
    EXPECT_FALSE(attr.lastKey(frame));
    EXPECT_EQ(42, frame);
}

TEST_F(TwoKeys, InterpolatesLinearlyAndHoldsEnds) {
    EXPECT_DOUBLE_EQ(2.0, attr.getValue(15));
    EXPECT_DOUBLE_EQ(1.4, attr.getValue(12));
    EXPECT_EQ(1.0, attr.getValue(5));
    EXPECT_EQ(1.0, attr.getValue(10));
    EXPECT_EQ(3.0, attr.getValue(20));
    EXPECT_EQ(3.0, attr.getValue(25));
    EXPECT_EQ(3.0, attr.getValue(INT_MAX));
    EXPECT_EQ(1.0, attr.getValue(INT_MIN));
}

TEST_F(TwoKeys, FindKeyReturnsFirstKeyAtOrAfterFrame) {
    EXPECT_EQ(0, attr.findKey(-100));
    EXPECT_EQ(0, attr.findKey(10));
    EXPECT_EQ(1, attr.findKey(11));
    EXPECT_EQ(1, attr.findKey(20));
    EXPECT_EQ(2, attr.findKey(21));
}

TEST_F(TwoKeys, KeyingBetweenInsertsInOrderAndKeyingAgainReplaces) {
    EXPECT_FALSE(attr.isKeyed(15));
    attr.setValue(15, 7.0);
    EXPECT_TRUE(attr.isKeyed(15));
    attr.setValue(20, 5.0);
    ASSERT_EQ(3, attr.getKeyCount());
    int first = 0, last = 0;
    EXPECT_TRUE(attr.firstKey(first) && attr.lastKey(last));
    EXPECT_EQ(10, first);
    EXPECT_EQ(20, last);
    const int frames[] = {10, 15, 20};
    const double values[] = {1.0, 7.0, 5.0};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(frames[i], attr.getKeys()[i].frame);
        EXPECT_EQ(values[i], attr.getKeys()[i].value);
    }
    EXPECT_DOUBLE_EQ(3.4, attr.getValue(12)); // 1 + (6 * 2) / 5
}

TEST(TrAttribute, KeysSetInAnyOrderEndSorted) {
    TrAttributeImpl<double> attr(nullptr);
    const int frames[] = {30, -5, 12, 0, 31, -6, 12};
    for (int f : frames)
        attr.setValue(f, f * 0.5);
    ASSERT_EQ(6, attr.getKeyCount());
    for (int i = 1; i < attr.getKeyCount(); ++i)
        EXPECT_LT(attr.getKeys()[i - 1].frame, attr.getKeys()[i].frame);
    for (const TrAttributeKey<double>& k : attr.getKeys())
        EXPECT_EQ(k.frame * 0.5, k.value);
}

TEST_F(TwoKeys, UnkeyedSetDiscardsEveryKey) {
    attr.setValue(9.5);
    EXPECT_EQ(0, attr.getKeyCount());
    int frame = 0;
    EXPECT_FALSE(attr.firstKey(frame));
    for (int f : {5, 10, 15, 20, 25}) {
        EXPECT_FALSE(attr.isKeyed(f));
        EXPECT_EQ(9.5, attr.getValue(f));
    }
    EXPECT_EQ(9.5, attr.getUnkeyedValue());
}

TEST_F(TwoKeys, ClearValueRemovesOnlyAnExactKey) {
    attr.clearValue(5);
    attr.clearValue(15);
    EXPECT_EQ(2, attr.getKeyCount());
    attr.clearValue(20);
    ASSERT_EQ(1, attr.getKeyCount());
    EXPECT_EQ(10, attr.getKeys()[0].frame);
    attr.clearValue(10);
    EXPECT_EQ(0, attr.getKeyCount());
}

TEST_F(TwoKeys, ClearValueAfterLastKeyThrowsIndexError) {
    expectThrows<BadIndexException>([&] { attr.clearValue(30); }, "Array::operator[]");
    EXPECT_EQ(2, attr.getKeyCount());
}

TEST(TrAttribute, ClearValueWithoutKeysDoesNothing) {
    TrAttributeImpl<double> attr(nullptr);
    attr.setValue(4.0);
    attr.clearValue(0);
    attr.clearValue(INT_MAX);
    EXPECT_EQ(4.0, attr.getValue(0));
}

TEST(TrAttribute, NegativeAndExtremeFramesAreOrdinary) {
    TrAttributeImpl<double> attr(nullptr);
    attr.setValue(INT_MIN, 0.0);
    attr.setValue(INT_MAX, 1.0);
    attr.setValue(-3, 2.0);
    EXPECT_TRUE(attr.isKeyed(-3));
    // The span INT_MIN .. -3 exceeds int; the fraction must still be exact.
    const double span = -3.0 - double(INT_MIN);
    EXPECT_DOUBLE_EQ((2.0 * (double(-4) - INT_MIN)) / span, attr.getValue(-4));
    EXPECT_DOUBLE_EQ(2.0 + (-1.0 * 3.0) / (double(INT_MAX) + 3.0), attr.getValue(0));
}

TEST(TrAttribute, RectInterpolatesSizeLikePosition) {
    TrAttributeImpl<GenRect<double>> attr(nullptr);
    attr.setValue(0, GenRect<double>(0, 10, 4, 8));
    attr.setValue(4, GenRect<double>(8, -2, 12, 0));
    // One quarter of the way: (0 + 2, 10 - 3, 4 + 2, 8 - 2).
    const GenRect<double> r = attr.getValue(1);
    EXPECT_DOUBLE_EQ(2.0, r.x);
    EXPECT_DOUBLE_EQ(7.0, r.y);
    EXPECT_DOUBLE_EQ(6.0, r.w);
    EXPECT_DOUBLE_EQ(6.0, r.h);
    // Three quarters: (6, 1, 10, 2).
    const GenRect<double> s = attr.getValue(3);
    EXPECT_DOUBLE_EQ(6.0, s.x);
    EXPECT_DOUBLE_EQ(1.0, s.y);
    EXPECT_DOUBLE_EQ(10.0, s.w);
    EXPECT_DOUBLE_EQ(2.0, s.h);
}

TEST(TrAttribute, TransformInterpolatesEachField) {
    TrAttributeImpl<AffineTransform> attr(nullptr);
    attr.setValue(0, AffineTransform());
    attr.setValue(3, AffineTransform(3, -6, 0.3f, 2, 0.5f, 4));
    // A third of the way from the identity, by hand.
    const AffineTransform t = attr.getValue(1);
    expectFloatNear(1.0f, t.tx);
    expectFloatNear(-2.0f, t.ty);
    expectFloatNear(0.1f, t.ro);
    expectFloatNear(4.0f / 3.0f, t.sc);
    expectFloatNear(5.0f / 6.0f, t.st0);
    expectFloatNear(2.0f, t.st1);
    EXPECT_EQ(AffineTransform(3, -6, 0.3f, 2, 0.5f, 4), attr.getValue(3));
    EXPECT_EQ(AffineTransform(), attr.getValue(-1));
}
