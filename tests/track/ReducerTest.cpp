#include "track/Reducer.h"

#include "image/Convert.h"
#include "image/ImageStore.h"
#include "track/PCA.h"
#include "track/TrackImages.h"

#include <cstring>
#include <memory>
#include <tuple>

using namespace trackimages;

namespace {

// Unit range as the tracker defines it, written out independently of the
// library: fixed-point maxima read as 1, UB4 scaled by exactly 2^-32.
template <class S> double unitOf(S v) {
    if constexpr (std::is_same_v<S, unsigned int>)
        return std::ldexp(double(v), -32);
    return std::is_integral_v<S> ? v / double(std::numeric_limits<S>::max()) : double(v);
}

// The image library's sample table into float.
template <class S> float tableToFloat(S v) {
    if constexpr (std::is_same_v<S, unsigned int>)
        return float(v) * std::ldexp(1.0f, -32);
    return std::is_integral_v<S> ? float(v) / float(std::numeric_limits<S>::max()) : float(v);
}

float reduceOne(const Reducer& reducer, const Image& src, int x = 0, int y = 0) {
    const Image out = reducer.reduce(src);
    EXPECT_EQ(src.getBounds(), out.getBounds());
    EXPECT_EQ(Format::mono(Orvane::FLOAT), out.getFormat());
    return *at<float>(out, x, y);
}

Image rgba(std::vector<std::array<unsigned char, 4>> pixels) {
    Image img(GenRect<int>(0, 0, int(pixels.size()), 1), Format::getRGBA());
    for (std::size_t x = 0; x < pixels.size(); ++x)
        std::copy(pixels[x].begin(), pixels[x].end(), at<unsigned char>(img, int(x), 0));
    return img;
}

} // namespace

TEST(Reducer, EightBitPixels) {
    const LuminanceReducer l;
    const SaturationReducer s;
    // (102, 51, 51): the chroma range 0.2, not divided by the maximum.
    const std::tuple<unsigned char, unsigned char, unsigned char, const Reducer&, float> cases[] = {
        {255, 255, 255, s, 0.0f}, {0, 0, 0, s, 0.0f},     {77, 77, 77, s, 0.0f},
        {255, 0, 0, s, 1.0f},     {255, 0, 0, l, 0.299f}, {255, 255, 255, l, 1.0f},
        {102, 51, 51, s, 0.2f},
    };
    for (const auto& [r, g, b, reducer, expected] : cases)
        EXPECT_FLOAT_EQ(expected, reduceOne(reducer, rgba({{r, g, b, 255}})))
            << int(r) << "," << int(g) << "," << int(b);
    // A one-channel source, 8-bit or not, is returned as the same handle.
    for (const Format& f : {Format::getL(), Format::mono(Orvane::FLOAT), Format::getA()}) {
        Image grey(GenRect<int>(3, 4, 5, 2), f);
        EXPECT_EQ(grey, l.reduce(grey)) << f;
    }
}

TEST(Reducer, RefusalTexts) {
    const std::unique_ptr<PCAReducer> pca(
        PCAReducer::setupPCA(rgba({{0, 3, 4, 255}, {90, 3, 4, 255}})));
    // Same bytes, a datatype code outside the five.
    Image img = rgba({{0, 3, 4, 255}, {90, 3, 4, 255}});
    img.setFormat(Format("rgba", 9, false));
    const ChannelReducer red('r');
    const LuminanceReducer luminance;
    const SaturationReducer saturation;
    for (const Reducer* r : {(const Reducer*)&red, (const Reducer*)&luminance,
                             (const Reducer*)&saturation, (const Reducer*)pca.get()}) {
        expectThrows<IllegalArgumentException>([&] { r->reduce(img); }, "src datatype unknown");
        expectThrows<IllegalArgumentException>([&] { r->visualize(img); }, "src datatype unknown");
    }
    expectThrows<IllegalArgumentException>([&] { PCAReducer::setupPCA(img); },
                                           "src datatype unknown");
    expectThrows<IllegalArgumentException>([] { ChannelReducer('q'); }, "no such channel \"q\"");
}

// Every datatype, in a "bgra" layout on a padded view, against the formulas
// evaluated here; the colour axis comes from another image, as a pattern's
// reduces its search region.
template <class S> class ReducerTyped : public ::testing::Test {};
TYPED_TEST_SUITE(ReducerTyped, testsupport::SampleTypes);

