#include "image/Convert.h"

#include "image/DatatypeSwitch.h"
#include "support/ExpectThrows.h"
#include "support/PixelProbe.h"

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

using namespace Orvane;
using testsupport::DatatypeOf;
using testsupport::sampleAt;
using Rect = GenRect<int>;

namespace {

// One sample of any datatype, carried as a double (every UB4 value is exact).
struct Raw {
    unsigned char bytes[8] = {};
};

Raw encode(int datatype, double v) {
    Raw r;
    switchDatatype(datatype, "test", [&](auto s) {
        auto t = static_cast<typename decltype(s)::type>(v);
        std::memcpy(r.bytes, &t, sizeof t);
    });
    return r;
}

double decode(int datatype, const Raw& r) {
    return switchDatatype(datatype, "test", [&](auto s) {
        typename decltype(s)::type t;
        std::memcpy(&t, r.bytes, sizeof t);
        return static_cast<double>(t);
    });
}

struct Cell {
    int from;
    double in;
    int to;
    double out;
};

// Derived from what samples stand for: fixed point 0..max is 0..1, so UB1 to
// UB2 multiplies by 65535 / 255 = 257 and UB2 to UB4 by 65537, narrowing
// keeps the high bits, and float to fixed clamps then truncates. UB4 to
// float scales by 2^-32, putting half the range at exactly 0.5; float 1.0
// and above scale to 2^32, whose low 32 bits are 0.
// clang-format off
const Cell cells[] = {
    {UB1, 0, UB2, 0}, {UB1, 1, UB2, 257}, {UB1, 128, UB2, 0x8080}, {UB1, 255, UB2, 65535},
    {UB1, 0, UB4, 0}, {UB1, 1, UB4, 0x01010101},
    {UB1, 128, UB4, 0x80808080}, {UB1, 255, UB4, 4294967295.0},
    {UB1, 0, FLOAT, 0}, {UB1, 51, FLOAT, 0.2}, {UB1, 204, FLOAT, 0.8}, {UB1, 255, FLOAT, 1},
    {UB1, 0, DOUBLE, 0}, {UB1, 51, DOUBLE, 0.2}, {UB1, 255, DOUBLE, 1},
    {UB2, 0, UB1, 0}, {UB2, 0x00FF, UB1, 0},
    {UB2, 0x0100, UB1, 1}, {UB2, 0x80FF, UB1, 0x80}, {UB2, 65535, UB1, 255},
    {UB2, 0, UB4, 0}, {UB2, 0x1234, UB4, 0x12341234}, {UB2, 65535, UB4, 4294967295.0},
    {UB2, 0, FLOAT, 0}, {UB2, 13107, FLOAT, 0.2}, {UB2, 65535, FLOAT, 1},
    {UB2, 0, DOUBLE, 0}, {UB2, 13107, DOUBLE, 0.2}, {UB2, 65535, DOUBLE, 1},
    {UB4, 0, UB1, 0}, {UB4, 0x00FFFFFF, UB1, 0},
    {UB4, 0x80FFFFFF, UB1, 0x80}, {UB4, 4294967295.0, UB1, 255},
    {UB4, 0, UB2, 0}, {UB4, 0x1234FFFF, UB2, 0x1234}, {UB4, 4294967295.0, UB2, 65535},
    {UB4, 0, FLOAT, 0}, {UB4, 256, FLOAT, 0x1p-24},
    {UB4, 0x80000000, FLOAT, 0.5}, {UB4, 4294967295.0, FLOAT, 1},
    {UB4, 0, DOUBLE, 0}, {UB4, 1, DOUBLE, 2.3283064370807974e-10}, {UB4, 4294967295.0, DOUBLE, 1},
    {FLOAT, -0.2, UB1, 0}, {FLOAT, 0, UB1, 0}, {FLOAT, 0.2, UB1, 51},
    {FLOAT, 0.5, UB1, 127}, {FLOAT, 1, UB1, 255}, {FLOAT, 1.5, UB1, 255},
    {FLOAT, -1, UB2, 0}, {FLOAT, 0.5, UB2, 32767}, {FLOAT, 1, UB2, 65535}, {FLOAT, 2, UB2, 65535},
    {FLOAT, -3, UB4, 0}, {FLOAT, 0.25, UB4, 1073741824}, {FLOAT, 0.5, UB4, 2147483648.0},
    {FLOAT, 1.0 - 0x1p-24, UB4, 4294967296.0 - 256}, {FLOAT, 1, UB4, 0}, {FLOAT, 1.5, UB4, 0},
    {FLOAT, -7.25, DOUBLE, -7.25}, {FLOAT, 0.2, DOUBLE, 0.20000000298023224},
    {DOUBLE, -1, UB1, 0}, {DOUBLE, 0.2, UB1, 51},
    {DOUBLE, 0.5, UB1, 127}, {DOUBLE, 1, UB1, 255}, {DOUBLE, 2, UB1, 255},
    {DOUBLE, -0.1, UB2, 0}, {DOUBLE, 0.5, UB2, 32767}, {DOUBLE, 1, UB2, 65535},
    {DOUBLE, -1, UB4, 0}, {DOUBLE, 0.5, UB4, 2147483647},
    {DOUBLE, 1, UB4, 4294967295.0}, {DOUBLE, 3, UB4, 4294967295.0},
    {DOUBLE, -2.5, FLOAT, -2.5}, {DOUBLE, 0.1, FLOAT, 0.1}, {DOUBLE, 1e-50, FLOAT, 0},
};
// clang-format on

void expectConverted(const Cell& c, const Raw& got) {
    double v = decode(c.to, got);
    if (c.to == FLOAT)
        EXPECT_FLOAT_EQ(static_cast<float>(c.out), static_cast<float>(v));
    else if (c.to == DOUBLE)
        EXPECT_DOUBLE_EQ(c.out, v);
    else
        EXPECT_EQ(c.out, v);
}

} // namespace

