#include "track/Sequence/TrDiskSequence.h"

#include "image/ImageFile.h"
#include "support/ExpectThrows.h"
#include "support/PixelProbe.h"
#include "track/Sequence/TrImageCache.h"

#include <climits>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

using Orvane::Format;
using Orvane::GenRect;
using Orvane::Image;
using testsupport::sampleAt;
using Keys = std::vector<std::string>;

namespace {

TrImageCache& cache() {
    return TrImageCache::getInstance();
}

// 10 x 10 RGBA bytes, 400 bytes, under each key.
void put(std::initializer_list<const char*> keys) {
    for (const char* k : keys)
        cache().put(k, Image(GenRect<int>(0, 0, 10, 10), Format::getRGBA()));
}

// The keys still cached, of those given.
Keys surviving(std::initializer_list<const char*> keys) {
    Keys out;
    TrCacheEntry e;
    for (const char* k : keys)
        if (cache().get(k, e))
            out.push_back(k);
    return out;
}

} // namespace

// The cache is one per process: each case empties it and restores the
// default maximum.
TEST(TrImageCache, EvictsOldestFirstWithASecondChanceForEntriesUsedSinceTheSort) {
    cache().clear();
    cache().setMaxSize(3 * 400);
    put({"a", "b", "c", "d"}); // sorts a b c d, evicts a
    EXPECT_EQ(Keys({"b", "c", "d"}), surviving({"a", "b", "c", "d"}));
    EXPECT_EQ(1200, cache().getSize());
    TrCacheEntry e;
    ASSERT_TRUE(cache().get("b", e));
    e.stamp();
    e.release();
    // b is at the front of the sorted queue, but was used after the sort.
    put({"e"});
    EXPECT_EQ(Keys({"b", "d", "e"}), surviving({"a", "b", "c", "d", "e"}));
    // The reprieve lasts one sweep: unused since, b is now the oldest.
    put({"f", "g"});
    EXPECT_EQ(Keys({"e", "f", "g"}), surviving({"b", "d", "e", "f", "g"}));
    // Shrinking the maximum evicts at once, growing it brings nothing back,
    // and 0 leaves no room even for a new entry.
    cache().setMaxSize(800);
    EXPECT_EQ(Keys({"f", "g"}), surviving({"e", "f", "g"}));
    cache().setMaxSize(100000);
    EXPECT_EQ(Keys({"f", "g"}), surviving({"e", "f", "g"}));
    EXPECT_EQ(800, cache().getSize());
    cache().setMaxSize(0);
    put({"h"});
    EXPECT_EQ(Keys(), surviving({"f", "g", "h"}));
    EXPECT_EQ(0, cache().getSize());
    cache().setMaxSize(TrImageCache::defaultMaxSize);
}

TEST(TrImageCache, MissesLeaveTheHandleAndPuttingAgainReplaces) {
    cache().clear();
    put({"a", "b"});
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
    const Image wide(GenRect<int>(0, 0, 20, 10), Format::getRGBA());
    cache().put("a", wide);
    EXPECT_TRUE(e.getImage() == wide);
    EXPECT_EQ(cache().getClock(), e.getEntry()->serial);
    EXPECT_GT(e.getEntry()->serial, serial);
    EXPECT_EQ(800 + 400, cache().getSize());
    cache().clear();
}

namespace {

// A fresh directory (its resolved path) per case holding the shot0007,
// shot0008 and shot0120 series among files that do not fit; an empty cache.
class TrDiskSequenceTest : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (std::filesystem::temp_directory_path() / "tavrix-XXXXXX").string();
        ASSERT_NE(nullptr, mkdtemp(pattern.data()));
        char resolved[PATH_MAX];
        ASSERT_NE(nullptr, realpath(pattern.c_str(), resolved));
        dir = resolved;
        cache().clear();
        writeFrame("shot0007.png", 7);
        writeFrame("shot0008.png", 8);
        writeFrame("shot0120.png", 120, 12, 5);
        for (const char* name : {"shot0009.tif", "take0010.png", "notes.txt"})
            std::ofstream(path(name)) << "not an image\n";
    }
    void TearDown() override {
        cache().clear();
        std::filesystem::remove_all(dir);
    }
    std::string path(const std::string& name) const { return dir + "/" + name; }
    // A w x h RGB frame whose red is the frame number.
    void writeFrame(const std::string& name, int frame, int w = 8, int h = 6) const {
        Image img(GenRect<int>(0, 0, w, h), Format::getRGB());
        for (int y = 0; y < h; ++y)
            for (int i = 0; i < 3 * w; ++i)
                sampleAt<unsigned char>(img, 0, y, i) =
                    i % 3 ? 0 : static_cast<unsigned char>(frame);
        Orvane::saveToFile(path(name).c_str(), img);
    }

    std::string dir;
};

