#include "tools/accuracy/TrRenderer.h"
#include "tools/accuracy/TrPhoto.h"

#include "image/Format.h"
#include "image/ImageRows.h"
#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <random>

using Orvane::Format;
using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::Image;

namespace {

// An 8-bit rgb photograph whose channels are f(x, y), g and h at each
// pixel, each rounded to the 8-bit level.
template <class F> Image makePhoto(int w, int h, F f) {
    Image img(GenRect<int>(0, 0, w, h), Format::getRGB());
    const Orvane::ImageRows<unsigned char> rows(img);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < 3; ++c)
                rows.row(y)[3 * x + c] = static_cast<unsigned char>(f(x, y, c));
    return img;
}

// A plane in every channel: 2 levels a pixel across and 1 down, 8-bit exact
// over an 80 x 60 photograph.
int plane(int x, int y, int c) {
    return 10 + 2 * x + y + 10 * c;
}

// The plane's value, in 0..1, at a continuous photograph point.
double planeAt(double u, double v, int c) {
    return (10 + 2 * (u - 0.5) + (v - 0.5) + 10 * c) / 255.0;
}

} // namespace

TEST(TrPhoto, SamplesHitPixelCentresAndFollowAPlaneBetweenThem) {
    const TrPhoto photo(makePhoto(80, 60, plane));
    float rgb[3];
    photo.sample(40.5, 30.5, rgb);
    EXPECT_FLOAT_EQ(rgb[1], (10 + 80 + 30 + 10) / 255.0f);
    // Catmull-Rom reproduces a linear function exactly away from the edges.
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> across(3, 77);
    std::uniform_real_distribution<double> down(3, 57);
    for (int k = 0; k < 50; ++k) {
        const double u = across(rng), v = down(rng);
        photo.sample(u, v, rgb);
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(rgb[c], planeAt(u, v, c), 8 * FLT_EPSILON) << u << "," << v;
    }
}

TEST(TrPhoto, RepeatsTheEdgeAndRefusesOtherFormats) {
    const TrPhoto photo(makePhoto(10, 10, plane));
    float rgb[3];
    photo.sample(-30, 5.5, rgb);
    EXPECT_FLOAT_EQ(rgb[0], plane(0, 5, 0) / 255.0f);
    const Image wide(GenRect<int>(0, 0, 4, 4), Format("rgb", Orvane::FLOAT, false));
    expectThrows<IllegalArgumentException>([&] { TrPhoto p(wide); },
                                           "TrPhoto: 8-bit rgb or l images only");
}

TEST(TrWarp, MapsBothWaysAndTurnsFromXTowardY) {
    TrWarp w;
    w.x = 40;
    w.y = 30;
    w.angle = std::acos(-1.0) / 2;
    w.zoom = 2;
    // One pixel along the photograph's x lands two pixels down the frame.
    const GenPoint<double> p = w.toFrame(GenPoint<double>(41, 30), 64, 48);
    EXPECT_NEAR(p.x, 32, 1e-12);
    EXPECT_NEAR(p.y, 26, 1e-12);
    std::mt19937 rng(3);
    std::uniform_real_distribution<double> any(-200, 200);
    for (int k = 0; k < 20; ++k) {
        w.angle = any(rng) / 100;
        w.zoom = 0.5 + std::abs(any(rng)) / 200;
        const GenPoint<double> q(any(rng), any(rng));
        const GenPoint<double> back = w.toPhoto(w.toFrame(q, 64, 48), 64, 48);
        EXPECT_NEAR(back.x, q.x, 1e-12 * 200);
        EXPECT_NEAR(back.y, q.y, 1e-12 * 200);
    }
}

