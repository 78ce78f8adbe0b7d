#include "image/ChannelOps.h"

#include "support/ExpectThrows.h"
#include "support/PixelProbe.h"

#include <random>

using namespace Orvane;
using testsupport::DatatypeOf;
using testsupport::sampleAt;
using Rect = GenRect<int>;

namespace {
template <class T> class ChannelOpsPerType : public testing::Test {};
TYPED_TEST_SUITE(ChannelOpsPerType, testsupport::SampleTypes);
} // namespace

TYPED_TEST(ChannelOpsPerType, ExtractChannelNamesItAndConvertsByTheTable) {
    using T = TypeParam;
    const int dt = DatatypeOf<T>::value;
    std::mt19937 rng(17);
    Image src(Rect(-4, 2, 5, 3), Format("xbgr", UB1, false));
    auto* p = static_cast<unsigned char*>(src.getBuffer());
    for (int i = 0; i < 60; ++i)
        p[i] = static_cast<unsigned char>(rng());

    Image g = extractChannel(src, 2, dt);
    EXPECT_EQ(Format("g", dt, true), g.getFormat());
    EXPECT_EQ(src.getBounds(), g.getBounds());
    Image pad = extractChannel(convertToDatatype(src, dt), 0);
    EXPECT_EQ(Format("x", dt, true), pad.getFormat());
    for (int y = 2; y < 5; ++y)
        for (int x = -4; x < 1; ++x) {
            T green, padding;
            convertData(&sampleAt<unsigned char>(src, x, y, 2), &green, dt, 1);
            convertData(&sampleAt<unsigned char>(src, x, y, 0), &padding, dt, 1);
            EXPECT_EQ(green, sampleAt<T>(g, x, y, 0));
            EXPECT_EQ(padding, sampleAt<T>(pad, x, y, 0));
        }
}

TEST(CopyChannel, ConvertsOneChannelAndLeavesTheOthers) {
    Image src(Rect(0, 0, 2, 2), Format::getBGRA());
    Image dst(Rect(50, 60, 2, 2), Format::getRGB().withDatatype(FLOAT));
    for (int i = 0; i < 4; ++i) {
        for (int k = 0; k < 4; ++k)
            sampleAt<unsigned char>(src, i % 2, i / 2, k) = static_cast<unsigned char>(51 * i);
        for (int k = 0; k < 3; ++k)
            sampleAt<float>(dst, 50 + i % 2, 60 + i / 2, k) = -1.0f;
    }
    // Source green (position 1) into destination blue (position 2).
    copyChannel(src, dst, 1, 2);
    for (int i = 0; i < 4; ++i) {
        EXPECT_FLOAT_EQ(0.2f * i, sampleAt<float>(dst, 50 + i % 2, 60 + i / 2, 2));
        EXPECT_EQ(-1.0f, sampleAt<float>(dst, 50 + i % 2, 60 + i / 2, 0));
        EXPECT_EQ(-1.0f, sampleAt<float>(dst, 50 + i % 2, 60 + i / 2, 1));
    }
}

TEST(CopyChannel, RejectsMismatchedShapesPositionsAndDatatypes) {
    Image src(Rect(0, 0, 3, 2), Format::getRGB());
    Image l(Rect(0, 0, 3, 2), Format::getL());
    expectThrows<IllegalArgumentException>(
        [&] { copyChannel(src, Image(Rect(0, 0, 2, 2), Format::getL()), 0, 0); },
        "image bounds mismatch");
    expectThrows<BadIndexException>([&] { copyChannel(src, l, 3, 0); },
                                    "channel position out of range");
    expectThrows<BadIndexException>([&] { copyChannel(src, l, 0, -1); },
                                    "channel position out of range");
    expectThrows<BadIndexException>([&] { extractChannel(src, -1); },
                                    "channel position out of range");
    Image unknown(Rect(0, 0, 3, 2), Format::getL());
    unknown.setFormat(Format("l", 0, false));
    expectThrows<IllegalArgumentException>([&] { copyChannel(unknown, l, 0, 0); },
                                           "src datatype unknown");
    expectThrows<IllegalArgumentException>([&] { copyChannel(l, unknown, 0, 0); },
                                           "dst datatype unknown");
}
