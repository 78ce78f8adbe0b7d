#include "track/Reducer.h"

#include "base/Exception.h"
#include "image/Format.h"
#include "image/GenRect.h"
#include "image/Image.h"
#include "krovel/KrGenVector.h"
#include "krovel/KrMatrixError.h"
#include "support/ExpectThrows.h"
#include "track/SampleImages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <memory>
#include <random>

using Orvane::Format;
using Orvane::GenRect;
using Orvane::Image;
using sampleimages::at;
using sampleimages::put;

namespace {

// Unit range as the tracker defines it, written out independently of the
// library: fixed-point maxima read as 1, UB4 scaled by exactly 2^-32.
double unitOf(unsigned char v) {
    return v / 255.0;
}
double unitOf(unsigned short v) {
    return v / 65535.0;
}
double unitOf(unsigned int v) {
    return std::ldexp(double(v), -32);
}
double unitOf(float v) {
    return v;
}
double unitOf(double v) {
    return v;
}

// The image library's sample table into float.
float tableToFloat(unsigned char v) {
    return float(v) / 255.0f;
}
float tableToFloat(unsigned short v) {
    return float(v) / 65535.0f;
}
float tableToFloat(unsigned int v) {
    return float(v) * std::ldexp(1.0f, -32);
}
float tableToFloat(float v) {
    return v;
}
float tableToFloat(double v) {
    return float(v);
}

void expectReducedShape(const Image& src, const Image& reduced) {
    EXPECT_EQ(src.getBounds(), reduced.getBounds());
    EXPECT_EQ(Format::mono(Orvane::FLOAT), reduced.getFormat());
    EXPECT_EQ("L", reduced.getFormat().getChannelOrder().str());
}

float reducedAt(const Image& img, int x, int y) {
    return *at<float>(img, x, y);
}

Image rgbPixel(unsigned char r, unsigned char g, unsigned char b) {
    Image img(GenRect<int>(0, 0, 1, 1), Format::getRGB());
    put<unsigned char>(img, 0, 0, {r, g, b});
    return img;
}

} // namespace

TEST(SaturationReducer, GreysHaveNoneAndPureRedHasOne) {
    SaturationReducer reducer;
    EXPECT_EQ(0.0f, reducedAt(reducer.reduce(rgbPixel(255, 255, 255)), 0, 0));
    EXPECT_EQ(0.0f, reducedAt(reducer.reduce(rgbPixel(0, 0, 0)), 0, 0));
    EXPECT_EQ(0.0f, reducedAt(reducer.reduce(rgbPixel(77, 77, 77)), 0, 0));
    EXPECT_EQ(1.0f, reducedAt(reducer.reduce(rgbPixel(255, 0, 0)), 0, 0));
}

TEST(SaturationReducer, IsTheChromaRangeNotDividedByTheMaximum) {
    // (102, 51, 51): max 0.4, min 0.2; divided by the maximum it would be 0.5.
    const float s = reducedAt(SaturationReducer().reduce(rgbPixel(102, 51, 51)), 0, 0);
    EXPECT_NEAR(0.2f, s, 4 * FLT_EPSILON * 0.2f);
}

TEST(LuminanceReducer, EightBitRedIsTheRedWeight) {
    const Image reduced = LuminanceReducer().reduce(rgbPixel(255, 0, 0));
    EXPECT_EQ(0.299f, reducedAt(reduced, 0, 0));
    EXPECT_EQ(1.0f, reducedAt(LuminanceReducer().reduce(rgbPixel(255, 255, 255)), 0, 0));
}

TEST(LuminanceReducer, ReturnsAOneChannelSourceAsTheSameHandle) {
    for (const Format& f : {Format::getL(), Format::mono(Orvane::FLOAT), Format::getA()}) {
        Image grey(GenRect<int>(3, 4, 5, 2), f);
        const Image reduced = LuminanceReducer().reduce(grey);
        EXPECT_EQ(grey, reduced) << f;
        EXPECT_EQ(f, reduced.getFormat());
    }
}

TEST(SaturationReducer, HasNoOneChannelShortcut) {
    Image grey(GenRect<int>(0, 0, 2, 1), Format::getL());
    put<unsigned char>(grey, 0, 0, {200});
    put<unsigned char>(grey, 1, 0, {10});
    const Image reduced = SaturationReducer().reduce(grey);
    EXPECT_NE(grey, reduced);
    expectReducedShape(grey, reduced);
    EXPECT_EQ(0.0f, reducedAt(reduced, 0, 0));
    EXPECT_EQ(0.0f, reducedAt(reduced, 1, 0));
}

TEST(ChannelReducer, PicksTheNamedChannelFromBgra) {
    for (const Format& f : {Format::getBGRA(), Format::getbgra()}) {
        Image img(GenRect<int>(-2, 5, 1, 1), f);
        put<unsigned char>(img, -2, 5, {10, 20, 30, 40}); // blue, green, red, alpha
        const struct {
            char letter;
            unsigned char value;
        } cases[] = {{'r', 30}, {'g', 20}, {'b', 10}};
        for (const auto& c : cases) {
            const Image reduced = ChannelReducer(c.letter).reduce(img);
            expectReducedShape(img, reduced);
            EXPECT_EQ(tableToFloat(c.value), reducedAt(reduced, -2, 5)) << c.letter;
        }
    }
}

