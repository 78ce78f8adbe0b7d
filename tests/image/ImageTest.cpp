#include "image/Image.h"

#include "support/ExpectThrows.h"

#include <cstdint>
#include <new>
#include <sstream>
#include <string>
#include <vector>

using Orvane::Format;
using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::Image;
using Orvane::ImageImpl;
using Orvane::OffsetImageImpl;

namespace {

using Rect = GenRect<int>;
using Point = GenPoint<int>;

// A root store that counts its destructions and records what views report.
class ProbeImpl : public ImageImpl {
public:
    ProbeImpl(const Rect& bounds, const Format& f, int* destroyed)
        : ImageImpl(bounds, f), destroyed(destroyed) {
        alloc();
    }
    ~ProbeImpl() override { ++*destroyed; }

    void changed(const Rect& r) override { rects.push_back(r); }
    void flush() override { ++flushes; }

    std::vector<Rect> rects;
    int flushes = 0;

private:
    int* destroyed;
};

unsigned char* bytes(void* p) {
    return static_cast<unsigned char*>(p);
}

std::ptrdiff_t distance(void* from, void* to) {
    return reinterpret_cast<intptr_t>(to) - reinterpret_cast<intptr_t>(from);
}

std::string printed(const Image& img) {
    std::ostringstream os;
    os << img;
    return os.str();
}

} // namespace

TEST(Image, OwnedStoreHasUnpaddedRows) {
    Image img(Rect(0, 0, 640, 480), Format::getRGBA());
    EXPECT_EQ(2560, img.getStride());
    EXPECT_EQ(2564, distance(img.getBuffer(), img.getBuffer(Point(1, 1))));
    EXPECT_TRUE(img.getImpl()->isBufferOwner());
    EXPECT_EQ(1, img.getImpl()->getRefCount());

    Image f(Rect(-3, 7, 5, 2), Format("rgb", Orvane::DOUBLE, false));
    EXPECT_EQ(5 * 3 * 8, f.getStride());
    EXPECT_EQ(f.getStride() + 2 * 24, distance(f.getBuffer(), f.getBuffer(Point(-1, 8))));
}

TEST(Image, BufferStartsAtTheBoundsCorner) {
    Image img(Rect(100, 50, 10, 10), Format::getL());
    EXPECT_EQ(img.getBuffer(), img.getBuffer(Point(100, 50)));
    EXPECT_EQ(-11, distance(img.getBuffer(), img.getBuffer(Point(99, 49))));
}

TEST(Image, EmptySizeAllocatesNothingButIsOwned) {
    Image img(Rect(0, 0, 0, 5), Format::getRGBA());
    EXPECT_EQ(nullptr, img.getBuffer());
    EXPECT_EQ(0, img.getStride());
    EXPECT_TRUE(img.getImpl()->isBufferOwner());
}

TEST(Image, UnusableFormatsAndSizesFailCleanly) {
    expectThrows<IllegalArgumentException>([] { Image(Rect(0, 0, 4, 4), Format()); }, "datatype");
    unsigned char pixel[4];
    expectThrows<IllegalArgumentException>(
        [&] { Image(Rect(0, 0, 1, 1), Format("l", 7, false), pixel); }, "datatype");
    EXPECT_THROW(Image(Rect(0, 0, 100000, 100000), Format::getRGBA()), std::bad_alloc);
}

TEST(Image, BorrowedBufferIsAddressedButNeverFreed) {
    std::vector<unsigned short> pixels(4 * 3 * 2, 0);
    {
        Image img(Rect(10, 20, 4, 3), Format("la", Orvane::UB2, false), pixels.data());
        EXPECT_FALSE(img.getImpl()->isBufferOwner());
        EXPECT_EQ(4 * 2 * 2, img.getStride());
        unsigned short* p = nullptr;
        img.getBuffer(p, Point(12, 21));
        EXPECT_EQ(pixels.data() + (1 * 4 + 2) * 2, p);
        p[1] = 4321;
        Image view = img.clip(Rect(11, 21, 2, 2));
    }
    EXPECT_EQ(4321, pixels[(1 * 4 + 2) * 2 + 1]);
    pixels.assign(pixels.size(), 7); // still ours to write
}

