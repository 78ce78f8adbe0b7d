#include "track/PCA.h"

#include "base/Exception.h"
#include "image/Format.h"
#include "image/GenRect.h"
#include "image/Image.h"
#include "krovel/KrGenMatrix.h"
#include "krovel/KrGenVector.h"
#include "krovel/KrMatrixError.h"
#include "support/ExpectThrows.h"
#include "track/SampleImages.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

using Orvane::Format;
using Orvane::GenRect;
using Orvane::Image;
using sampleimages::at;
using sampleimages::put;

namespace {

double norm(const KrGenVector<float>& v) {
    double s = 0;
    for (int k = 0; k < v.length(); ++k)
        s += double(v[k]) * v[k];
    return std::sqrt(s);
}

// Left half one colour, right half another, opaque.
Image twoColours(const unsigned char (&a)[3], const unsigned char (&b)[3]) {
    Image img(GenRect<int>(10, 20, 6, 4), Format::getRGBA());
    for (int y = 20; y < 24; ++y)
        for (int x = 10; x < 16; ++x) {
            const unsigned char* c = x < 13 ? a : b;
            put<unsigned char>(img, x, y, {c[0], c[1], c[2], 255});
        }
    return img;
}

const unsigned char kOrange[3] = {200, 40, 10};
const unsigned char kTeal[3] = {20, 100, 160};

// Orthonormality of a float LAPACK factor holds to a few ulps per element.
const double kUnitTolerance = 4 * 4 * FLT_EPSILON;

std::string lastMatrixError;
void recordMatrixError(const char* message) {
    lastMatrixError = message;
}

} // namespace

TEST(PCA, AxisOfTwoColoursFollowsTheirDifference) {
    const PCA<float> pca(twoColours(kOrange, kTeal));
    const KrGenVector<float>& axis = pca.getAxis();
    ASSERT_EQ(4, axis.length());
    EXPECT_NEAR(1.0, norm(axis), kUnitTolerance);

    double d[3], dn = 0;
    for (int k = 0; k < 3; ++k) {
        d[k] = double(kTeal[k]) - kOrange[k];
        dn += d[k] * d[k];
    }
    dn = std::sqrt(dn);
    double cosine = 0;
    for (int k = 0; k < 3; ++k)
        cosine += axis[k] * d[k] / dn;
    // Up to sign: the decomposition fixes none.
    EXPECT_NEAR(1.0, std::abs(cosine), kUnitTolerance);
    // Alpha never varies, so it has no share in the axis.
    EXPECT_NEAR(0.0, axis[3], kUnitTolerance);
}

TEST(PCA, ScatterIsNotDividedByThePixelCount) {
    Image img(GenRect<int>(0, 0, 2, 1), Format::mono(Orvane::FLOAT));
    put<float>(img, 0, 0, {0.0f});
    put<float>(img, 1, 0, {2.0f});
    const KrGenVector<float> mean = PCA<float>::channelMeans(img);
    EXPECT_EQ(1.0f, mean[0]);
    // (0 - 1)^2 + (2 - 1)^2; divided by N it would be 1.
    EXPECT_EQ(2.0f, PCA<float>::scatterMatrix(img, mean)(0, 0));
}

TEST(PCA, ReduceDoesNotSubtractTheMean) {
    const Image img = twoColours(kOrange, kTeal);
    const PCA<float> pca(img);
    const KrGenVector<float>& axis = pca.getAxis();
    const Image reduced = pca.reduce(img);
    EXPECT_EQ(img.getBounds(), reduced.getBounds());
    EXPECT_EQ(Format::mono(Orvane::FLOAT), reduced.getFormat());

    // Accumulated in float, channel by channel, as the reduction does.
    float dotOrange = 0, dotTeal = 0;
    for (int k = 0; k < 3; ++k) {
        dotOrange += float(kOrange[k]) * axis[k];
        dotTeal += float(kTeal[k]) * axis[k];
    }
    dotOrange += 255.0f * axis[3];
    dotTeal += 255.0f * axis[3];
    EXPECT_EQ(dotOrange, *at<float>(reduced, 10, 20));
    EXPECT_EQ(dotTeal, *at<float>(reduced, 15, 23));

    // Centred values would average to zero; these average to mean · axis.
    double meanDot = 0;
    for (int k = 0; k < 4; ++k)
        meanDot += double(pca.getMean()[k]) * axis[k];
    const double average = (double(dotOrange) + dotTeal) / 2;
    EXPECT_GT(std::abs(meanDot), 1.0);
    EXPECT_NEAR(meanDot, average, 4 * 4 * FLT_EPSILON * 255 * 4);
}