// The frame's bounds and its red at the far corner.
std::pair<GenRect<int>, int> frameOf(const Image& img) {
    const GenRect<int>& b = img.getBounds();
    return {b, sampleAt<unsigned char>(img, b.x + b.w - 1, b.y + b.h - 1, 0)};
}

} // namespace

TEST_F(TrDiskSequenceTest, ScanFindsRangeAndWidth) {
    TrDiskSequence seq(path("shot####.png").c_str());
    EXPECT_EQ(7, seq.getFirstFrame());
    EXPECT_EQ(120, seq.getLastFrame());
    EXPECT_EQ(4, seq.getWidth());
    EXPECT_EQ(path("shot0008.png"), seq.getFramePath(7.6f).str());
    EXPECT_EQ(std::make_pair(GenRect<int>(0, 0, 8, 6), 8), frameOf(seq.getFrame(8)));
    EXPECT_EQ(std::make_pair(GenRect<int>(0, 0, 12, 5), 120), frameOf(seq.getFrame(120)));
    // Padding never shortens a number; the width is the shortest seen.
    writeFrame("a1.png", 1);
    writeFrame("a10.png", 10);
    seq.setFilename(path("a#.png").c_str());
    EXPECT_EQ(1, seq.getWidth());
    EXPECT_EQ(1, seq.getFirstFrame());
    EXPECT_EQ(10, seq.getLastFrame());
    EXPECT_EQ(path("a10.png"), seq.getFramePath(10).str());
    EXPECT_EQ(10, frameOf(seq.getFrame(10)).second);
}

TEST_F(TrDiskSequenceTest, ScanFailuresKeepTheSequence) {
    TrDiskSequence seq(path("shot####.png").c_str());
    std::ofstream(path("plain")) << "a file, not a directory\n";
    std::ofstream(path("shotXYZ.png")) << "fits the pattern around no number\n";
    const std::pair<std::string, std::string> cases[] = {
        {"none/shot####.png", "bad filename \"" + dir + "/none\""},
        {"plain/shot####.png", "bad filename \"" + dir + "/plain\""},
        {"plate####.exr", "not found"},
        {"shot####.png", "dstring.toLong: failed"},
    };
    for (const auto& c : cases)
        expectThrows<IllegalArgumentException>([&] { seq.setFilename(path(c.first).c_str()); },
                                               c.second);
    EXPECT_EQ(7, seq.getFirstFrame());
    EXPECT_EQ(120, seq.getLastFrame());
    EXPECT_EQ(dir + "//shot####.png", seq.getFilename().str());
}

TEST_F(TrDiskSequenceTest, UnreadableFrameNamesTheFileAndIsNotCached) {
    std::ofstream(path("shot0009.png")) << "not an image\n";
    TrDiskSequence seq(path("shot####.png").c_str());
    for (int frame : {9, 50}) {
        const std::string file = seq.getFramePath(frame).str();
        try {
            seq.getFrame(frame);
            ADD_FAILURE() << "frame " << frame << " was read";
        } catch (const IllegalArgumentException& e) {
            EXPECT_EQ(0u, e.getMessage().str().find("cannot read \"" + file + "\": "))
                << e.getMessage();
        }
        TrCacheEntry entry;
        EXPECT_FALSE(cache().get(file.c_str(), entry));
    }
}

TEST_F(TrDiskSequenceTest, BoundsAreReadOncePerFrame) {
    TrDiskSequence seq(path("shot####.png").c_str());
    TrCacheEntry e;
    EXPECT_EQ(GenRect<int>(0, 0, 12, 5), seq.getBounds(120));
    EXPECT_TRUE(cache().get(path("shot0120.png").c_str(), e));
    // Once read, the bounds table answers: the frame is not read into the
    // cache again.
    cache().clear();
    EXPECT_EQ(GenRect<int>(0, 0, 12, 5), seq.getBounds(120.3f));
    EXPECT_FALSE(cache().get(path("shot0120.png").c_str(), e));
    expectThrows<BadIndexException>([&] { seq.getBounds(6); }, "Array::operator[]");
}

