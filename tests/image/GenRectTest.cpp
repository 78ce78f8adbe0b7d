#include "image/GenRect.h"

#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <string>

using Orvane::GenPoint;
using Orvane::GenRect;

namespace {

template <class T> std::string printed(const T& value) {
    std::ostringstream os;
    os << value;
    return os.str();
}

bool inside(const GenRect<int>& r, int px, int py) {
    return px >= r.x && px < r.x + r.w && py >= r.y && py < r.y + r.h;
}

} // namespace

TEST(GenRect, IntersectionOfOverlappingRectangles) {
    EXPECT_EQ(GenRect<int>(5, 6, 5, 4), GenRect<int>(0, 0, 10, 10) & GenRect<int>(5, 6, 20, 20));
    EXPECT_EQ(GenRect<int>(2, 3, 4, 5), GenRect<int>(0, 0, 10, 10) & GenRect<int>(2, 3, 4, 5));
    EXPECT_EQ(GenRect<int>(2, 3, 4, 5), GenRect<int>(2, 3, 4, 5) & GenRect<int>(0, 0, 10, 10));
    EXPECT_EQ(GenRect<double>(0.5, 1, 1.5, 2),
              GenRect<double>(0, 0, 2, 3) & GenRect<double>(0.5, 1, 4, 4));
}

TEST(GenRect, DisjointIntersectionIsNotClamped) {
    GenRect<int> r = GenRect<int>(0, 0, 0, 0) & GenRect<int>(1, 1, 5, 5);
    EXPECT_EQ(GenRect<int>(1, 1, -1, -1), r);
    EXPECT_TRUE(r.isEmpty());
    EXPECT_EQ(GenRect<int>(10, 0, -5, 5), GenRect<int>(0, 0, 5, 5) & GenRect<int>(10, 0, 5, 5));
    // Touching edges share no pixel: width zero.
    EXPECT_EQ(GenRect<int>(5, 0, 0, 5), GenRect<int>(0, 0, 5, 5) & GenRect<int>(5, 0, 5, 5));
}

TEST(GenRect, InPlaceIntersectionLeavesAnEmptyRectangleAlone) {
    GenRect<int> empty(0, 0, 0, 0);
    empty &= GenRect<int>(1, 1, 5, 5);
    EXPECT_EQ(GenRect<int>(0, 0, 0, 0), empty);

    GenRect<int> thin(3, 3, 4, 0);
    thin &= GenRect<int>(0, 0, 2, 2);
    EXPECT_EQ(GenRect<int>(3, 3, 4, 0), thin);

    // Only this rectangle's emptiness is tested, not the argument's.
    GenRect<int> full(0, 0, 10, 10);
    full &= GenRect<int>(2, 2, 0, 3);
    EXPECT_EQ(GenRect<int>(2, 2, 0, 3), full);

    GenRect<int> a(0, 0, 10, 10);
    a &= GenRect<int>(20, 20, 5, 5);
    EXPECT_EQ(GenRect<int>(20, 20, -10, -10), a);
}

TEST(GenRect, IntersectionHoldsExactlyThePixelsOfBoth) {
    std::mt19937 random(1234);
    std::uniform_int_distribution<int> pos(-6, 6);
    std::uniform_int_distribution<int> size(0, 8);
    for (int trial = 0; trial < 300; ++trial) {
        GenRect<int> a(pos(random), pos(random), size(random), size(random));
        GenRect<int> b(pos(random), pos(random), size(random), size(random));
        GenRect<int> r = a & b;
        EXPECT_EQ(r, b & a);
        int both = 0;
        for (int py = -8; py < 16; ++py) {
            for (int px = -8; px < 16; ++px) {
                bool inBoth = inside(a, px, py) && inside(b, px, py);
                both += inBoth;
                EXPECT_EQ(inBoth, inside(r, px, py)) << printed(a) << " & " << printed(b);
            }
        }
        EXPECT_EQ(both > 0, !r.isEmpty()) << printed(a) << " & " << printed(b);
    }
}

TEST(GenRect, EmptinessNeedsAtLeastOnePixelEachWay) {
    EXPECT_FALSE(GenRect<int>(0, 0, 1, 1).isEmpty());
    EXPECT_TRUE(GenRect<int>(0, 0, 0, 1).isEmpty());
    EXPECT_TRUE(GenRect<int>(0, 0, 1, -1).isEmpty());
    EXPECT_TRUE(GenRect<double>(0, 0, 0.5, 10).isEmpty());
    EXPECT_FALSE(GenRect<double>(0, 0, 1.0, 10).isEmpty());
}

TEST(GenRect, MovingByAPointKeepsTheSize) {
    GenRect<int> r(1, 2, 3, 4);
    EXPECT_EQ(GenRect<int>(6, -1, 3, 4), r + GenPoint<int>(5, -3));
    EXPECT_EQ(GenRect<int>(-4, 5, 3, 4), r - GenPoint<int>(5, -3));
    EXPECT_EQ(GenPoint<int>(4, 6), GenPoint<int>(1, 2) + GenPoint<int>(3, 4));
    EXPECT_EQ(GenPoint<int>(-2, -2), GenPoint<int>(1, 2) - GenPoint<int>(3, 4));
    EXPECT_NE(GenPoint<float>(1, 2), GenPoint<float>(2, 1));
}

TEST(GenRect, PrintsWithoutSpaces) {
    EXPECT_EQ("Rect(0,0,640,480)", printed(GenRect<int>(0, 0, 640, 480)));
    EXPECT_EQ("Rect(1,1,-1,-1)", printed(GenRect<int>(1, 1, -1, -1)));
    EXPECT_EQ("Rect(-5.5,-5,10,10.25)", printed(GenRect<double>(-5.5, -5, 10, 10.25)));
    EXPECT_EQ("Point(3,-4)", printed(GenPoint<int>(3, -4)));
    EXPECT_EQ("Point(0.5,2)", printed(GenPoint<double>(0.5, 2)));
    std::ostringstream os;
    GenRect<int>(7, 8, 9, 10).print(os);
    EXPECT_EQ("Rect(7,8,9,10)", os.str());
}