TEST(PCA, VisualizeRestoresColoursOnThePrincipalLine) {
    const Image img = twoColours(kOrange, kTeal);
    const PCA<float> pca(img);
    const Image view = pca.visualize(img);
    EXPECT_NE(img, view);
    EXPECT_EQ(img.getBounds(), view.getBounds());
    EXPECT_EQ(img.getFormat(), view.getFormat());
    // Both colours lie on the line through their mean along their difference,
    // so the projection gives them back once rounded to 8 bits.
    for (int y = 20; y < 24; ++y)
        for (int x = 10; x < 16; ++x)
            for (int k = 0; k < 4; ++k)
                EXPECT_EQ(at<unsigned char>(img, x, y)[k], at<unsigned char>(view, x, y)[k])
                    << x << "," << y << " channel " << k;
}

TEST(PCA, VisualizeDropsColourAcrossTheAxis) {
    std::mt19937 rng(17);
    const Image img = sampleimages::randomImage<double>(GenRect<int>(0, 0, 5, 5), "rgb", rng);
    const PCA<float> pca(img);
    const Image view = pca.visualize(img);
    EXPECT_EQ(img.getFormat(), view.getFormat());
    const KrGenVector<float>& a = pca.getAxis();
    const KrGenVector<float>& m = pca.getMean();
    for (int y = 0; y < 5; ++y) {
        for (int x = 0; x < 5; ++x) {
            const double* q = at<double>(view, x, y);
            // q - mean is parallel to the axis: its cross product vanishes.
            const double u[3] = {q[0] - m[0], q[1] - m[1], q[2] - m[2]};
            const double cross[3] = {u[1] * a[2] - u[2] * a[1], u[2] * a[0] - u[0] * a[2],
                                     u[0] * a[1] - u[1] * a[0]};
            for (double c : cross)
                EXPECT_NEAR(0.0, c, 4 * FLT_EPSILON);
        }
    }
}

// Every datatype against sums written out here.
template <class S> class PCATyped : public ::testing::Test {};
using SampleTypes = ::testing::Types<unsigned char, unsigned short, unsigned int, float, double>;
TYPED_TEST_SUITE(PCATyped, SampleTypes);

TYPED_TEST(PCATyped, MeansAndScatterMatchADirectComputation) {
    using S = TypeParam;
    std::mt19937 rng(2024);
    const GenRect<int> bounds(3, -2, 8, 5);
    const Image img = sampleimages::randomImage<S>(bounds, "rgba", rng);
    const int n = bounds.w * bounds.h;

    double sum[4] = {0, 0, 0, 0};
    for (int y = bounds.y; y < bounds.y + bounds.h; ++y)
        for (int x = bounds.x; x < bounds.x + bounds.w; ++x)
            for (int k = 0; k < 4; ++k)
                sum[k] += double(at<S>(img, x, y)[k]);
    const KrGenVector<float> mean = PCA<float>::channelMeans(img);
    ASSERT_EQ(4, mean.length());
    for (int k = 0; k < 4; ++k) {
        const double expected = sum[k] / n;
        EXPECT_NEAR(expected, mean[k], FLT_EPSILON * std::abs(expected));
    }

    const KrGenMatrix<float> scatter = PCA<float>::scatterMatrix(img, mean);
    ASSERT_EQ(4, scatter.rows());
    ASSERT_EQ(4, scatter.cols());
    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 4; ++j) {
            double expected = 0, magnitude = 0;
            for (int y = bounds.y; y < bounds.y + bounds.h; ++y)
                for (int x = bounds.x; x < bounds.x + bounds.w; ++x) {
                    const S* p = at<S>(img, x, y);
                    const double t = (double(p[i]) - mean[i]) * (double(p[j]) - mean[j]);
                    expected += t;
                    magnitude += std::abs(t);
                }
            EXPECT_NEAR(expected, scatter(i, j), 4 * FLT_EPSILON * magnitude) << i << "," << j;
            EXPECT_EQ(scatter(i, j), scatter(j, i));
        }
    }
}