TYPED_TEST(ReducerTyped, MatchIndependentFormulas) {
    using S = TypeParam;
    std::mt19937 rng(1234);
    const GenRect<int> bounds(7, -3, 13, 6);
    const Image src = randomImage<S>(bounds, rng, "bgra");
    // An extreme pixel, so full-range samples are covered.
    const S full = std::is_integral_v<S> ? std::numeric_limits<S>::max() : S(1);
    std::fill_n(at<S>(src, bounds.x, bounds.y), 4, S(0));
    at<S>(src, bounds.x, bounds.y)[1] = full;
    const std::unique_ptr<PCAReducer> pca(
        PCAReducer::setupPCA(randomImage<S>(GenRect<int>(0, 0, 9, 7), rng, "bgra")));
    const KrGenVector<float>& axis = pca->getPCA().getAxis();
    for (int y = bounds.y; y < bounds.y + bounds.h; ++y) {
        for (int x = bounds.x; x < bounds.x + bounds.w; ++x) {
            const S* p = at<S>(src, x, y);
            const double b = unitOf(p[0]), g = unitOf(p[1]), r = unitOf(p[2]);
            const float l = float(0.299 * r + 0.587 * g + 0.114 * b);
            const float s = float(std::max({r, g, b}) - std::min({r, g, b}));
            float dot = 0;
            for (int k = 0; k < 4; ++k)
                dot += float(p[k]) * axis[k];
            EXPECT_NEAR(l, reduceOne(LuminanceReducer(), src, x, y), 4 * FLT_EPSILON * l);
            EXPECT_NEAR(s, reduceOne(SaturationReducer(), src, x, y), 4 * FLT_EPSILON * s);
            EXPECT_EQ(tableToFloat(p[2]), reduceOne(ChannelReducer('r'), src, x, y));
            EXPECT_EQ(tableToFloat(p[1]), reduceOne(ChannelReducer('g'), src, x, y));
            EXPECT_EQ(tableToFloat(p[0]), reduceOne(ChannelReducer('b'), src, x, y));
            EXPECT_EQ(dot, reduceOne(*pca, src, x, y)) << x << "," << y;
        }
    }
}

// Reducing into a kept store gives the bytes that reducing afresh and
// converting to float give, whatever the store held before; a reducer or
// source without that path says so and leaves the store alone.
TYPED_TEST(ReducerTyped, IntoAKeptStoreEqualsAFreshReduction) {
    using S = TypeParam;
    std::mt19937 rng(99);
    std::uniform_int_distribution<int> side(1, 17);
    const ChannelReducer green('g');
    const LuminanceReducer luminance;
    const SaturationReducer saturation;
    const Reducer* const reducers[] = {&green, &luminance, &saturation};
    Orvane::ImageStore store;
    for (int trial = 0; trial < 5; ++trial) {
        const Image src = randomImage<S>(GenRect<int>(-3, 4, side(rng), side(rng)), rng, "bgra");
        for (const Reducer* reducer : reducers) {
            // Old pixels, NaN, fill more room than this source needs.
            const Image& old = store.shape(GenRect<int>(0, 0, 20, 20), Format::mono(Orvane::FLOAT));
            std::memset(old.getBuffer(), 0xff, 20 * 20 * sizeof(float));
            const Image& into = store.shape(src.getBounds(), Format::mono(Orvane::FLOAT));
            ASSERT_TRUE(reducer->reduceInto(src, into));
            const Image want = Orvane::convertToDatatype(reducer->reduce(src), Orvane::FLOAT);
            const GenRect<int>& b = src.getBounds();
            for (int y = b.y; y < b.y + b.h; ++y)
                ASSERT_EQ(0, std::memcmp(at<float>(want, b.x, y), at<float>(into, b.x, y),
                                         sizeof(float) * std::size_t(b.w)))
                    << trial << " row " << y;
        }
    }
    const Image grey = randomImage<S>(GenRect<int>(0, 0, 3, 3), rng, "l");
    const Image& untouched = store.shape(GenRect<int>(0, 0, 3, 3), Format::mono(Orvane::FLOAT));
    std::memset(untouched.getBuffer(), 0x11, 9 * sizeof(float));
    EXPECT_FALSE(luminance.reduceInto(grey, untouched));
    const std::unique_ptr<PCAReducer> pca(
        PCAReducer::setupPCA(randomImage<S>(GenRect<int>(0, 0, 3, 3), rng, "bgra")));
    EXPECT_FALSE(pca->reduceInto(randomImage<S>(GenRect<int>(0, 0, 3, 3), rng, "bgra"), untouched));
    unsigned char bytes[9 * sizeof(float)];
    std::memset(bytes, 0x11, sizeof bytes);
    EXPECT_EQ(0, std::memcmp(bytes, untouched.getBuffer(), sizeof bytes));
}

TEST(PCA, AxisOfTwoColoursFollowsTheirDifference) {
    // Orange and teal, opaque; alpha never varies, so has no share in the axis.
    const Image img = rgba({{200, 40, 10, 255}, {200, 40, 10, 255}, {20, 100, 160, 255}});
    const KrGenVector<float> axis = PCA<float>(img).getAxis();
    ASSERT_EQ(4, axis.length());
    const double d[4] = {-180, 60, 150, 0};
    double length = 0, cosine = 0;
    for (int k = 0; k < 4; ++k) {
        length += double(axis[k]) * axis[k];
        cosine += axis[k] * d[k] / std::sqrt(180.0 * 180 + 60 * 60 + 150 * 150);
    }
    // Orthonormality of a float factor holds to a few ulps per element; the
    // sign is free.
    EXPECT_NEAR(1.0, std::sqrt(length), 16 * FLT_EPSILON);
    EXPECT_NEAR(1.0, std::abs(cosine), 16 * FLT_EPSILON);
    EXPECT_NEAR(0.0, axis[3], 16 * FLT_EPSILON);
}
