#include "image/Convert.h"

#include "image/DatatypeSwitch.h"
#include "support/ExpectThrows.h"

#include <cstring>

using namespace Orvane;

namespace {

// Converts one sample, carried as a double both ways (every UB4 value is exact).
double convertOne(int from, double v, int to) {
    unsigned char in[8], out[8];
    switchDatatype(from, "test", [&](auto s) {
        typename decltype(s)::type t = v;
        std::memcpy(in, &t, sizeof t);
    });
    convertData(in, from, out, to, 1);
    return switchDatatype(to, "test", [&](auto d) {
        typename decltype(d)::type t;
        std::memcpy(&t, out, sizeof t);
        return double(t);
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
    {UB1, 0, UB4, 0}, {UB1, 1, UB4, 0x01010101}, {UB1, 128, UB4, 0x80808080},
    {UB1, 255, UB4, 4294967295.0}, {UB1, 0, FLOAT, 0}, {UB1, 51, FLOAT, 0.2},
    {UB1, 204, FLOAT, 0.8}, {UB1, 255, FLOAT, 1}, {UB1, 0, DOUBLE, 0}, {UB1, 51, DOUBLE, 0.2},
    {UB1, 255, DOUBLE, 1}, {UB2, 0, UB1, 0}, {UB2, 0x00FF, UB1, 0}, {UB2, 0x0100, UB1, 1},
    {UB2, 0x80FF, UB1, 0x80}, {UB2, 65535, UB1, 255}, {UB2, 0, UB4, 0},
    {UB2, 0x1234, UB4, 0x12341234}, {UB2, 65535, UB4, 4294967295.0}, {UB2, 0, FLOAT, 0},
    {UB2, 13107, FLOAT, 0.2}, {UB2, 65535, FLOAT, 1}, {UB2, 0, DOUBLE, 0},
    {UB2, 13107, DOUBLE, 0.2}, {UB2, 65535, DOUBLE, 1}, {UB4, 0, UB1, 0}, {UB4, 0x00FFFFFF, UB1, 0},
    {UB4, 0x80FFFFFF, UB1, 0x80}, {UB4, 4294967295.0, UB1, 255}, {UB4, 0, UB2, 0},
    {UB4, 0x1234FFFF, UB2, 0x1234}, {UB4, 4294967295.0, UB2, 65535}, {UB4, 0, FLOAT, 0},
    {UB4, 256, FLOAT, 0x1p-24}, {UB4, 0x80000000, FLOAT, 0.5}, {UB4, 4294967295.0, FLOAT, 1},
    {UB4, 0, DOUBLE, 0}, {UB4, 1, DOUBLE, 2.3283064370807974e-10}, {UB4, 4294967295.0, DOUBLE, 1},
    {FLOAT, -0.2, UB1, 0}, {FLOAT, 0, UB1, 0}, {FLOAT, 0.2, UB1, 51}, {FLOAT, 0.5, UB1, 127},
    {FLOAT, 1, UB1, 255}, {FLOAT, 1.5, UB1, 255}, {FLOAT, -1, UB2, 0}, {FLOAT, 0.5, UB2, 32767},
    {FLOAT, 1, UB2, 65535}, {FLOAT, 2, UB2, 65535}, {FLOAT, -3, UB4, 0},
    {FLOAT, 0.25, UB4, 1073741824}, {FLOAT, 0.5, UB4, 2147483648.0},
    {FLOAT, 1.0 - 0x1p-24, UB4, 4294967296.0 - 256}, {FLOAT, 1, UB4, 0}, {FLOAT, 1.5, UB4, 0},
    {FLOAT, -7.25, DOUBLE, -7.25}, {FLOAT, 0.2, DOUBLE, 0.20000000298023224}, {DOUBLE, -1, UB1, 0},
    {DOUBLE, 0.2, UB1, 51}, {DOUBLE, 0.5, UB1, 127}, {DOUBLE, 1, UB1, 255}, {DOUBLE, 2, UB1, 255},
    {DOUBLE, -0.1, UB2, 0}, {DOUBLE, 0.5, UB2, 32767}, {DOUBLE, 1, UB2, 65535},
    {DOUBLE, -1, UB4, 0}, {DOUBLE, 0.5, UB4, 2147483647}, {DOUBLE, 1, UB4, 4294967295.0},
    {DOUBLE, 3, UB4, 4294967295.0}, {DOUBLE, -2.5, FLOAT, -2.5}, {DOUBLE, 0.1, FLOAT, 0.1},
    {DOUBLE, 1e-50, FLOAT, 0},
};
// clang-format on

} // namespace

TEST(ConvertData, EveryCellOfTheTable) {
    // Within four ulps of a double, every fixed-point value is exact.
    for (const Cell& c : cells)
        if (c.to == FLOAT)
            EXPECT_FLOAT_EQ(c.out, convertOne(c.from, c.in, c.to)) << c.in << " from " << c.from;
        else
            EXPECT_DOUBLE_EQ(c.out, convertOne(c.from, c.in, c.to)) << c.in << " from " << c.from;
    unsigned char in[4] = {}, out[32] = {};
    expectThrows<IllegalArgumentException>([&] { convertData(in, 6, out, 1); },
                                           "src datatype unknown");
}
