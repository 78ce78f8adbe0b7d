#include "image/ImageStore.h"

#include "image/XformBilinear.h"
#include "support/ExpectThrows.h"
#include "support/PixelProbe.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>

using Orvane::ClipView;
using Orvane::Format;
using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::Image;
using Orvane::ImageStore;
using testsupport::RecordingImpl;

TEST(ImageStore, ShapesAreUnpaddedAndTheBufferGrowsOnlyWhenTooSmall) {
    ImageStore store;
    EXPECT_FALSE(store.image().exists());
    const Format rgb = Format::getRGB();
    const Image& a = store.shape(GenRect<int>(-4, 7, 10, 6), rgb);
    EXPECT_EQ(GenRect<int>(-4, 7, 10, 6), a.getBounds());
    EXPECT_EQ(30, a.getStride());
    // A quarter more than asked, for sizes that wander.
    EXPECT_EQ(225, store.capacity());
    const void* first = a.getBuffer();
    // Smaller, or as large in another format: the same buffer.
    const Image held = store.image();
    const Image& b = store.shape(GenRect<int>(3, 3, 11, 4), Format::mono(Orvane::FLOAT));
    EXPECT_EQ(first, b.getBuffer());
    EXPECT_EQ(44, b.getStride());
    EXPECT_EQ(225, store.capacity());
    // Every handle on the store follows it.
    EXPECT_EQ(GenRect<int>(3, 3, 11, 4), held.getBounds());
    EXPECT_EQ(Orvane::FLOAT, held.getFormat().getDatatype());
    // Larger: a new buffer, pixels writable to the last byte.
    const Image& c = store.shape(GenRect<int>(0, 0, 12, 5), Format::mono(Orvane::FLOAT));
    EXPECT_NE(first, c.getBuffer());
    EXPECT_EQ(300, store.capacity());
    std::memset(c.getBuffer(), 0x5a, 240);
    unsigned int last;
    std::memcpy(&last, &testsupport::sampleAt<float>(c, 11, 4, 0), sizeof last);
    EXPECT_EQ(0x5a5a5a5au, last);
    // Empty bounds hold no pixels and keep the room.
    EXPECT_TRUE(store.shape(GenRect<int>(2, 2, 0, 5), rgb).getBounds().isEmpty());
    EXPECT_EQ(300, store.capacity());
}

TEST(ImageStore, AWarpIntoAStoreFullOfOldPixelsMatchesOneIntoAFreshImage) {
    // Whatever the last use left behind must not show through: the reused
    // store is filled with NaN first, then written by the warp.
    std::mt19937 rng(17);
    std::uniform_real_distribution<float> unit(0, 1);
    const Format mono = Format::mono(Orvane::FLOAT);
    Image src(GenRect<int>(-20, -15, 40, 30), mono);
    testsupport::forEachSample(
        src, [&](int x, int y, int k) { testsupport::sampleAt<float>(src, x, y, k) = unit(rng); });
    ImageStore store;
    for (int trial = 0; trial < 6; ++trial) {
        const GenRect<int> b(-9 + trial, -7 - trial, 17 + 2 * trial, 15 - trial);
        const Image& big = store.shape(GenRect<int>(0, 0, 40, 30), mono);
        testsupport::forEachSample(big, [&](int x, int y, int k) {
            testsupport::sampleAt<float>(big, x, y, k) = std::numeric_limits<float>::quiet_NaN();
        });
        KrGenMatrix<float> m(2, 3, KrGenMatrix<float>::RowMajor);
        const float a = 0.03f * trial, s = 1 + 0.01f * trial;
        m(0, 0) = s * std::cos(a);
        m(0, 1) = -s * std::sin(a);
        m(1, 0) = s * std::sin(a);
        m(1, 1) = s * std::cos(a);
        m(0, 2) = 0.3f * trial;
        m(1, 2) = -0.2f * trial;
        const Image fresh(b, mono);
        Orvane::xform_bilinear(src, fresh, m);
        const Image& reused = store.shape(b, mono);
        Orvane::xform_bilinear(src, reused, m);
        testsupport::forEachSample(fresh, [&](int x, int y, int k) {
            std::uint32_t want, got;
            std::memcpy(&want, &testsupport::sampleAt<float>(fresh, x, y, k), sizeof want);
            std::memcpy(&got, &testsupport::sampleAt<float>(reused, x, y, k), sizeof got);
            ASSERT_EQ(want, got) << x << "," << y;
        });
    }
}

TEST(ClipView, CutsAsImageClipDoesAndReusesOnlyAViewNobodyHolds) {
    const Image frame(GenRect<int>(-5, 3, 30, 20), Format::getRGBA());
    ClipView views;
    const GenRect<int> rects[] = {{0, 5, 10, 8}, {-9, 0, 12, 40}, {20, 18, 30, 30}};
    const Image first = views.clip(frame, rects[0]);
    Orvane::ImageImpl* const firstImpl = first.getImpl();
    for (const GenRect<int>& r : rects) {
        const Image want = frame.clip(r);
        const Image got = views.clip(frame, r);
        EXPECT_EQ(want.getBounds(), got.getBounds());
        EXPECT_EQ(want.getStride(), got.getStride());
        EXPECT_EQ(want.getBuffer(), got.getBuffer());
        EXPECT_EQ(want.getFormat(), got.getFormat());
        // `first` is held, so it never moves.
        EXPECT_EQ(rects[0] & frame.getBounds(), first.getBounds());
        EXPECT_NE(firstImpl, got.getImpl());
    }
    // Released, the last view is pointed again rather than replaced.
    Orvane::ImageImpl* last;
    {
        const Image v = views.clip(frame, rects[1]);
        last = v.getImpl();
    }
    EXPECT_EQ(last, views.clip(frame, rects[2]).getImpl());
    expectThrows<NullPointerException>([&] { views.clip(Image(), rects[0]); }, "Image::clip");
}

TEST(ClipView, TheViewKeepsItsParentAliveAndPassesChangesOn) {
    int destroyed = 0;
    ClipView views;
    Image view;
    auto* recording = new RecordingImpl(GenRect<int>(0, 0, 8, 8), Format::getRGB(), &destroyed);
    {
        const Image parent(recording);
        view = views.clip(parent, GenRect<int>(2, 3, 10, 2));
    }
    EXPECT_EQ(0, destroyed);
    // Cut to the view, in the parent's coordinates, which are the view's.
    view.changed(GenRect<int>(0, 0, 100, 100));
    ASSERT_EQ(1u, recording->rects.size());
    EXPECT_EQ(GenRect<int>(2, 3, 6, 2), recording->rects[0]);
    // Pointed at another frame, the view lets go of the old one.
    view.clear();
    const Image other(GenRect<int>(0, 0, 4, 4), Format::getRGB());
    (void)views.clip(other, GenRect<int>(0, 0, 2, 2));
    EXPECT_EQ(1, destroyed);
}
