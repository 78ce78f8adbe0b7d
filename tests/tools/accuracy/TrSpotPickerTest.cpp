#include "tools/accuracy/TrSpotPicker.h"

#include "image/Format.h"
#include "image/ImageRows.h"

#include <gtest/gtest.h>

#include <cmath>

using Orvane::Format;
using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::Image;

namespace {

// A grey 8-bit frame with f(x, y) in every channel.
template <class F> Image grey(int w, int h, F f) {
    Image img(GenRect<int>(0, 0, w, h), Format::getRGB());
    const Orvane::ImageRows<unsigned char> rows(img);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < 3; ++c)
                rows.row(y)[3 * x + c] = static_cast<unsigned char>(f(x, y));
    return img;
}

bool anywhere(const GenPoint<double>&) {
    return true;
}

} // namespace

TEST(TrSpotPicker, AStraightEdgeScoresNothingAndACornerScoresItsTensor) {
    // A vertical edge has gradients in one direction only: the tensor's
    // smaller eigenvalue is zero. At the corner of a bright quadrant, central
    // differences give 0.5 on four pixels of the 5 x 5 window along each
    // axis, and on one pixel along both: the tensor [[1, 1/4], [1/4, 1]],
    // whose smaller eigenvalue is 3/4.
    const TrSpotPicker picker(5, 1);
    const Image edge = grey(40, 40, [](int x, int) { return x < 20 ? 0 : 255; });
    EXPECT_NEAR(picker.score(edge, 20, 20), 0, 1e-9);
    const Image corner = grey(40, 40, [](int x, int y) { return x >= 20 && y >= 20 ? 255 : 0; });
    EXPECT_NEAR(picker.score(corner, 19, 19), 0.75, 1e-9);
}

TEST(TrSpotPicker, PicksTheTexturedSpotsApartAndNoFlatOnes) {
    // Two small checkerboards on a flat field, one of higher contrast.
    const Image frame = grey(120, 80, [](int x, int y) {
        const bool check = ((x / 3) + (y / 3)) % 2 == 0;
        if (x >= 20 && x < 35 && y >= 30 && y < 45)
            return check ? 200 : 50;
        if (x >= 80 && x < 95 && y >= 30 && y < 45)
            return check ? 150 : 100;
        return 128;
    });
    const TrSpotPicker picker(11, 1);
    // The stronger first; the second kept apart from it, so on the other.
    const auto spots = picker.pick(frame, 2, 21, anywhere);
    ASSERT_EQ(spots.size(), 2u);
    EXPECT_NEAR(spots[0].x, 27.5, 7.5);
    EXPECT_NEAR(spots[0].y, 37.5, 7.5);
    EXPECT_NEAR(spots[1].x, 87.5, 7.5);
    EXPECT_NEAR(spots[1].y, 37.5, 7.5);
    // Centres of pixels, as a user places them.
    EXPECT_EQ(spots[0].x - std::floor(spots[0].x), 0.5);

    const auto rightOnly =
        picker.pick(frame, 1, 21, [](const GenPoint<double>& p) { return p.x > 60; });
    ASSERT_EQ(rightOnly.size(), 1u);
    EXPECT_NEAR(rightOnly[0].x, 87.5, 7.5);
    EXPECT_TRUE(picker.pick(grey(60, 60, [](int, int) { return 77; }), 5, 5, anywhere).empty());
}
