#include "image/Image.h"

#include "support/ExpectThrows.h"
#include "support/PixelProbe.h"

#include <functional>
#include <sstream>
#include <utility>
#include <vector>

using Orvane::Format;
using Orvane::Image;
using Orvane::ImageImpl;
using Rect = Orvane::GenRect<int>;
using testsupport::RecordingImpl;
using Point = Orvane::GenPoint<int>;

namespace {

unsigned char& byteAt(const Image& img, const Point& p) {
    return *static_cast<unsigned char*>(img.getBuffer(p));
}

std::ptrdiff_t distance(const void* from, const void* to) {
    return static_cast<const char*>(to) - static_cast<const char*>(from);
}

} // namespace

TEST(GenRect, IntersectionIsUnclampedButInPlaceLeavesAnEmptyRectangle) {
    const Rect cases[][3] = {
        {{0, 0, 10, 10}, {5, 6, 20, 20}, {5, 6, 5, 4}},
        {{0, 0, 10, 10}, {0, 0, 10, 10}, {0, 0, 10, 10}}, // every edge a tie
        {{0, 0, 5, 5}, {5, 0, 5, 5}, {5, 0, 0, 5}},       // touching edges share no pixel
        {{0, 0, 0, 0}, {1, 1, 5, 5}, {1, 1, -1, -1}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c[2], c[0] & c[1]) << c[0] << " & " << c[1];
    Rect empty(0, 0, 0, 0);
    empty &= Rect(1, 1, 5, 5);
    EXPECT_EQ(Rect(0, 0, 0, 0), empty);
    std::ostringstream os;
    os << Rect(1, 1, -1, -1) << Orvane::GenRect<double>(-5.5, -5, 10, 10.25) << Point(3, -4)
       << (Rect(1, 2, 3, 4) + Point(5, -3));
    EXPECT_EQ("Rect(1,1,-1,-1)Rect(-5.5,-5,10,10.25)Point(3,-4)Rect(6,-1,3,4)", os.str());
}

TEST(Image, BuffersAreAddressedByStrideFromTheBoundsCornerWithTypeChecks) {
    Image img(Rect(0, 0, 640, 480), Format::getRGBA());
    EXPECT_EQ(2560, img.getStride());
    EXPECT_EQ(2564, distance(img.getBuffer(), img.getBuffer(Point(1, 1))));
    Image f(Rect(-3, 7, 5, 2), Format("rgb", Orvane::DOUBLE, false));
    EXPECT_EQ(120 + 2 * 24, distance(f.getBuffer(), f.getBuffer(Point(-1, 8))));

    Image l(Rect(2, 3, 4, 5), Format::getL());
    for (Point p : {Point(2, 3), Point(5, 7)})
        EXPECT_TRUE(l.containsPixel(p)) << p;
    for (Point p : {Point(6, 7), Point(5, 8), Point(1, 3), Point(2, 2)})
        EXPECT_FALSE(l.containsPixel(p)) << p;
    Image rgba(Rect(0, 0, 2, 2), Format::getRGBA());
    unsigned short* ub2 = nullptr;
    float* fl = nullptr;
    const std::string is = "; image is " + rgba.getFormat().str().str();
    expectThrows<IllegalArgumentException>([&] { rgba.getBuffer(ub2); }, "wrong datatype ub2" + is);
    expectThrows<IllegalArgumentException>([&] { rgba.getBuffer(fl, Point(1, 1)); },
                                           "wrong datatype float" + is);
    EXPECT_EQ(nullptr, fl);
}

TEST(Image, EmptyHandleAccessorsThrowAndQueriesAreSilent) {
    Image e;
    unsigned char* p;
    // clang-format off
    const std::pair<std::function<void()>, const char*> cases[] = {
        {[&] { e.getBounds(); }, "Image::getBounds"}, {[&] { e.allocate(e); }, "Image::getBounds"},
        {[&] { e.getFormat(); }, "Image::getFormat"},
        {[&] { e.setFormat(Format::getL()); }, "Image::getFormat"},
        {[&] { e.getStride(); }, "Image::getStride"}, {[&] { e.getBuffer(); }, "Image::getBuffer"},
        {[&] { e.getBuffer(Point(1, 1)); }, "Image::getBuffer"},
        {[&] { e.getBuffer(p); }, "Image::getBuffer"},
        {[&] { e.getBuffer(p, Point()); }, "Image::getBuffer"},
        {[&] { e.clip(Rect()); }, "Image::clip"}, {[&] { e.offset(Point()); }, "Image::offset"},
        {[&] { e.offset(Rect(), Point()); }, "Image::offset"},
        {[&] { e.getInfo(); }, "Image::getInfo"}, {[&] { e.setInfo("x"); }, "Image::setInfo"},
    };
    // clang-format on
    for (const auto& [call, text] : cases)
        expectThrows<NullPointerException>(call, text);
    std::ostringstream os;
    os << e << Image(Rect(0, 0, 640, 480), Format::getRGBA());
    EXPECT_EQ("Image()Image(Rect(0,0,640,480),Format(RGBA, ub1, false))", os.str());
}

TEST(Image, ViewChainsWriteThroughAndReportChangesInRootCoordinates) {
    auto* root = new RecordingImpl(Rect(0, 0, 100, 100), Format::getL());
    Image img(root);
    Image clipped = img.clip(Rect(2, 1, 3, 200));
    EXPECT_EQ(Rect(2, 1, 3, 99), clipped.getBounds());
    EXPECT_EQ(img.getBuffer(Point(4, 5)), clipped.getBuffer(Point(4, 5)));
    // First level: pixels (10..59, 20..69) renamed by -(10, 20); second:
    // its (5..14, 5..14) renamed by -(-100, 3).
    Image first = img.offset(Rect(10, 20, 50, 50), Point(10, 20));
    Image second = first.offset(Rect(5, 5, 10, 10), Point(-100, 3));
    ASSERT_EQ(Rect(105, 2, 10, 10), second.getBounds());
    byteAt(second, Point(106, 3)) = 200;
    EXPECT_EQ(200, byteAt(img, Point(16, 26)));
    // Clipped to the second view: (108, 2, 7, 8); moved by (-100, 3) and
    // then by (10, 20): (18, 25, 7, 8).
    second.changed(Rect(108, -10, 50, 20));
    first.changed(Rect(-5, -5, 10, 10));
    EXPECT_EQ(std::vector<Rect>({Rect(18, 25, 7, 8), Rect(10, 20, 5, 5)}), root->rects);
}

TEST(Image, OwnedStoreLivesExactlyAsLongAsItsLastHandleOrView) {
    int destroyed = 0;
    Image a(new RecordingImpl(Rect(0, 0, 4, 4), Format::getL(), &destroyed));
    ImageImpl* root = a.getImpl();
    {
        Image b = a, c;
        c = b;
        EXPECT_EQ(3, root->getRefCount());
    }
    EXPECT_EQ(1, root->getRefCount());
    Image view = a.clip(Rect(1, 1, 2, 2));
    Image subview = view.offset(Point(3, 3));
    EXPECT_EQ(2, root->getRefCount()); // the subview holds the view, not the root
    EXPECT_EQ(2, view.getImpl()->getRefCount());
    byteAt(a, Point(2, 2)) = 33;
    a.clear();
    view.clear();
    EXPECT_EQ(0, destroyed);
    EXPECT_EQ(33, byteAt(subview, Point(-1, -1)));
    subview = Image();
    EXPECT_EQ(1, destroyed);

    // Assigning a handle to itself releases it.
    Image s(new RecordingImpl(Rect(0, 0, 2, 2), Format::getL(), &destroyed));
    Image& alias = s;
    s = alias;
    EXPECT_FALSE(s.exists());
    EXPECT_EQ(2, destroyed);

    // A borrowed buffer is never freed.
    std::vector<unsigned short> pixels(4 * 3 * 2, 0);
    {
        Image img(Rect(10, 20, 4, 3), Format("la", Orvane::UB2, false), pixels.data());
        EXPECT_FALSE(img.getImpl()->isBufferOwner());
        unsigned short* p = nullptr;
        img.getBuffer(p, Point(12, 21))[1] = 4321;
        Image view = img.clip(Rect(11, 21, 2, 2));
    }
    EXPECT_EQ(4321, pixels[(1 * 4 + 2) * 2 + 1]);
    pixels.assign(pixels.size(), 7); // still ours to write
}

TEST(Image, AllocateReusesOnlyAnIdenticalStore) {
    Image img;
    img.allocate(Rect(1, 2, 3, 4), Format::getRGBA());
    Image before = img;
    img.allocate(Rect(1, 2, 3, 4), Format::getRGBA());
    EXPECT_EQ(before, img);
    img.allocate(Rect(1, 2, 3, 4), Format::getrgba());
    EXPECT_NE(before, img);
    EXPECT_EQ(1, before.getImpl()->getRefCount());
    Image other = img;
    img.allocate(Rect(1, 2, 3, 5), Format::getrgba());
    EXPECT_NE(other, img);
}
