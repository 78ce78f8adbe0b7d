#include "track/Sequence/TrDiskSequence.h"

#include "image/Format.h"
#include "image/GenRect.h"
#include "image/Image.h"
#include "image/ImageFile.h"
#include "track/Sequence/TrImageCache.h"

#include "support/ExpectThrows.h"
#include "support/PixelProbe.h"

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

using Orvane::Format;
using Orvane::GenRect;
using Orvane::Image;
using testsupport::sampleAt;

namespace {

// Frame `frame` of the test series: w x h RGB bytes, red the frame number,
// green and blue the column and row.
Image frameImage(int frame, int w, int h) {
    Image img(GenRect<int>(0, 0, w, h), Format::getRGB());
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            sampleAt<unsigned char>(img, x, y, 0) = static_cast<unsigned char>(frame);
            sampleAt<unsigned char>(img, x, y, 1) = static_cast<unsigned char>(x);
            sampleAt<unsigned char>(img, x, y, 2) = static_cast<unsigned char>(y);
        }
    }
    return img;
}

// True when `img` is frameImage(frame, w, h).
::testing::AssertionResult isFrame(const Image& img, int frame, int w, int h) {
    if (img.getBounds() != GenRect<int>(0, 0, w, h))
        return ::testing::AssertionFailure() << "bounds " << img.getBounds();
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            if (sampleAt<unsigned char>(img, x, y, 0) != frame ||
                sampleAt<unsigned char>(img, x, y, 1) != x ||
                sampleAt<unsigned char>(img, x, y, 2) != y)
                return ::testing::AssertionFailure() << "pixel " << x << "," << y;
    return ::testing::AssertionSuccess();
}

// Counts the frames it is asked to read.
class CountingSequence : public TrDiskSequence {
public:
    using TrDiskSequence::TrDiskSequence;
    Image getFrame(float t) override {
        ++reads;
        return TrDiskSequence::getFrame(t);
    }
    int reads = 0;
};

// A fresh directory (its resolved path) per case, and an empty cache.
class TrDiskSequenceTest : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (std::filesystem::temp_directory_path() / "tavrix-XXXXXX").string();
        ASSERT_NE(nullptr, mkdtemp(pattern.data()));
        char resolved[PATH_MAX];
        ASSERT_NE(nullptr, realpath(pattern.c_str(), resolved));
        dir = resolved;
        TrImageCache::getInstance().clear();
    }
    void TearDown() override {
        TrImageCache::getInstance().clear();
        std::filesystem::remove_all(dir);
    }

    std::string path(const std::string& name) const { return dir + "/" + name; }
    void writeFrame(const std::string& name, int frame, int w = 8, int h = 6) const {
        Orvane::saveToFile(path(name).c_str(), frameImage(frame, w, h));
    }
    void writeText(const std::string& name) const { std::ofstream(path(name)) << "not an image\n"; }
    // The shot0007, shot0008 and shot0120 series among files that do not fit.
    void writeShotSeries() const {
        writeFrame("shot0007.png", 7);
        writeFrame("shot0008.png", 8);
        writeFrame("shot0120.png", 120, 12, 5);
        writeText("shot0009.tif");
        writeText("take0010.png");
        writeText("notes.txt");
    }

    std::string dir;
};

} // namespace

TEST_F(TrDiskSequenceTest, ScanFindsRangeAndWidth) {
    writeShotSeries();
    TrDiskSequence seq(path("shot####.png").c_str());
    EXPECT_EQ(7, seq.getFirstFrame());
    EXPECT_EQ(120, seq.getLastFrame());
    EXPECT_EQ(4, seq.getWidth());
    EXPECT_EQ(path("shot0008.png"), seq.getFramePath(8).str());
    EXPECT_EQ(path("shot0008.png"), seq.getFramePath(7.6f).str());
    EXPECT_EQ(dir + "//shot####.png", seq.getFilename().str());

    EXPECT_TRUE(isFrame(seq.getFrame(8), 8, 8, 6));
    EXPECT_TRUE(isFrame(seq.getFrame(120), 120, 12, 5));
}

TEST_F(TrDiskSequenceTest, PaddingNeverShortensTheNumber) {
    writeFrame("a1.png", 1);
    writeFrame("a10.png", 10);
    TrDiskSequence seq(path("a#.png").c_str());
    EXPECT_EQ(1, seq.getWidth());
    EXPECT_EQ(1, seq.getFirstFrame());
    EXPECT_EQ(10, seq.getLastFrame());
    EXPECT_EQ(path("a10.png"), seq.getFramePath(10).str());
    EXPECT_TRUE(isFrame(seq.getFrame(10), 10, 8, 6));
}

