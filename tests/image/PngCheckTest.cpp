#include "image/PngCheck.h"

#include "image/ImageFile.h"

#include "support/ExpectThrows.h"
#include "support/PixelProbe.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

using Orvane::Image;
using Rect = Orvane::GenRect<int>;

namespace {

using Bytes = std::vector<unsigned char>;

// CRC-32 bit by bit, as the PNG standard defines it.
uint32_t crcOf(const unsigned char* p, size_t n) {
    uint32_t c = 0xffffffffu;
    for (size_t i = 0; i < n; ++i) {
        c ^= p[i];
        for (int k = 0; k < 8; ++k)
            c = c & 1 ? 0xedb88320u ^ (c >> 1) : c >> 1;
    }
    return c ^ 0xffffffffu;
}

void putBigEndian(unsigned char* p, uint32_t v) {
    for (int i = 0; i < 4; ++i)
        p[i] = static_cast<unsigned char>(v >> (24 - 8 * i));
}

// A whole chunk: length, type, data and a correct CRC.
Bytes chunk(const std::string& type, const Bytes& data) {
    Bytes c(8 + data.size() + 4);
    putBigEndian(c.data(), uint32_t(data.size()));
    std::copy(type.begin(), type.end(), c.begin() + 4);
    std::copy(data.begin(), data.end(), c.begin() + 8);
    putBigEndian(c.data() + 8 + data.size(), crcOf(c.data() + 4, data.size() + 4));
    return c;
}

// Where each chunk starts, by walking the lengths.
std::vector<size_t> chunkStarts(const Bytes& file) {
    std::vector<size_t> starts;
    for (size_t at = 8; at + 8 <= file.size();) {
        starts.push_back(at);
        at += 12 + (size_t(file[at]) << 24 | size_t(file[at + 1]) << 16 |
                    size_t(file[at + 2]) << 8 | file[at + 3]);
    }
    return starts;
}

// What the call wrote to standard error, through a file in its place.
template <class Call> std::string stderrOf(Call&& call) {
    std::fflush(stderr);
    std::FILE* capture = std::tmpfile();
    const int saved = dup(2);
    dup2(fileno(capture), 2);
    call();
    std::fflush(stderr);
    dup2(saved, 2);
    close(saved);
    std::rewind(capture);
    std::string text;
    for (int c; (c = std::fgetc(capture)) != EOF;)
        text += char(c);
    std::fclose(capture);
    return text;
}

class PngCheck : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (std::filesystem::temp_directory_path() / "tavrix-XXXXXX").string();
        ASSERT_NE(nullptr, mkdtemp(pattern.data()));
        dir = pattern;
        original = testsupport::randomImage<unsigned char>(Rect(0, 0, 12, 10), "rgb", 7, false);
        Orvane::saveToFile(dstring(path("good.png")), original);
        std::ifstream in(path("good.png"), std::ios::binary);
        good.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    void TearDown() override { std::filesystem::remove_all(dir); }
    std::string path(const std::string& name) const { return dir + "/" + name; }
    std::string write(const std::string& name, const Bytes& bytes) const {
        std::ofstream(path(name), std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
        return path(name);
    }
    // The check's reason for `bytes`, empty when it passes them.
    std::string reasonFor(const Bytes& bytes) const {
        std::string reason;
        const bool sound = Orvane::checkPngChunks(write("probe.png", bytes), reason);
        EXPECT_EQ(sound, reason.empty()) << reason;
        return reason;
    }
    // Where the first IDAT chunk starts.
    size_t idat() const {
        for (size_t at : chunkStarts(good))
            if (std::string(good.begin() + std::ptrdiff_t(at + 4),
                            good.begin() + std::ptrdiff_t(at + 8)) == "IDAT")
                return at;
        ADD_FAILURE() << "no IDAT";
        return 8;
    }
    // The file with `extra` put in before the chunk at `index`.
    Bytes inserted(size_t index, const Bytes& extra) const {
        Bytes file = good;
        file.insert(file.begin() + std::ptrdiff_t(chunkStarts(good)[index]), extra.begin(),
                    extra.end());
        return file;
    }

    std::string dir;
    Image original;
    Bytes good;
};

} // namespace

