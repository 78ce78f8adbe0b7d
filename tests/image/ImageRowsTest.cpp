#include "image/ImageRows.h"

#include "support/ExpectThrows.h"
#include "support/PixelProbe.h"

#include <cstddef>
#include <string>
#include <vector>

using Orvane::Format;
using Orvane::Image;
using Orvane::ImageRows;
using Point = Orvane::GenPoint<int>;
using Rect = Orvane::GenRect<int>;
using testsupport::DatatypeOf;
using testsupport::sampleAt;

namespace {

template <class T> class ImageRowsTyped : public testing::Test {};
TYPED_TEST_SUITE(ImageRowsTyped, testsupport::SampleTypes);

const char* const rowOutside = "ImageRows::row";

} // namespace

// Each row starts where the image's own addressing puts the row's first
// pixel, for a store off the origin and for a view whose rows are its
// parent's, stride and all.
TYPED_TEST(ImageRowsTyped, RowsStartWhereTheImagePutsTheirFirstPixel) {
    using T = TypeParam;
    const Image parent =
        testsupport::randomImage<T>(Rect(-3, 5, 7, 6), "rgb", 11u + DatatypeOf<T>::value);
    const Image view = parent.clip(Rect(-1, 7, 4, 3));
    for (const Image& img : {parent, view}) {
        const Rect& b = img.getBounds();
        const ImageRows<const T> rows(img);
        ASSERT_EQ(b.h, rows.height());
        ASSERT_EQ(b.w, rows.width());
        for (int y = 0; y < b.h; ++y) {
            EXPECT_EQ(img.getBuffer(Point(b.x, b.y + y)), rows.row(y)) << img << " row " << y;
            for (int x = 0; x < b.w; ++x)
                for (int k = 0; k < 3; ++k)
                    ASSERT_EQ(sampleAt<T>(img, b.x + x, b.y + y, k), rows.row(y)[3 * x + k]);
        }
    }
}

TYPED_TEST(ImageRowsTyped, WritesThroughAViewReachTheParent) {
    using T = TypeParam;
    Image parent(Rect(0, 0, 5, 4), Format("l", DatatypeOf<T>::value, false));
    const ImageRows<T> all(parent);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 5; ++x)
            all.row(y)[x] = T(0);
    const ImageRows<T> inner(parent.clip(Rect(1, 1, 3, 2)));
    for (int y = 0; y < inner.height(); ++y)
        for (int x = 0; x < inner.width(); ++x)
            inner.row(y)[x] = T(10 * y + x + 1);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 5; ++x) {
            const bool inside = x >= 1 && x <= 3 && y >= 1 && y <= 2;
            EXPECT_EQ(inside ? T(10 * (y - 1) + x) : T(0), sampleAt<T>(parent, x, y, 0))
                << x << "," << y;
        }
}

TYPED_TEST(ImageRowsTyped, ChecksTheDatatypeOnceAndEveryRow) {
    using T = TypeParam;
    const Image img(Rect(2, 2, 3, 4), Format("l", DatatypeOf<T>::value, false));
    const ImageRows<const T> rows(img);
    EXPECT_NO_THROW(rows.row(0));
    EXPECT_NO_THROW(rows.row(3));
    for (int y : {-1, 4, 1 << 30, -(1 << 30)})
        expectThrows<BadIndexException>([&] { rows.row(y); }, rowOutside);

    // Any other datatype refuses T with the image's own typed-access text.
    const int other = DatatypeOf<T>::value == Orvane::UB1 ? Orvane::DOUBLE : Orvane::UB1;
    const Image wrong(Rect(0, 0, 2, 2), Format("rgb", other, false));
    const std::string text = "wrong datatype " +
                             Orvane::datatypeString(DatatypeOf<T>::value).str() + "; image is " +
                             wrong.getFormat().str().str();
    expectThrows<IllegalArgumentException>([&] { ImageRows<const T>{wrong}; }, text);
    expectThrows<IllegalArgumentException>([&] { ImageRows<T>{wrong}; }, text);
}

TEST(ImageRows, WrongDatatypeNamesTheRequestedTypeAndTheFormat) {
    const Image img(Rect(0, 0, 2, 2), Format("rgba", Orvane::FLOAT, false));
    expectThrows<IllegalArgumentException>(
        [&] { ImageRows<const unsigned char>{img}; },
        "wrong datatype ub1; image is Format(RGBA, float, false)");
    expectThrows<IllegalArgumentException>(
        [&] { ImageRows<double>{img}; },
        "wrong datatype double; image is Format(RGBA, float, false)");
    expectThrows<NullPointerException>([] { ImageRows<float>{Image()}; }, "Image::getBuffer");
    expectThrows<NullPointerException>([] { ImageRows<unsigned char>::bytes(Image()); },
                                       "Image::getBuffer");
}

TEST(ImageRows, EmptyAndInvertedBoundsHaveNoRows) {
    const Image img(Rect(0, 0, 4, 4), Format::mono(Orvane::FLOAT));
    const Image disjoint = img.clip(Rect(10, 10, 2, 2));
    ASSERT_LT(disjoint.getBounds().w, 0);
    for (const Image& none : {Image(Rect(0, 0, 3, 0), Format::mono(Orvane::FLOAT)), disjoint}) {
        const ImageRows<const float> rows(none);
        EXPECT_EQ(0, rows.height());
        expectThrows<BadIndexException>([&] { rows.row(0); }, rowOutside);
    }
    EXPECT_EQ(0, ImageRows<const float>(disjoint).width());
}

// Rows of a borrowed buffer with padding lie a stride apart, not a row of
// samples apart; bytes() walks them whatever the datatype.
TEST(ImageRows, PaddedRowsAndRawBytesStepByTheStride) {
    const int stride = 5 * int(sizeof(double)) + 12;
    std::vector<unsigned char> buffer(std::size_t(stride) * 3);
    const Image img(Rect(4, -2, 5, 3), Format::mono(Orvane::DOUBLE), buffer.data(), stride);
    const ImageRows<const double> rows(img);
    const auto bytes = ImageRows<unsigned char>::bytes(img);
    const auto constBytes = ImageRows<const unsigned char>::bytes(img);
    for (int y = 0; y < 3; ++y) {
        const unsigned char* start = buffer.data() + std::ptrdiff_t(y) * stride;
        EXPECT_EQ(static_cast<const void*>(start), rows.row(y));
        EXPECT_EQ(start, bytes.row(y));
        EXPECT_EQ(start, constBytes.row(y));
    }
    expectThrows<BadIndexException>([&] { bytes.row(3); }, rowOutside);
}