TEST(ChannelReducer, RejectsALetterThatNamesNoChannel) {
    expectThrows<IllegalArgumentException>([] { ChannelReducer('q'); }, "no such channel \"q\"");
}

TEST(Reducer, GreySourcesStandInForMissingColourChannels) {
    Image grey(GenRect<int>(0, 0, 1, 1), Format::getLA());
    put<unsigned char>(grey, 0, 0, {51, 255});
    EXPECT_EQ(tableToFloat((unsigned char)51), reducedAt(ChannelReducer('g').reduce(grey), 0, 0));
    EXPECT_NEAR(0.2f, reducedAt(LuminanceReducer().reduce(grey), 0, 0), 4 * FLT_EPSILON * 0.2f);
    EXPECT_EQ(0.0f, reducedAt(SaturationReducer().reduce(grey), 0, 0));
}

TEST(Reducer, SourceWithoutColourOrLuminanceIsRefused) {
    Image alpha(GenRect<int>(0, 0, 1, 1), Format("ax", Orvane::UB1, false));
    expectThrows<IllegalArgumentException>([&] { ChannelReducer('b').reduce(alpha); },
                                           "no such channel \"b\"");
    expectThrows<IllegalArgumentException>([&] { LuminanceReducer().reduce(alpha); },
                                           "no such channel \"r\"");
    expectThrows<IllegalArgumentException>([&] { SaturationReducer().visualize(alpha); },
                                           "no such channel \"r\"");
}

TEST(Reducer, UnknownDatatypeIsReportedByEveryReducer) {
    Image img(GenRect<int>(0, 0, 2, 2), Format::getRGBA());
    Image pattern(GenRect<int>(0, 0, 2, 2), Format::getRGBA());
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 2; ++x)
            put<unsigned char>(pattern, x, y, {(unsigned char)(x * 90), 3, 4, 255});
    const std::unique_ptr<PCAReducer> pca(PCAReducer::setupPCA(pattern));
    // Same bytes, a datatype code outside the five.
    img.setFormat(Format("rgba", 9, false));

    const ChannelReducer red('r');
    const LuminanceReducer luminance;
    const SaturationReducer saturation;
    for (const Reducer* r :
         {static_cast<const Reducer*>(&red), static_cast<const Reducer*>(&luminance),
          static_cast<const Reducer*>(&saturation), static_cast<const Reducer*>(pca.get())}) {
        expectThrows<IllegalArgumentException>([&] { r->reduce(img); }, "src datatype unknown");
        expectThrows<IllegalArgumentException>([&] { r->visualize(img); }, "src datatype unknown");
    }
    expectThrows<IllegalArgumentException>([&] { PCAReducer::setupPCA(img); },
                                           "src datatype unknown");
}

// Every datatype, in a "bgra" layout on a padded view, against the formulas
// evaluated here.
template <class S> class ReducerTyped : public ::testing::Test {};
using SampleTypes = ::testing::Types<unsigned char, unsigned short, unsigned int, float, double>;
TYPED_TEST_SUITE(ReducerTyped, SampleTypes);

TYPED_TEST(ReducerTyped, MatchIndependentFormulas) {
    using S = TypeParam;
    std::mt19937 rng(1234);
    const GenRect<int> bounds(7, -3, 13, 6);
    const Image src = sampleimages::randomImage<S>(bounds, "bgra", rng);
    ASSERT_GT(src.getStride(), int(bounds.w * 4 * sizeof(S)));
    // An extreme pixel, so full-range samples are covered.
    put<S>(src, bounds.x, bounds.y, {S(0), sampleimages::fullScale<S>(), S(0), S(0)});

    const Image lum = LuminanceReducer().reduce(src);
    const Image sat = SaturationReducer().reduce(src);
    const Image red = ChannelReducer('r').reduce(src);
    const Image green = ChannelReducer('g').reduce(src);
    const Image blue = ChannelReducer('b').reduce(src);
    for (const Image* reduced : {&lum, &sat, &red, &green, &blue})
        expectReducedShape(src, *reduced);

    for (int y = bounds.y; y < bounds.y + bounds.h; ++y) {
        for (int x = bounds.x; x < bounds.x + bounds.w; ++x) {
            const S* p = at<S>(src, x, y);
            const double b = unitOf(p[0]), g = unitOf(p[1]), r = unitOf(p[2]);
            const float l = float(0.299 * r + 0.587 * g + 0.114 * b);
            const float s = float(std::max({r, g, b}) - std::min({r, g, b}));
            EXPECT_NEAR(l, reducedAt(lum, x, y), 4 * FLT_EPSILON * l) << x << "," << y;
            EXPECT_NEAR(s, reducedAt(sat, x, y), 4 * FLT_EPSILON * s) << x << "," << y;
            EXPECT_EQ(tableToFloat(p[2]), reducedAt(red, x, y));
            EXPECT_EQ(tableToFloat(p[1]), reducedAt(green, x, y));
            EXPECT_EQ(tableToFloat(p[0]), reducedAt(blue, x, y));
        }
    }
}

