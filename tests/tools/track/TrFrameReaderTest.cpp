#include "tools/track/TrFrameReader.h"

#include "image/Format.h"
#include "image/ImageFile.h"
#include "support/PixelProbe.h"
#include "tools/track/TrMovingPlate.h"
#include "track/Sequence/TrDiskSequence.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

using movingplate::frameName;
using movingplate::TempDir;
using Orvane::GenRect;
using Orvane::Image;
using testsupport::sampleAt;

namespace {

const int kW = 12, kH = 8;

// Sample c of pixel (x, y) of frame n: every frame different.
unsigned char sampleOf(int n, int x, int y, int c) {
    return static_cast<unsigned char>((n * 37 + x * 5 + y * 11 + c * 3) % 256);
}

void writeFrames(const TempDir& dir, int first, int last) {
    for (int n = first; n <= last; ++n) {
        Image img(GenRect<int>(0, 0, kW, kH), Orvane::Format::getRGB());
        for (int y = 0; y < kH; ++y)
            for (int x = 0; x < kW; ++x)
                for (int c = 0; c < 3; ++c)
                    sampleAt<unsigned char>(img, x, y, c) = sampleOf(n, x, y, c);
        Orvane::saveToFile(dstring(dir / frameName(n)), img);
    }
}

dstring patternIn(const TempDir& dir) {
    return dstring(dir / "plate.####.png");
}

// True when `img` holds frame n.
bool holdsFrame(const Image& img, int n) {
    if (!(img.getBounds() == GenRect<int>(0, 0, kW, kH)))
        return false;
    for (int y = 0; y < kH; ++y)
        for (int x = 0; x < kW; ++x)
            for (int c = 0; c < 3; ++c)
                if (sampleAt<unsigned char>(img, x, y, c) != sampleOf(n, x, y, c))
                    return false;
    return true;
}

// The message reading frame n through the disk sequence fails with.
std::string plainError(const TempDir& dir, int n) {
    TrDiskSequence seq(patternIn(dir));
    try {
        seq.getFrame(float(n));
    } catch (const Exception& e) {
        return e.getMessage().str();
    }
    return "frame " + std::to_string(n) + " was read";
}

// The frames a reader hands over, with their errors, until it says no more.
std::vector<TrReadFrame> readAll(TrFrameReader& reader) {
    std::vector<TrReadFrame> out;
    TrReadFrame f;
    while (reader.next(f))
        out.push_back(std::move(f));
    return out;
}

// Waits up to ten seconds for the reader to have read `count` frames.
bool waitForReads(const TrFrameReader& reader, int count) {
    for (int i = 0; i < 1000 && reader.getFramesRead() < count; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return reader.getFramesRead() >= count;
}

} // namespace

TEST(TrFrameReader, DeliversEveryFrameOfARangeInOrderForwardAndBackward) {
    TempDir dir;
    writeFrames(dir, 3, 11);
    const TrDiskSequence seq(patternIn(dir));
    // Frames decoded on several threads still arrive in range order.
    for (const auto& range : {std::make_pair(4, 10), std::make_pair(10, 4)})
        for (int decoders = 1; decoders <= 3; decoders += 2) {
            SCOPED_TRACE(std::to_string(decoders) + " decoders from " +
                         std::to_string(range.first));
            TrFrameReader reader(seq, range.first, range.second, 3, 2, decoders);
            const std::vector<TrReadFrame> frames = readAll(reader);
            const int step = range.second >= range.first ? 1 : -1;
            ASSERT_EQ(7u, frames.size());
            for (size_t k = 0; k < frames.size(); ++k) {
                const TrReadFrame& f = frames[k];
                const int n = range.first + int(k) * step;
                EXPECT_EQ(n, f.frame);
                EXPECT_TRUE(f.ok()) << f.error;
                ASSERT_EQ(3u, f.copies.size());
                // Each copy is a store of its own with one handle on it.
                for (size_t c = 0; c < 3; ++c) {
                    EXPECT_TRUE(holdsFrame(f.copies[c], n)) << "frame " << n << " copy " << c;
                    EXPECT_EQ(1, f.copies[c].getImpl()->getRefCount());
                    for (size_t d = 0; d < c; ++d)
                        EXPECT_NE(f.copies[c].getBuffer(), f.copies[d].getBuffer());
                }
            }
            TrReadFrame after;
            EXPECT_FALSE(reader.next(after));
            EXPECT_GT(reader.getDecodeSeconds(), 0.0);
            EXPECT_EQ(7, reader.getFramesRead());
        }
}

// The frames before the bad one arrive whole, the bad one carries the
// message reading it directly gives, and nothing follows.
TEST(TrFrameReader, ReportsAMissingOrCorruptFrameInOrderAfterTheFramesBefore) {
    TempDir dir;
    writeFrames(dir, 1, 9);
    std::filesystem::remove(dir / frameName(6));
    // Not cut short: OpenImageIO leaks a string when libpng gives up on a
    // PNG cut inside its header, and the sanitizer tree would report it.
    const std::string corrupt = dir / frameName(3);
    std::ofstream(corrupt, std::ios::trunc) << "this is not an image\n";
    const std::string missing = plainError(dir, 6), damaged = plainError(dir, 3);
    EXPECT_EQ(0u, missing.find("cannot read \"" + dir / frameName(6) + "\": ")) << missing;
    EXPECT_EQ(0u, damaged.find("cannot read \"" + corrupt + "\": ")) << damaged;

    const TrDiskSequence seq(patternIn(dir));
    struct Case {
        int from, to;
        std::vector<int> good;
        int bad;
        std::string error;
    };
    for (const Case& c : {Case{4, 9, {4, 5}, 6, missing}, Case{9, 4, {9, 8, 7}, 6, missing},
                          Case{1, 9, {1, 2}, 3, damaged}})
        for (int decoders = 1; decoders <= 3; decoders += 2) {
            SCOPED_TRACE(std::to_string(decoders) + " decoders from " + std::to_string(c.from));
            TrFrameReader reader(seq, c.from, c.to, 2, 4, decoders);
            const std::vector<TrReadFrame> frames = readAll(reader);
            ASSERT_EQ(c.good.size() + 1, frames.size()) << c.from << " to " << c.to;
            for (size_t k = 0; k < c.good.size(); ++k) {
                EXPECT_EQ(c.good[k], frames[k].frame);
                ASSERT_EQ(2u, frames[k].copies.size());
                EXPECT_TRUE(holdsFrame(frames[k].copies[1], c.good[k]));
            }
            EXPECT_EQ(c.bad, frames.back().frame);
            EXPECT_FALSE(frames.back().ok());
            EXPECT_EQ(c.error, frames.back().error);
            EXPECT_TRUE(frames.back().copies.empty());
            TrReadFrame after;
            EXPECT_FALSE(reader.next(after));
            // Decoders may have read past the bad frame before it was known.
            EXPECT_LE(int(frames.size()), reader.getFramesRead());
        }
}

TEST(TrFrameReader, ReadsNoFurtherAheadThanAllowed) {
    TempDir dir;
    writeFrames(dir, 1, 12);
    const TrDiskSequence seq(patternIn(dir));
    TrFrameReader reader(seq, 1, 12, 1, 2, 2);
    ASSERT_TRUE(waitForReads(reader, 2));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(2, reader.getFramesRead());
    TrReadFrame f;
    ASSERT_TRUE(reader.next(f));
    EXPECT_EQ(1, f.frame);
    ASSERT_TRUE(waitForReads(reader, 3));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(3, reader.getFramesRead());
}

// Destroyed while its thread decodes, waits for room, or has finished: each
// returns, and the frames not taken are freed (the sanitizer tree checks).
TEST(TrFrameReader, StopsWhenDestroyedPartWay) {
    TempDir dir;
    writeFrames(dir, 1, 30);
    const TrDiskSequence seq(patternIn(dir));
    { TrFrameReader reader(seq, 1, 30, 2, 3); }
    {
        TrFrameReader reader(seq, 30, 1, 2, 3, 2);
        TrReadFrame f;
        ASSERT_TRUE(reader.next(f));
        EXPECT_EQ(30, f.frame);
        ASSERT_TRUE(waitForReads(reader, 4));
    }
    {
        TrFrameReader reader(seq, 1, 3, 1, 8);
        ASSERT_TRUE(waitForReads(reader, 3));
    }
}