TEST(ConvertData, EveryCellOfTheTableThroughAllThreeFamilies) {
    for (const Cell& c : cells) {
        SCOPED_TRACE(testing::Message()
                     << datatypeString(c.from) << " " << c.in << " -> " << datatypeString(c.to));
        Raw in = encode(c.from, c.in), untyped, bySource, byDestination;
        convertData(in.bytes, c.from, untyped.bytes, c.to, 1);
        switchDatatype(c.from, "test", [&](auto s) {
            using S = typename decltype(s)::type;
            convertData(reinterpret_cast<const S*>(in.bytes), bySource.bytes, c.to, 1);
        });
        switchDatatype(c.to, "test", [&](auto d) {
            using D = typename decltype(d)::type;
            convertData(in.bytes, c.from, reinterpret_cast<D*>(byDestination.bytes), 1);
        });
        expectConverted(c, untyped);
        expectConverted(c, bySource);
        expectConverted(c, byDestination);
    }
}

TEST(ConvertData, UnknownDatatypesNameTheirSide) {
    unsigned char in[4] = {1, 2, 3, 4}, out[32] = {};
    expectThrows<IllegalArgumentException>([&] { convertData(in, out, 0, 1); },
                                           "dst datatype unknown");
    expectThrows<IllegalArgumentException>([&] { convertData(in, 6, out, 1); },
                                           "src datatype unknown");
    expectThrows<IllegalArgumentException>([&] { convertData(in, 9, out, UB1, 1); },
                                           "src datatype unknown");
}

namespace {

// The datatypes a sample type survives a round trip through.
template <class T> std::vector<int> lossless() {
    switch (DatatypeOf<T>::value) {
    case UB1:
        return {UB1, UB2, UB4, FLOAT, DOUBLE};
    case UB2:
        return {UB2, UB4, FLOAT, DOUBLE};
    default:
        return {DatatypeOf<T>::value, DOUBLE};
    }
}

template <class T> Image randomImage(const Rect& bounds, const Format& f, std::mt19937& rng) {
    Image img(bounds, f);
    T* p;
    img.getBuffer(p);
    for (int i = 0; i < bounds.w * bounds.h * f.getNumChannels(); ++i)
        p[i] = std::is_floating_point<T>::value ? T(rng() % 1000) / T(1000) : T(rng());
    return img;
}

template <class T> class ConvertPerType : public testing::Test {};
TYPED_TEST_SUITE(ConvertPerType, testsupport::SampleTypes);

} // namespace

