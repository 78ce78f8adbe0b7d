#include "track/Sequence/TrImageCache.h"

#include "image/Format.h"
#include "image/GenRect.h"
#include "image/Image.h"

#include "support/ExpectThrows.h"

#include <string>
#include <vector>

using Orvane::Format;
using Orvane::GenRect;
using Orvane::Image;

namespace {

// The cache is one per process: every case starts and ends empty, at the
// default maximum.
class TrImageCacheTest : public testing::Test {
protected:
    void SetUp() override { reset(); }
    void TearDown() override { reset(); }
    static void reset() {
        cache().clear();
        cache().setMaxSize(TrImageCache::defaultMaxSize);
    }
    static TrImageCache& cache() { return TrImageCache::getInstance(); }

    static bool cached(const char* key) {
        TrCacheEntry e;
        return cache().get(key, e);
    }
    // The keys still cached, of those given.
    static std::vector<std::string> surviving(std::initializer_list<const char*> keys) {
        std::vector<std::string> out;
        for (const char* k : keys)
            if (cached(k))
                out.push_back(k);
        return out;
    }
};

// 10 x 10 RGBA bytes: 400 bytes each.
Image rgba10() {
    return Image(GenRect<int>(0, 0, 10, 10), Format::getRGBA());
}

using Keys = std::vector<std::string>;

} // namespace

TEST_F(TrImageCacheTest, SizeCountsPixelBytesOfEveryDatatype) {
    Image a = rgba10();                                                             // 10*10*4*1
    Image b(GenRect<int>(3, 4, 5, 4), Format("rgb", Orvane::FLOAT, false));         // 5*4*3*4
    Image c(GenRect<int>(0, 0, 3, 3), Format("la", Orvane::UB2, false));            // 3*3*2*2
    Image d = Image(GenRect<int>(0, 0, 8, 8), Format::getRGB()).clip({2, 2, 3, 2}); // 3*2*3
    cache().put("a", a);
    cache().put("b", b);
    cache().put("c", c);
    cache().put("d", d);
    EXPECT_EQ(400 + 240 + 36 + 18, cache().getSize());

    TrCacheEntry e;
    ASSERT_TRUE(cache().get("b", e));
    EXPECT_TRUE(e.getImage() == b);
    EXPECT_EQ(1, e.getEntry()->users);
    EXPECT_EQ(240, e.getEntry()->size);
}

TEST_F(TrImageCacheTest, GetOfAbsentKeyLeavesTheHandle) {
    cache().put("a", rgba10());
    TrCacheEntry e;
    EXPECT_FALSE(cache().get("absent", e));
    EXPECT_FALSE(e.exists());

    ASSERT_TRUE(cache().get("a", e));
    const TrCachedImage* a = e.getEntry();
    const uint32_t serial = a->serial;
    EXPECT_FALSE(cache().get("absent", e));
    EXPECT_EQ(a, e.getEntry());
    EXPECT_EQ(1, a->users);
    EXPECT_EQ(serial, a->serial);
}

TEST_F(TrImageCacheTest, HandlesCountUsersWithoutRenewingSerials) {
    cache().put("a", rgba10());
    cache().put("b", rgba10());
    TrCacheEntry e;
    ASSERT_TRUE(cache().get("a", e));
    const TrCachedImage* a = e.getEntry();
    const uint32_t serialA = a->serial;
    {
        TrCacheEntry copy = e;
        EXPECT_EQ(2, a->users);
    }
    EXPECT_EQ(1, a->users);
    ASSERT_TRUE(cache().get("b", e));
    EXPECT_EQ(0, a->users);
    EXPECT_EQ(1, e.getEntry()->users);
    EXPECT_EQ(serialA, a->serial);

    e.stamp();
    EXPECT_EQ(cache().getClock(), e.getEntry()->serial);
    e.release();
    EXPECT_FALSE(e.exists());
}

TEST_F(TrImageCacheTest, MaximumZeroEvictsEverythingTheNewEntryIncluded) {
    cache().put("a", rgba10());
    cache().put("b", rgba10());
    cache().setMaxSize(0);
    EXPECT_EQ(0, cache().getSize());
    cache().put("c", rgba10());
    EXPECT_EQ(Keys(), surviving({"a", "b", "c"}));
    EXPECT_EQ(0, cache().getSize());
}

TEST_F(TrImageCacheTest, PuttingAKeyAgainReplacesAndRenews) {
    cache().put("a", rgba10());
    cache().put("b", rgba10());
    TrCacheEntry e;
    ASSERT_TRUE(cache().get("a", e));
    const uint32_t before = e.getEntry()->serial;

    Image wide(GenRect<int>(0, 0, 20, 10), Format::getRGBA());
    cache().put("a", wide);
    EXPECT_TRUE(e.getImage() == wide);
    EXPECT_GT(e.getEntry()->serial, before);
    EXPECT_EQ(cache().getClock(), e.getEntry()->serial);
    EXPECT_EQ(800 + 400, cache().getSize());

    cache().put("a", Image(GenRect<int>(0, 0, 5, 5), Format::getL()));
    EXPECT_EQ(25 + 400, cache().getSize());
}