TEST_F(PngCheck, AWholeFilePassesAndEveryCutFails) {
    EXPECT_EQ("", reasonFor(good));
    const std::vector<size_t> starts = chunkStarts(good);
    ASSERT_GE(starts.size(), 3u) << "IHDR, IDAT, IEND";
    // A cut before a chunk's type is known ends the file before IEND; one
    // after it ends the file inside that chunk.
    for (size_t n = 8; n < good.size(); ++n) {
        const size_t start = *std::prev(std::upper_bound(starts.begin(), starts.end(), n));
        const std::string expected =
            n - start < 8 ? "truncated PNG: the file ends before its IEND chunk"
                          : "truncated PNG: the file ends inside chunk " +
                                std::string(good.begin() + std::ptrdiff_t(start + 4),
                                            good.begin() + std::ptrdiff_t(start + 8));
        EXPECT_EQ(expected, reasonFor(Bytes(good.begin(), good.begin() + std::ptrdiff_t(n))))
            << "cut at " << n << " of " << good.size();
    }
    // Shorter than a signature, or another format: the decoder's business.
    EXPECT_EQ("", reasonFor(Bytes(good.begin(), good.begin() + 5)));
    EXPECT_EQ("", reasonFor(Bytes{'G', 'I', 'F', '8', '9', 'a', 0, 0, 0, 0}));
}

TEST_F(PngCheck, DamageInCriticalChunksIsNamed) {
    Bytes flipped = good;
    flipped[idat() + 9] ^= 0x10;
    EXPECT_EQ("damaged PNG: CRC error in chunk IDAT", reasonFor(flipped));

    // Width 0, with a CRC that matches it.
    Bytes header(good.begin() + 16, good.begin() + 29);
    header[0] = header[1] = header[2] = header[3] = 0;
    Bytes zeroWide = good;
    const Bytes ihdr = chunk("IHDR", header);
    std::copy(ihdr.begin(), ihdr.end(), zeroWide.begin() + 8);
    EXPECT_EQ("damaged PNG: no valid IHDR chunk first", reasonFor(zeroWide));

    EXPECT_EQ("damaged PNG: unknown critical chunk \"ZZZZ\"",
              reasonFor(inserted(1, chunk("ZZZZ", {1, 2, 3}))));
    EXPECT_EQ("damaged PNG: invalid chunk at byte 8", reasonFor(inserted(0, chunk("I#DR", {}))));
    const Bytes noData = inserted(1, chunk("IEND", {}));
    EXPECT_EQ("damaged PNG: no image data", reasonFor(noData));
}

TEST_F(PngCheck, AncillaryChunksMayCarryAnyCrc) {
    Bytes note = chunk("tEXt", {'a', 0, 'b'});
    note.back() ^= 0xff;
    const std::string file = write("noted.png", inserted(1, note));
    std::string reason;
    EXPECT_TRUE(Orvane::checkPngChunks(file, reason)) << reason;
    const Image back = Orvane::readImage(dstring(file));
    testsupport::expectSamePixels<unsigned char>(original, back);
}

// The point of the check: the error is ours alone, with nothing from the
// decoder on standard error before it.
TEST_F(PngCheck, ReadingADamagedFileThrowsOneLineAndPrintsNothing) {
    const std::string file =
        write("cut.png", Bytes(good.begin(), good.begin() + std::ptrdiff_t(idat() + 20)));
    std::string printed = stderrOf([&] {
        expectThrows<IllegalArgumentException>(
            [&] { Orvane::readImage(dstring(file)); },
            "cannot read \"" + file + "\": truncated PNG: the file ends inside chunk IDAT");
    });
    EXPECT_EQ("", printed);
    Image out;
    dstring error;
    printed = stderrOf([&] { EXPECT_FALSE(Orvane::loadFromFile(dstring(file), out, error)); });
    EXPECT_EQ("", printed);
    EXPECT_FALSE(out.exists());
}