TEST_F(TrDiskSequenceTest, WidthIsTheShortestNumberSeen) {
    writeFrame("b0005.png", 5);
    writeFrame("b123.png", 123);
    TrDiskSequence seq(path("b####.png").c_str());
    EXPECT_EQ(3, seq.getWidth());
    EXPECT_EQ(path("b005.png"), seq.getFramePath(5).str());
    EXPECT_EQ(path("b123.png"), seq.getFramePath(123).str());
}

TEST_F(TrDiskSequenceTest, ScanFailuresKeepTheSequence) {
    writeShotSeries();
    TrDiskSequence seq(path("shot####.png").c_str());

    expectThrows<IllegalArgumentException>(
        [&] { seq.setFilename(path("none/shot####.png").c_str()); },
        "bad filename \"" + dir + "/none\"");
    expectThrows<IllegalArgumentException>([&] { seq.setFilename(path("plate####.exr").c_str()); },
                                           "not found");
    // A name that fits the pattern around something other than a number.
    writeText("shotXYZ.png");
    expectThrows<IllegalArgumentException>([&] { seq.setFilename(path("shot####.png").c_str()); },
                                           "dstring.toLong: failed");

    EXPECT_EQ(7, seq.getFirstFrame());
    EXPECT_EQ(120, seq.getLastFrame());
    EXPECT_EQ(dir + "//shot####.png", seq.getFilename().str());
}

TEST_F(TrDiskSequenceTest, DirectoryThatIsAFileIsABadFilename) {
    writeText("plain");
    TrDiskSequence seq;
    expectThrows<IllegalArgumentException>(
        [&] { seq.setFilename(path("plain/shot####.png").c_str()); },
        "bad filename \"" + dir + "/plain\"");
}

TEST_F(TrDiskSequenceTest, UnreadableFrameThrowsAndIsNotCached) {
    writeShotSeries();
    writeText("shot0009.png");
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
        EXPECT_FALSE(TrImageCache::getInstance().get(file.c_str(), entry));
    }
}

TEST_F(TrDiskSequenceTest, BoundsAreReadOncePerFrame) {
    writeShotSeries();
    CountingSequence seq(path("shot####.png").c_str());
    EXPECT_EQ(GenRect<int>(0, 0, 12, 5), seq.getBounds(120));
    EXPECT_EQ(1, seq.reads);
    // The cache forgets the frame; the bounds table does not.
    TrImageCache::getInstance().clear();
    EXPECT_EQ(GenRect<int>(0, 0, 12, 5), seq.getBounds(120.3f));
    EXPECT_EQ(1, seq.reads);

    EXPECT_EQ(GenRect<int>(0, 0, 8, 6), seq.getBounds(8));
    EXPECT_EQ(2, seq.reads);
    EXPECT_EQ(GenRect<int>(0, 0, 8, 6), seq.getBounds(8));
    EXPECT_EQ(2, seq.reads);

    expectThrows<BadIndexException>([&] { seq.getBounds(6); }, "Array::operator[]");
    EXPECT_EQ(2, seq.reads);
}

TEST_F(TrDiskSequenceTest, FramesAreServedThroughTheCache) {
    writeShotSeries();
    TrDiskSequence seq(path("shot####.png").c_str());
    TrImageCache& cache = TrImageCache::getInstance();

    Image first = seq.getFrame(7);
    TrCacheEntry entry;
    ASSERT_TRUE(cache.get(path("shot0007.png").c_str(), entry));
    EXPECT_TRUE(entry.getImage() == first);
    EXPECT_EQ(8 * 6 * 3, cache.getSize());

    // A hit renews the entry's serial and reads nothing from disk.
    const uint32_t serial = entry.getEntry()->serial;
    writeFrame("shot0007.png", 77);
    Image again = seq.getFrame(7);
    EXPECT_TRUE(again == first);
    EXPECT_GT(entry.getEntry()->serial, serial);
    EXPECT_TRUE(isFrame(again, 7, 8, 6));

    // Once evicted, the frame is read again.
    cache.clear();
    EXPECT_TRUE(isFrame(seq.getFrame(7), 77, 8, 6));
}