TYPED_TEST(ReducerTyped, PCAReduceIsTheDotProductWithThePatternAxis) {
    using S = TypeParam;
    std::mt19937 rng(99);
    const Image pattern = sampleimages::randomImage<S>(GenRect<int>(0, 0, 9, 7), "rgb", rng);
    const Image search = sampleimages::randomImage<S>(GenRect<int>(-4, 2, 11, 5), "rgb", rng);
    const std::unique_ptr<PCAReducer> reducer(PCAReducer::setupPCA(pattern));
    const KrGenVector<float>& axis = reducer->getPCA().getAxis();
    ASSERT_EQ(3, axis.length());

    // The search region is projected on the pattern's axis, not its own.
    const Image reduced = reducer->reduce(search);
    expectReducedShape(search, reduced);
    const GenRect<int>& b = search.getBounds();
    for (int y = b.y; y < b.y + b.h; ++y) {
        for (int x = b.x; x < b.x + b.w; ++x) {
            const S* p = at<S>(search, x, y);
            float dot = 0;
            for (int k = 0; k < 3; ++k)
                dot += float(p[k]) * axis[k];
            EXPECT_EQ(dot, reducedAt(reduced, x, y)) << x << "," << y;
        }
    }
}

TEST(PCAReducer, ReducerWithMoreChannelsThanItsAxisReportsTheVectorError) {
    Image pattern(GenRect<int>(0, 0, 2, 1), Format::getRGB());
    put<unsigned char>(pattern, 0, 0, {0, 0, 0});
    put<unsigned char>(pattern, 1, 0, {10, 20, 30});
    const std::unique_ptr<PCAReducer> reducer(PCAReducer::setupPCA(pattern));
    Image rgba(GenRect<int>(0, 0, 2, 1), Format::getRGBA());
    expectThrows<KrMatrixError>([&] { reducer->reduce(rgba); }, "KrVector index 3 out of range 2");
}

TEST(ChannelReducer, VisualizeKeepsOnlyTheChosenChannel) {
    std::mt19937 rng(5);
    const GenRect<int> bounds(1, 2, 6, 4);
    const Image src = sampleimages::randomImage<unsigned short>(bounds, "bgra", rng);
    const Image view = ChannelReducer('g').visualize(src);
    EXPECT_EQ(src.getBounds(), view.getBounds());
    EXPECT_EQ(src.getFormat(), view.getFormat());
    for (int y = bounds.y; y < bounds.y + bounds.h; ++y) {
        for (int x = bounds.x; x < bounds.x + bounds.w; ++x) {
            const unsigned short* p = at<unsigned short>(view, x, y);
            EXPECT_EQ(0, p[0]);
            EXPECT_EQ(at<unsigned short>(src, x, y)[1], p[1]);
            EXPECT_EQ(0, p[2]);
            EXPECT_EQ(0, p[3]);
        }
    }
}

TEST(LuminanceReducer, VisualizeSpreadsLuminanceOverTheColourChannels) {
    std::mt19937 rng(8);
    const GenRect<int> bounds(-5, 0, 4, 3);
    const Image src = sampleimages::randomImage<unsigned char>(bounds, "rgba", rng);
    const Image lum = LuminanceReducer().reduce(src);
    const Image sat = SaturationReducer().reduce(src);
    const Image lumView = LuminanceReducer().visualize(src);
    const Image satView = SaturationReducer().visualize(src);
    for (const Image* view : {&lumView, &satView}) {
        EXPECT_EQ(src.getBounds(), view->getBounds());
        EXPECT_EQ(src.getFormat(), view->getFormat());
    }
    for (int y = bounds.y; y < bounds.y + bounds.h; ++y) {
        for (int x = bounds.x; x < bounds.x + bounds.w; ++x) {
            // The float value into 8 bits by the sample table: scaled, truncated.
            const unsigned char l = (unsigned char)(reducedAt(lum, x, y) * 255.0f);
            const unsigned char s = (unsigned char)(reducedAt(sat, x, y) * 255.0f);
            const unsigned char* lp = at<unsigned char>(lumView, x, y);
            const unsigned char* sp = at<unsigned char>(satView, x, y);
            for (int k = 0; k < 3; ++k) {
                EXPECT_EQ(l, lp[k]);
                EXPECT_EQ(s, sp[k]);
            }
            EXPECT_EQ(255, lp[3]);
            EXPECT_EQ(255, sp[3]);
        }
    }
}

TEST(Reducer, EmptyBoundsGiveAnEmptyReducedImage) {
    const Image empty(GenRect<int>(4, 4, 0, 3), Format::getRGBA());
    for (const Image& reduced :
         {LuminanceReducer().reduce(empty), SaturationReducer().reduce(empty),
          ChannelReducer('b').reduce(empty)})
        expectReducedShape(empty, reduced);
}