TEST_F(TrImageCacheTest, EvictsOldestFirst) {
    cache().setMaxSize(3 * 400);
    cache().put("a", rgba10());
    cache().put("b", rgba10());
    cache().put("c", rgba10());
    EXPECT_EQ(Keys({"a", "b", "c"}), surviving({"a", "b", "c"}));
    cache().put("d", rgba10());
    EXPECT_EQ(Keys({"b", "c", "d"}), surviving({"a", "b", "c", "d"}));
    EXPECT_EQ(1200, cache().getSize());
}

TEST_F(TrImageCacheTest, EntryUsedSinceTheSortGetsASecondChance) {
    cache().setMaxSize(3 * 400);
    for (const char* k : {"a", "b", "c", "d"})
        cache().put(k, rgba10()); // sorts a b c d, evicts a
    TrCacheEntry e;
    ASSERT_TRUE(cache().get("b", e));
    e.stamp();
    e.release();
    // b is at the front of the sorted queue, but was used after the sort.
    cache().put("e", rgba10());
    EXPECT_EQ(Keys({"b", "d", "e"}), surviving({"a", "b", "c", "d", "e"}));

    // The reprieve lasts one sweep: unused since, b is now the oldest.
    cache().put("f", rgba10());
    cache().put("g", rgba10());
    EXPECT_EQ(Keys({"e", "f", "g"}), surviving({"b", "d", "e", "f", "g"}));
}

TEST_F(TrImageCacheTest, ShrinkingTheMaximumEvictsAtOnceGrowingNothing) {
    for (const char* k : {"a", "b", "c"})
        cache().put(k, rgba10());
    cache().setMaxSize(10000);
    EXPECT_EQ(1200, cache().getSize());
    cache().setMaxSize(800);
    EXPECT_EQ(800, cache().getSize());
    EXPECT_EQ(Keys({"b", "c"}), surviving({"a", "b", "c"}));
    cache().setMaxSize(100000);
    EXPECT_EQ(Keys({"b", "c"}), surviving({"a", "b", "c"}));
    EXPECT_EQ(800, cache().getSize());
}

TEST_F(TrImageCacheTest, EntryIsEvictedWhileAHandleHoldsIt) {
    Image img = rgba10();
    cache().put("a", img);
    TrCacheEntry e;
    ASSERT_TRUE(cache().get("a", e));
    Image kept = e.getImage();

    cache().setMaxSize(0);
    EXPECT_FALSE(cached("a"));
    EXPECT_EQ(0, cache().getSize());
    ASSERT_TRUE(e.exists());
    EXPECT_FALSE(e.getImage().exists());
    // The copied handle still holds the pixels.
    EXPECT_TRUE(kept == img);
    EXPECT_EQ(GenRect<int>(0, 0, 10, 10), kept.getBounds());

    // An evicted entry no longer counts, whatever its holder does.
    e.getImage() = rgba10();
    e.checkSize();
    EXPECT_EQ(0, cache().getSize());
}

TEST_F(TrImageCacheTest, HolderChangingTheImageChecksItsSize) {
    cache().setMaxSize(1000);
    cache().put("a", rgba10());
    cache().put("b", rgba10());
    TrCacheEntry e;
    ASSERT_TRUE(cache().get("b", e));

    e.getImage() = Image(GenRect<int>(0, 0, 5, 10), Format::getRGBA());
    e.checkSize();
    EXPECT_EQ(400 + 200, cache().getSize());
    EXPECT_EQ(Keys({"a", "b"}), surviving({"a", "b"}));

    // Growing past the maximum sweeps: a is older and goes.
    e.getImage() = Image(GenRect<int>(0, 0, 20, 10), Format::getRGBA());
    e.checkSize();
    EXPECT_EQ(800, cache().getSize());
    EXPECT_EQ(Keys({"b"}), surviving({"a", "b"}));
}

TEST_F(TrImageCacheTest, EmptyImageIsRefusedAndChangesNothing) {
    cache().put("a", rgba10());
    const uint32_t clock = cache().getClock();
    expectThrows<NullPointerException>([] { cache().put("b", Image()); }, "Image::getBounds");
    expectThrows<NullPointerException>([] { cache().put("a", Image()); }, "Image::getBounds");
    EXPECT_FALSE(cached("b"));
    TrCacheEntry e;
    ASSERT_TRUE(cache().get("a", e));
    EXPECT_TRUE(e.getImage().exists());
    EXPECT_EQ(400, cache().getSize());
    EXPECT_EQ(clock, cache().getClock());
}