// The fixture's shot0007, shot0008 and shot0120 under "@" and printf names;
// shotXYZ.png fits around no number, which these forms pass over.
TEST_F(TrDiskSequenceTest, OtherFormsFindTheirSeriesOnceEnabled) {
    std::ofstream(path("shotXYZ.png")) << "fits the pattern around no number\n";
    TrDiskSequence seq;
    // Off by default: the name is taken literally and nothing fits it.
    expectThrows<IllegalArgumentException>([&] { seq.setFilename(path("shot%04d.png").c_str()); },
                                           "not found");
    seq.setAllPatternForms(true);
    for (const char* pattern : {"shot%04d.png", "shot@@@@.png"}) {
        seq.setFilename(path(pattern).c_str());
        EXPECT_EQ(std::make_tuple(7, 120, 4),
                  std::make_tuple(seq.getFirstFrame(), seq.getLastFrame(), seq.getWidth()))
            << pattern;
        EXPECT_EQ(path("shot0008.png"), seq.getFramePath(8.4f).str());
        EXPECT_EQ(8, frameOf(seq.getFrame(8)).second);
    }
    EXPECT_EQ(dir + "//shot@@@@.png", seq.getFilename().str());
    // Three digits write 7 as "007" and 120 as "120": neither shot0007 nor
    // shot0120 fits, shot007 does.
    writeFrame("shot007.png", 107);
    for (const char* pattern : {"shot%03d.png", "shot@@@.png"}) {
        seq.setFilename(path(pattern).c_str());
        EXPECT_EQ(std::make_tuple(7, 7, 3),
                  std::make_tuple(seq.getFirstFrame(), seq.getLastFrame(), seq.getWidth()))
            << pattern;
        EXPECT_EQ(107, frameOf(seq.getFrame(7)).second);
        EXPECT_EQ(dir + "//" + pattern, seq.getFilename().str());
    }
    // Unpadded numbers cross from one digit to two; "a011" is not "%d".
    writeFrame("a9.png", 9);
    writeFrame("a10.png", 10);
    std::ofstream(path("a011.png")) << "not written by %d\n";
    seq.setFilename(path("a%d.png").c_str());
    EXPECT_EQ(std::make_tuple(9, 10, 0),
              std::make_tuple(seq.getFirstFrame(), seq.getLastFrame(), seq.getWidth()));
    EXPECT_EQ(path("a9.png"), seq.getFramePath(9).str());
    EXPECT_EQ(10, frameOf(seq.getFrame(10)).second);
    // A malformed name fails with the pattern's message and keeps the series.
    expectThrows<IllegalArgumentException>(
        [&] { seq.setFilename(path("shot%q.png").c_str()); },
        "the frame pattern \"" + path("shot%q.png") +
            "\" has \"%q\", which is not a frame number (use %d, %04d, or %% for a plain '%')");
    EXPECT_EQ(dir + "//a%d.png", seq.getFilename().str());
    // "#" names keep their rule with the forms on: shotXYZ fails the scan.
    expectThrows<IllegalArgumentException>([&] { seq.setFilename(path("shot####.png").c_str()); },
                                           "dstring.toLong: failed");
}

// A time that rounds past int names no file; the last float below 2^31 and
// INT_MIN still do. Bounds of a frame further from the first than an int
// reaches are refused as a frame before the first is.
TEST_F(TrDiskSequenceTest, FramesPastIntAreRefused) {
    TrDiskSequence seq(path("shot####.png").c_str());
    EXPECT_EQ(path("shot2147483520.png"), seq.getFramePath(2147483520.0f).str());
    EXPECT_EQ(path("shot-2147483648.png"), seq.getFramePath(-2147483648.0f).str());
    expectThrows<IllegalArgumentException>([&] { seq.getFramePath(2147483647.0f); },
                                           "frame 2147483648 out of range");
    expectThrows<IllegalArgumentException>([&] { seq.getFramePath(-2147483904.0f); },
                                           "frame -2147483904 out of range");
    expectThrows<IllegalArgumentException>([&] { seq.getFramePath(std::nanf("")); },
                                           "frame nan out of range");
    expectThrows<IllegalArgumentException>([&] { seq.getFrame(3e9f); }, "frame 3e+09 out of range");
    expectThrows<BadIndexException>([&] { seq.getBounds(-2147483648.0f); }, "Array::operator[]");
    seq.setFirstFrame(-200);
    expectThrows<BadIndexException>([&] { seq.getBounds(2147483520.0f); }, "Array::operator[]");
}