TEST(Image, BorrowedBufferHonoursAnExplicitStride) {
    std::vector<unsigned char> pixels(3 * 16, 0);
    Image img(Rect(0, 0, 3, 3), Format::getRGBA(), pixels.data(), 16);
    EXPECT_EQ(16, img.getStride());
    EXPECT_EQ(pixels.data() + 2 * 16 + 1 * 4, img.getBuffer(Point(1, 2)));
}

TEST(Image, TypedAccessRequiresTheMatchingDatatype) {
    Image l(Rect(0, 0, 2, 2), Format("l", Orvane::FLOAT, false));
    unsigned char* ub1 = nullptr;
    expectThrows<IllegalArgumentException>([&] { l.getBuffer(ub1); },
                                           "wrong datatype ub1; image is Format(L, float, true)");
    expectThrows<IllegalArgumentException>([&] { l.getBuffer(ub1, Point(1, 1)); },
                                           "wrong datatype ub1; image is Format(L, float, true)");
    EXPECT_EQ(nullptr, ub1);

    Image rgba(Rect(0, 0, 2, 2), Format::getRGBA());
    unsigned short* ub2 = nullptr;
    unsigned int* ub4 = nullptr;
    float* fl = nullptr;
    double* db = nullptr;
    const std::string is = "; image is Format(RGBA, ub1, false)";
    expectThrows<IllegalArgumentException>([&] { rgba.getBuffer(ub2); }, "wrong datatype ub2" + is);
    expectThrows<IllegalArgumentException>([&] { rgba.getBuffer(ub4); }, "wrong datatype ub4" + is);
    expectThrows<IllegalArgumentException>([&] { rgba.getBuffer(fl); },
                                           "wrong datatype float" + is);
    expectThrows<IllegalArgumentException>([&] { rgba.getBuffer(db, Point(0, 0)); },
                                           "wrong datatype double" + is);
}

template <class T> int datatypeOf();
template <> int datatypeOf<unsigned char>() {
    return Orvane::UB1;
}
template <> int datatypeOf<unsigned short>() {
    return Orvane::UB2;
}
template <> int datatypeOf<unsigned int>() {
    return Orvane::UB4;
}
template <> int datatypeOf<float>() {
    return Orvane::FLOAT;
}
template <> int datatypeOf<double>() {
    return Orvane::DOUBLE;
}

template <class T> struct ImageTyped : ::testing::Test {};
using SampleTypes = ::testing::Types<unsigned char, unsigned short, unsigned int, float, double>;
TYPED_TEST_SUITE(ImageTyped, SampleTypes);

TYPED_TEST(ImageTyped, TypedPointerAddressesTheSamePixel) {
    using T = TypeParam;
    Image img(Rect(-2, 3, 5, 4), Format("rgb", datatypeOf<T>(), false));
    T* first = nullptr;
    T* at = nullptr;
    EXPECT_EQ(img.getBuffer(first), first);
    EXPECT_EQ(img.getBuffer(), static_cast<void*>(first));
    EXPECT_EQ(img.getBuffer(at, Point(1, 5)), at);
    EXPECT_EQ(img.getBuffer(Point(1, 5)), static_cast<void*>(at));
    EXPECT_EQ(first + (2 * 5 + 3) * 3, at); // two rows of five pixels, three pixels in

    at[2] = T(42);
    Image view = img.offset(Point(1, 5));
    T* moved = nullptr;
    EXPECT_EQ(T(42), view.getBuffer(moved, Point(0, 0))[2]);

    Image empty;
    expectThrows<NullPointerException>([&] { empty.getBuffer(first); }, "Image::getBuffer");
    expectThrows<NullPointerException>([&] { empty.getBuffer(first, Point(0, 0)); },
                                       "Image::getBuffer");
}

TEST(Image, EmptyHandleAccessorsThrow) {
    Image e;
    const Format& f = Format::getRGBA();
    expectThrows<NullPointerException>([&] { e.getBounds(); }, "Image::getBounds");
    expectThrows<NullPointerException>([&] { e.getFormat(); }, "Image::getFormat");
    expectThrows<NullPointerException>([&] { e.setFormat(f); }, "Image::getFormat");
    expectThrows<NullPointerException>([&] { e.getStride(); }, "Image::getStride");
    expectThrows<NullPointerException>([&] { e.getBuffer(); }, "Image::getBuffer");
    expectThrows<NullPointerException>([&] { e.getBuffer(Point(1, 1)); }, "Image::getBuffer");
    expectThrows<NullPointerException>([&] { e.clip(Rect(0, 0, 1, 1)); }, "Image::clip");
    expectThrows<NullPointerException>([&] { e.offset(Point(1, 1)); }, "Image::offset");
    expectThrows<NullPointerException>([&] { e.offset(Rect(0, 0, 1, 1), Point(1, 1)); },
                                       "Image::offset");
    expectThrows<NullPointerException>([&] { e.getInfo(); }, "Image::getInfo");
    expectThrows<NullPointerException>([&] { e.setInfo("x"); }, "Image::setInfo");
    expectThrows<NullPointerException>([&] { e.allocate(e); }, "Image::getBounds");
}