TYPED_TEST(ConvertPerType, ImageSurvivesARoundTripThroughWiderTypes) {
    using T = TypeParam;
    std::mt19937 rng(5);
    const Format f("rgba", DatatypeOf<T>::value, false);
    Image src = randomImage<T>(Rect(-3, 7, 13, 5), f, rng);
    for (int via : lossless<T>()) {
        SCOPED_TRACE(datatypeString(via).str());
        Image wide = convertToDatatype(src, via);
        EXPECT_EQ(f.withDatatype(via), wide.getFormat());
        EXPECT_EQ(via == f.getDatatype(), wide == src);
        Image back = convertToDatatype(wide, f.getDatatype());
        for (int y = 7; y < 12; ++y)
            for (int x = -3; x < 10; ++x)
                for (int k = 0; k < 4; ++k)
                    ASSERT_EQ(sampleAt<T>(src, x, y, k), sampleAt<T>(back, x, y, k));
    }
}

TYPED_TEST(ConvertPerType, CopyImageDataWalksEachImageByItsOwnStride) {
    using S = TypeParam;
    std::mt19937 rng(3);
    // A view inside a larger image has a stride longer than its rows.
    Image big = randomImage<S>(Rect(0, 0, 9, 6), Format("rgb", DatatypeOf<S>::value, false), rng);
    Image src = big.clip(Rect(2, 1, 5, 4));
    for (int dt : {UB1, UB2, UB4, FLOAT, DOUBLE}) {
        // Channel meanings are ignored: sample k goes to sample k.
        Image dst(Rect(100, -20, 5, 4), Format("bgr", dt, true));
        copyImageData(src, dst);
        const int size = dst.getFormat().getChannelBytes();
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 5; ++x)
                for (int k = 0; k < 3; ++k) {
                    Raw expected;
                    convertData(&sampleAt<S>(src, 2 + x, 1 + y, k), expected.bytes, dt, 1);
                    auto* got = static_cast<unsigned char*>(dst.getBuffer({100 + x, -20 + y}));
                    ASSERT_EQ(0, std::memcmp(expected.bytes, got + k * size, size));
                }
    }
}

TEST(CopyImageData, ShapesAndDatatypesMustBeKnownAndMatch) {
    Image a(Rect(0, 0, 4, 3), Format::getRGB());
    expectThrows<IllegalArgumentException>(
        [&] { copyImageData(a, Image(Rect(0, 0, 5, 3), Format::getRGB())); },
        "image bounds mismatch");
    expectThrows<IllegalArgumentException>(
        [&] { copyImageData(a, Image(Rect(0, 0, 4, 4), Format::getRGB())); },
        "image bounds mismatch");
    expectThrows<IllegalArgumentException>(
        [&] { copyImageData(a, Image(Rect(9, 9, 4, 3), Format::getRGBA())); }, "image nc mismatch");
    Image unknown(Rect(0, 0, 4, 3), Format::getRGB());
    unknown.setFormat(Format("rgb", 7, false));
    expectThrows<IllegalArgumentException>([&] { copyImageData(unknown, a); },
                                           "src datatype unknown");
    expectThrows<IllegalArgumentException>([&] { copyImageData(a, unknown); },
                                           "dst datatype unknown");
}

TEST(CopyImageData, OverlappingViewsOfOneStoreCopyCleanly) {
    // Shifting down and right inside one image must not smear rows.
    Image img(Rect(0, 0, 6, 6), Format::getL());
    unsigned char* p;
    img.getBuffer(p);
    for (int i = 0; i < 36; ++i)
        p[i] = static_cast<unsigned char>(i);
    copyImageData(img.clip(Rect(0, 0, 5, 5)), img.clip(Rect(1, 1, 5, 5)));
    for (int y = 1; y < 6; ++y)
        for (int x = 1; x < 6; ++x)
            EXPECT_EQ((y - 1) * 6 + (x - 1), p[y * 6 + x]) << x << "," << y;
}