TEST(TrRenderer, BoxFilteredPlaneIsThePlaneAtEachPixelCentre) {
    // The mean of a plane over a pixel's area is its value at the centre,
    // whatever the camera: this checks the sample grid and the mapping.
    const TrPhoto photo(makePhoto(80, 60, plane));
    TrWarp w;
    w.x = 40.3;
    w.y = 29.6;
    w.angle = 0.4;
    w.zoom = 1.25;
    for (int n : {1, 4}) {
        const TrFloatFrame frame = TrRenderer(photo, 24, 20, n).render(w);
        for (int y = 0; y < 20; ++y)
            for (int x = 0; x < 24; ++x) {
                const GenPoint<double> q = w.toPhoto(GenPoint<double>(x + 0.5, y + 0.5), 24, 20);
                for (int c = 0; c < 3; ++c)
                    ASSERT_NEAR(frame.at(x, y)[c], planeAt(q.x, q.y, c), 16 * FLT_EPSILON)
                        << n << " samples, pixel " << x << "," << y;
            }
    }
}

TEST(TrRenderer, BlurAveragesTheRendersAlongThePath) {
    const TrPhoto photo(
        makePhoto(100, 100, [](int x, int y, int c) { return (x * 37 + y * 91 + c * 50) % 251; }));
    const TrRenderer renderer(photo, 16, 12, 2);
    TrWarp a;
    a.x = 50;
    a.y = 50;
    TrWarp b = a;
    b.x = 53.5;
    const TrFloatFrame ra = renderer.render(a);
    const TrFloatFrame rb = renderer.render(b);
    const TrFloatFrame blur = renderer.renderBlurred({a, b});
    for (std::size_t i = 0; i < blur.rgb.size(); ++i)
        ASSERT_NEAR(blur.rgb[i], 0.5f * (ra.rgb[i] + rb.rgb[i]), 4 * FLT_EPSILON);
}

TEST(TrRenderer, QuantisesWithGainOffsetNoiseAndClamping) {
    TrFloatFrame frame(200, 100);
    for (std::size_t i = 0; i < frame.rgb.size(); ++i)
        frame.rgb[i] = 0.5f;
    frame.at(0, 0)[0] = 0.99f;
    const Image plain = TrRenderer::toImage(frame, 0.5f, 0.1f);
    const Orvane::ImageRows<const unsigned char> rows(plain);
    EXPECT_EQ(rows.row(0)[0], 152); // 0.595 * 255 = 151.7
    EXPECT_EQ(rows.row(5)[7], 89);  // 0.35 * 255 = 89.25
    const Image brighter = TrRenderer::toImage(frame, 3.0f);
    const Orvane::ImageRows<const unsigned char> bright(brighter);
    EXPECT_EQ(bright.row(9)[9], 255);

    // Noise of 0.02 on a flat 0.5: mean 127.5, deviation 5.1 levels, within
    // three standard errors over the 60000 samples.
    std::mt19937 rng(11);
    const Image noisy = TrRenderer::toImage(frame, 1, 0, 0.02f, &rng);
    const Orvane::ImageRows<const unsigned char> nrows(noisy);
    double sum = 0, sum2 = 0;
    const int count = 200 * 99 * 3;
    for (int y = 1; y < 100; ++y)
        for (int i = 0; i < 600; ++i) {
            sum += nrows.row(y)[i];
            sum2 += double(nrows.row(y)[i]) * nrows.row(y)[i];
        }
    const double mean = sum / count;
    const double sd = std::sqrt(sum2 / count - mean * mean);
    EXPECT_NEAR(mean, 127.5, 3 * 5.1 / std::sqrt(count));
    // Rounding adds 1/12 of a level squared to the variance.
    EXPECT_NEAR(sd, std::sqrt(5.1 * 5.1 + 1.0 / 12), 0.1);
}

TEST(TrRenderer, PasteDropsWhatFallsOutsideTheFrame) {
    TrFloatFrame frame(6, 5);
    TrFloatFrame block(3, 3);
    for (std::size_t i = 0; i < block.rgb.size(); ++i)
        block.rgb[i] = 1;
    TrRenderer::paste(frame, block, -1, 3);
    int covered = 0;
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 6; ++x)
            covered += frame.at(x, y)[1] == 1.0f;
    // Columns 0 and 1 of rows 3 and 4.
    EXPECT_EQ(covered, 4);
    EXPECT_EQ(frame.at(1, 4)[2], 1.0f);
    EXPECT_EQ(frame.at(2, 4)[2], 0.0f);
}