TEST(Image, EmptyHandleQueriesAreSilent) {
    Image e;
    e.changed(Rect(0, 0, 1, 1));
    e.flush();
    e.ref();
    e.deref();
    e.clear();
    EXPECT_FALSE(e.exists());
    EXPECT_EQ(Image(), e);
    EXPECT_FALSE(e.containsPixel(Point(0, 0)));
    EXPECT_EQ("Image()", printed(e));
}

TEST(Image, ContainsPixelExcludesRightAndBottomEdges) {
    Image img(Rect(2, 3, 4, 5), Format::getL());
    EXPECT_TRUE(img.containsPixel(Point(2, 3)));
    EXPECT_TRUE(img.containsPixel(Point(5, 7)));
    EXPECT_FALSE(img.containsPixel(Point(6, 7)));
    EXPECT_FALSE(img.containsPixel(Point(5, 8)));
    EXPECT_FALSE(img.containsPixel(Point(1, 3)));
    EXPECT_FALSE(img.containsPixel(Point(2, 2)));
}

TEST(Image, ClipNarrowsTheBoundsAndSharesThePixels) {
    Image img(Rect(0, 0, 8, 6), Format::getRGBA());
    Image view = img.clip(Rect(2, 1, 3, 10));
    EXPECT_EQ(Rect(2, 1, 3, 5), view.getBounds());
    EXPECT_EQ(img.getStride(), view.getStride());
    EXPECT_EQ(img.getFormat(), view.getFormat());
    EXPECT_EQ(img.getBuffer(Point(2, 1)), view.getBuffer());
    EXPECT_EQ(img.getBuffer(Point(4, 5)), view.getBuffer(Point(4, 5)));
    EXPECT_FALSE(view.getImpl()->isBufferOwner());
    EXPECT_NE(img, view);

    bytes(view.getBuffer(Point(3, 2)))[1] = 99;
    EXPECT_EQ(99, bytes(img.getBuffer(Point(3, 2)))[1]);
}

TEST(Image, DisjointClipIsEmptyAndPointsOutside) {
    Image img(Rect(0, 0, 4, 4), Format::getL());
    Image view = img.clip(Rect(10, 1, 2, 2));
    EXPECT_EQ(Rect(10, 1, -6, 2), view.getBounds());
    EXPECT_EQ(1 * 4 + 10, distance(img.getBuffer(), view.getBuffer()));
}

TEST(Image, OffsetRenamesPixelsWithoutMovingThem) {
    Image img(Rect(5, 5, 10, 10), Format::getRGB());
    Image view = img.offset(Point(5, 5));
    EXPECT_EQ(Rect(0, 0, 10, 10), view.getBounds());
    EXPECT_EQ(img.getBuffer(), view.getBuffer());
    bytes(view.getBuffer(Point(0, 0)))[0] = 17;
    EXPECT_EQ(17, bytes(img.getBuffer(Point(5, 5)))[0]);

    Image part = img.offset(Rect(7, 8, 2, 20), Point(-1, 2));
    EXPECT_EQ(Rect(8, 6, 2, 7), part.getBounds());
    EXPECT_EQ(img.getBuffer(Point(7, 8)), part.getBuffer());
    EXPECT_EQ(img.getBuffer(Point(8, 9)), part.getBuffer(Point(9, 7)));
}