TYPED_TEST(PCATyped, AxisIsTheLeadingEigenvectorOfTheScatter) {
    using S = TypeParam;
    std::mt19937 rng(7);
    const Image img = sampleimages::randomImage<S>(GenRect<int>(0, 0, 12, 9), "rgb", rng);
    const PCA<float> pca(img);
    const KrGenMatrix<float> c = PCA<float>::scatterMatrix(img, pca.getMean());
    const KrGenVector<float>& a = pca.getAxis();
    ASSERT_EQ(3, a.length());
    EXPECT_NEAR(1.0, norm(a), kUnitTolerance);

    double ca[3] = {0, 0, 0}, lambda = 0, frobenius = 0;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) {
            ca[i] += double(c(i, j)) * a[j];
            frobenius += double(c(i, j)) * c(i, j);
        }
        lambda += ca[i] * a[i];
    }
    frobenius = std::sqrt(frobenius);
    // Judged by the residual of C a = lambda a, against the matrix's scale.
    for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(lambda * a[i], ca[i], 3 * 16 * FLT_EPSILON * frobenius) << i;
    // The leading one: no coordinate direction has a larger Rayleigh quotient.
    for (int i = 0; i < 3; ++i)
        EXPECT_GE(lambda, double(c(i, i)) * (1 - 16 * FLT_EPSILON));
}

TEST(PCA, UniformAndEmptyImagesGiveAUnitAxisWithoutFailing) {
    Image flat(GenRect<int>(0, 0, 3, 3), Format::getRGB());
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 3; ++x)
            put<unsigned char>(flat, x, y, {9, 9, 9});
    const PCA<float> uniform(flat);
    EXPECT_NEAR(1.0, norm(uniform.getAxis()), kUnitTolerance);

    const PCA<float> empty(Image(GenRect<int>(0, 0, 0, 0), Format::getRGB()));
    ASSERT_EQ(3, empty.getMean().length());
    for (int k = 0; k < 3; ++k)
        EXPECT_EQ(0.0f, empty.getMean()[k]);
    EXPECT_NEAR(1.0, norm(empty.getAxis()), kUnitTolerance);
}

TEST(PCA, NonFiniteScatterIsRefusedByTheDecomposition) {
    Image img(GenRect<int>(0, 0, 2, 1), Format("rgb", Orvane::DOUBLE, false));
    put<double>(img, 0, 0, {0.1, 0.2, 0.3});
    put<double>(img, 1, 0, {0.5, std::numeric_limits<double>::quiet_NaN(), 0.3});
    expectThrows<IllegalArgumentException>([&] { PCA<float> pca(img); }, "NaN");
    // An infinite sample makes an infinite mean, and inf - inf is NaN.
    put<double>(img, 1, 0, {0.5, std::numeric_limits<double>::infinity(), 0.3});
    expectThrows<IllegalArgumentException>([&] { PCA<float> pca(img); }, "NaN");
    // Finite samples whose squared deviations overflow the float matrix.
    put<double>(img, 1, 0, {0.5, 1e30, 0.3});
    expectThrows<IllegalArgumentException>([&] { PCA<float> pca(img); }, "infinite number");
}

TEST(PCA, WithAnErrorHandlerExtraChannelsAreLeftOut) {
    Image pattern(GenRect<int>(0, 0, 2, 1), Format::getRGB());
    put<unsigned char>(pattern, 0, 0, {0, 50, 100});
    put<unsigned char>(pattern, 1, 0, {30, 20, 10});
    const PCA<float> pca(pattern);
    const KrGenVector<float>& a = pca.getAxis();

    Image rgba(GenRect<int>(0, 0, 1, 1), Format::getRGBA());
    put<unsigned char>(rgba, 0, 0, {7, 8, 9, 255});
    lastMatrixError.clear();
    const KrMatrixError::Handler previous = KrMatrixError::setErrorHandler(recordMatrixError);
    const Image reduced = pca.reduce(rgba);
    const Image view = pca.visualize(rgba);
    KrMatrixError::setErrorHandler(previous);

    EXPECT_EQ("KrVector index 3 out of range 2", lastMatrixError);
    float dot = 0;
    for (int k = 0; k < 3; ++k)
        dot += float(at<unsigned char>(rgba, 0, 0)[k]) * a[k];
    EXPECT_EQ(dot, *at<float>(reduced, 0, 0));
    EXPECT_EQ(0, at<unsigned char>(view, 0, 0)[3]);
}