TEST(Image, ChangedClimbsTheChainWithEachOffset) {
    int destroyed = 0;
    ProbeImpl* root = new ProbeImpl(Rect(0, 0, 100, 100), Format::getL(), &destroyed);
    Image img(root);
    // First level: pixels (10..59, 20..69) renamed by -(10, 20).
    Image first = img.offset(Rect(10, 20, 50, 50), Point(10, 20));
    ASSERT_EQ(Rect(0, 0, 50, 50), first.getBounds());
    // Second level: its (5..14, 5..14) renamed by -(-100, 3).
    Image second = first.offset(Rect(5, 5, 10, 10), Point(-100, 3));
    ASSERT_EQ(Rect(105, 2, 10, 10), second.getBounds());
    EXPECT_EQ(img.getBuffer(Point(15, 25)), second.getBuffer());

    // Clipped to the second view: (108, 2, 7, 8); moved by (-100, 3): (8, 5, 7, 8);
    // inside the first view, moved by (10, 20): (18, 25, 7, 8).
    second.changed(Rect(108, -10, 50, 20));
    ASSERT_EQ(1u, root->rects.size());
    EXPECT_EQ(Rect(18, 25, 7, 8), root->rects[0]);

    first.changed(Rect(-5, -5, 10, 10));
    ASSERT_EQ(2u, root->rects.size());
    EXPECT_EQ(Rect(10, 20, 5, 5), root->rects[1]);

    second.flush();
    first.flush();
    img.flush();
    EXPECT_EQ(3, root->flushes);

    bytes(second.getBuffer(Point(106, 3)))[0] = 200;
    EXPECT_EQ(200, bytes(img.getBuffer(Point(16, 26)))[0]);
}

TEST(Image, RerootedViewLooksDirectlyIntoTheParent) {
    Image img(Rect(0, 0, 40, 40), Format::getRGBA());
    Image first = img.offset(Rect(4, 6, 20, 20), Point(4, 6));
    auto* view = static_cast<OffsetImageImpl*>(first.getImpl());
    Image chained = first.offset(Rect(2, 3, 8, 100), Point(1, 1));
    Image direct(view->offset(Rect(2, 3, 8, 100), Point(1, 1)));

    auto* rerooted = static_cast<OffsetImageImpl*>(direct.getImpl());
    EXPECT_EQ(img, rerooted->getParent());
    EXPECT_EQ(Point(5, 7), rerooted->getOffset());
    EXPECT_EQ(chained.getBounds(), direct.getBounds());
    EXPECT_EQ(Rect(1, 2, 8, 17), direct.getBounds());
    EXPECT_EQ(chained.getBuffer(), direct.getBuffer());
    EXPECT_EQ(img.getBuffer(Point(6, 9)), direct.getBuffer());
}

TEST(Image, StoreLivesExactlyAsLongAsItsLastReference) {
    int destroyed = 0;
    Image a(new ProbeImpl(Rect(0, 0, 4, 4), Format::getL(), &destroyed));
    ProbeImpl* root = static_cast<ProbeImpl*>(a.getImpl());
    EXPECT_EQ(1, root->getRefCount());
    {
        Image b = a;
        Image c;
        c = b;
        EXPECT_EQ(3, root->getRefCount());
        EXPECT_EQ(a, c);
    }
    EXPECT_EQ(1, root->getRefCount());

    Image view = a.clip(Rect(1, 1, 2, 2));
    EXPECT_EQ(2, root->getRefCount());
    EXPECT_EQ(1, view.getImpl()->getRefCount());
    Image subview = view.offset(Point(3, 3));
    EXPECT_EQ(2, root->getRefCount()); // the subview holds the view, not the root
    EXPECT_EQ(2, view.getImpl()->getRefCount());

    bytes(a.getBuffer(Point(2, 2)))[0] = 33;
    a.clear();
    EXPECT_FALSE(a.exists());
    EXPECT_EQ(0, destroyed);
    view.clear();
    EXPECT_EQ(0, destroyed);
    EXPECT_EQ(33, bytes(subview.getBuffer(Point(-1, -1)))[0]);
    subview = Image();
    EXPECT_EQ(1, destroyed);
}

TEST(Image, ExplicitRefAndDerefBalance) {
    int destroyed = 0;
    Image a(new ProbeImpl(Rect(0, 0, 1, 1), Format::getL(), &destroyed));
    ImageImpl* store = a.getImpl();
    a.ref();
    EXPECT_EQ(2, store->getRefCount());
    a.deref();
    EXPECT_FALSE(a.exists());
    EXPECT_EQ(0, destroyed);
    EXPECT_EQ(1, store->getRefCount());
    store->deref();
    EXPECT_EQ(1, destroyed);
}

TEST(Image, SelfAssignmentEmptiesTheHandle) {
    int destroyed = 0;
    Image a(new ProbeImpl(Rect(0, 0, 2, 2), Format::getL(), &destroyed));
    Image b = a;
    Image& alias = a;
    a = alias;
    EXPECT_FALSE(a.exists());
    EXPECT_EQ(1, b.getImpl()->getRefCount());
    EXPECT_EQ(0, destroyed);
    Image& bAlias = b;
    b = bAlias;
    EXPECT_FALSE(b.exists());
    EXPECT_EQ(1, destroyed);
}

TEST(Image, AllocateReusesOnlyAnIdenticalStore) {
    Image img;
    img.allocate(Rect(1, 2, 3, 4), Format::getRGBA());
    Image before = img;
    void* buffer = img.getBuffer();
    img.allocate(Rect(1, 2, 3, 4), Format::getRGBA());
    EXPECT_EQ(before, img);
    EXPECT_EQ(buffer, img.getBuffer());

    img.allocate(Rect(1, 2, 3, 4), Format::getrgba());
    EXPECT_NE(before, img);
    EXPECT_EQ(Format::getRGBA(), before.getFormat());
    EXPECT_EQ(1, before.getImpl()->getRefCount());

    Image other = img;
    img.allocate(Rect(1, 2, 3, 5), Format::getrgba());
    EXPECT_NE(other, img);
    EXPECT_EQ(Rect(1, 2, 3, 4), other.getBounds());
    EXPECT_EQ(Rect(1, 2, 3, 5), img.getBounds());

    Image copy;
    copy.allocate(img);
    EXPECT_NE(img, copy);
    EXPECT_EQ(img.getBounds(), copy.getBounds());
    EXPECT_EQ(img.getFormat(), copy.getFormat());
    Image same = copy;
    copy.allocate(img);
    EXPECT_EQ(same, copy);

    expectThrows<IllegalArgumentException>([&] { img.allocate(Rect(0, 0, 1, 1), Format()); },
                                           "datatype");
    EXPECT_EQ(Rect(1, 2, 3, 5), img.getBounds()); // a failed allocation keeps the old store
}

TEST(Image, SetFormatReinterpretsTheSameBytes) {
    Image img(Rect(0, 0, 4, 2), Format::getRGBA());
    Image other = img;
    void* buffer = img.getBuffer();
    img.setFormat(Format::getBGRA());
    EXPECT_EQ(Format::getBGRA(), other.getFormat());
    EXPECT_EQ(buffer, other.getBuffer());
    EXPECT_EQ(16, other.getStride());
    img.setFormat(Format("l", Orvane::UB4, false));
    EXPECT_EQ(16, img.getStride());
    EXPECT_EQ(4, distance(img.getBuffer(), img.getBuffer(Point(1, 0))));
}

TEST(Image, InfoIsSharedByEveryHandle) {
    Image img(Rect(0, 0, 1, 1), Format::getL());
    Image other = img;
    EXPECT_TRUE(img.getInfo().empty());
    img.setInfo("frame 12");
    EXPECT_EQ("frame 12", other.getInfo().str());
    Image view = img.clip(Rect(0, 0, 1, 1));
    EXPECT_TRUE(view.getInfo().empty()); // a view is a store of its own
}

TEST(Image, StoreAllocAndDeallocRespectOwnership) {
    int destroyed = 0;
    Image img(new ProbeImpl(Rect(0, 0, 3, 3), Format::getL(), &destroyed));
    ImageImpl* store = img.getImpl();
    void* buffer = img.getBuffer();
    store->alloc();
    EXPECT_EQ(buffer, img.getBuffer());
    store->dealloc();
    EXPECT_EQ(nullptr, img.getBuffer());
    store->alloc();
    EXPECT_NE(nullptr, img.getBuffer());
    EXPECT_EQ(3, img.getStride());

    Image view = img.clip(Rect(1, 1, 1, 1));
    void* viewBuffer = view.getBuffer();
    view.getImpl()->dealloc();
    view.getImpl()->alloc();
    EXPECT_EQ(viewBuffer, view.getBuffer());
}

TEST(Image, PrintsBoundsAndFormat) {
    EXPECT_EQ("Image(Rect(0,0,640,480),Format(RGBA, ub1, false))",
              printed(Image(Rect(0, 0, 640, 480), Format::getRGBA())));
    Image l(Rect(-1, 2, 3, 4), Format::mono(Orvane::FLOAT));
    std::ostringstream os;
    l.print(os);
    EXPECT_EQ("Image(Rect(-1,2,3,4),Format(L, float, true))", os.str());
}
