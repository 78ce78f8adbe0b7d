#include "image/PngRead.h"

#include "image/ImageFile.h"
#include "image/PngCheck.h"

#include "support/PixelProbe.h"

#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>
#include <png.h>
#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

using Orvane::Format;
using Orvane::Image;
using Rect = Orvane::GenRect<int>;

// OpenImageIO's PNG reader loses a small error string when libpng jumps out
// of its read callback; the damaged-stream case goes through it on purpose.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:PNGInput::PngReadCallback\n";
}

namespace {

// How the test writes a PNG with libpng itself, so that it can make the
// layouts OpenImageIO never writes.
struct PngLayout {
    int colorType = PNG_COLOR_TYPE_RGB;
    int depth = 8;
    int filter = PNG_ALL_FILTERS;
    bool interlaced = false;
    bool transparency = false;
    bool significantBits = false;
    bool gamma = false;
};

int channelsOf(int colorType) {
    switch (colorType) {
    case PNG_COLOR_TYPE_GRAY:
    case PNG_COLOR_TYPE_PALETTE:
        return 1;
    case PNG_COLOR_TYPE_GRAY_ALPHA:
        return 2;
    case PNG_COLOR_TYPE_RGB:
        return 3;
    default:
        return 4;
    }
}

// Writes a w x h PNG of smooth ramps under noise, so that every filter has
// something to predict; samples are packed as PNG stores them, big-endian.
void writePng(const std::string& path, int w, int h, const PngLayout& l, unsigned seed) {
    FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(nullptr, f);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, f);
    png_set_IHDR(png, info, png_uint_32(w), png_uint_32(h), l.depth, l.colorType,
                 l.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_filter(png, 0, l.filter);
    std::vector<png_color> palette(size_t(1) << l.depth);
    for (size_t i = 0; i < palette.size(); ++i)
        palette[i] = png_color{png_byte(i * 7), png_byte(255 - i), png_byte(i * 3)};
    if (l.colorType == PNG_COLOR_TYPE_PALETTE)
        png_set_PLTE(png, info, palette.data(), int(palette.size()));
    png_byte alphas[2] = {0, 128};
    png_color_16 key{0, 1, 1, 1, 1};
    if (l.transparency)
        png_set_tRNS(png, info, alphas, 2, &key);
    png_color_8 bits{5, 5, 5, 5, 2};
    if (l.significantBits)
        png_set_sBIT(png, info, &bits);
    if (l.gamma)
        png_set_gAMA(png, info, 1 / 2.2);
    png_write_info(png, info);
    const int samples = channelsOf(l.colorType) * w;
    const size_t rowBytes = (size_t(samples) * size_t(l.depth) + 7) / 8;
    std::vector<std::vector<png_byte>> rows(static_cast<size_t>(h),
                                            std::vector<png_byte>(rowBytes));
    std::mt19937 rng(seed);
    const unsigned top = (1u << l.depth) - 1;
    for (int y = 0; y < h; ++y)
        for (int s = 0; s < samples; ++s) {
            const unsigned v = std::min(top, unsigned((s + 3 * y) * top / (samples + 3 * h)) +
                                                 unsigned(rng() % 3));
            if (l.depth == 16) {
                rows[size_t(y)][2 * size_t(s)] = png_byte(v >> 8);
                rows[size_t(y)][2 * size_t(s) + 1] = png_byte(v);
            } else {
                const int shift = 8 - l.depth - (s * l.depth) % 8;
                rows[size_t(y)][size_t(s * l.depth / 8)] |= png_byte(v << shift);
            }
        }
    std::vector<png_bytep> pointers;
    pointers.reserve(rows.size());
    for (std::vector<png_byte>& row : rows)
        pointers.push_back(row.data());
    png_write_image(png, pointers.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    std::fclose(f);
}

// Expects `img` to hold, row by row, the samples OpenImageIO itself reads
// from `path` in the file's own sample type, with alpha left straight.
void expectAsOpenImageIO(const std::string& path, const Image& img) {
    OIIO::ImageSpec config;
    config.attribute("oiio:UnassociatedAlpha", 1);
    std::unique_ptr<OIIO::ImageInput> in = OIIO::ImageInput::open(path, &config);
    ASSERT_TRUE(in) << path;
    const OIIO::ImageSpec& spec = in->spec();
    ASSERT_EQ(spec.width, img.getBounds().w) << path;
    ASSERT_EQ(spec.height, img.getBounds().h) << path;
    const int nc = std::min(spec.nchannels, 4);
    ASSERT_EQ(nc, img.getFormat().getNumChannels()) << path;
    const size_t rowBytes = size_t(spec.width) * nc * spec.format.size();
    ASSERT_EQ(rowBytes, size_t(spec.width) * size_t(img.getFormat().getBytesPerPixel())) << path;
    std::vector<unsigned char> want(rowBytes * size_t(spec.height));
    ASSERT_TRUE(in->read_image(0, 0, 0, nc, spec.format, want.data())) << in->geterror();
    int differingRows = 0;
    for (int y = 0; y < spec.height; ++y)
        differingRows += std::memcmp(want.data() + rowBytes * size_t(y),
                                     static_cast<unsigned char*>(img.getBuffer()) +
                                         size_t(img.getStride()) * size_t(y),
                                     rowBytes) != 0;
    EXPECT_EQ(0, differingRows) << path;
}

std::vector<unsigned char> bytesOf(const std::string& path) {
    std::vector<unsigned char> bytes;
    EXPECT_TRUE(Orvane::readPngFile(path, bytes)) << path;
    return bytes;
}

// Rewrites the CRC of the chunk that starts at `at`, after its data changed.
void resealChunk(std::vector<unsigned char>& file, size_t at) {
    const size_t length = size_t(file[at]) << 24 | size_t(file[at + 1]) << 16 |
                          size_t(file[at + 2]) << 8 | file[at + 3];
    const uLong crc = crc32(0, file.data() + at + 4, uInt(length + 4));
    for (int k = 0; k < 4; ++k)
        file[at + 8 + length + size_t(k)] = static_cast<unsigned char>(crc >> (24 - 8 * k));
}

size_t firstImageData(const std::vector<unsigned char>& file) {
    for (size_t at = 8; at + 8 <= file.size();) {
        const size_t length = size_t(file[at]) << 24 | size_t(file[at + 1]) << 16 |
                              size_t(file[at + 2]) << 8 | file[at + 3];
        if (std::memcmp(file.data() + at + 4, "IDAT", 4) == 0)
            return at;
        at += length + 12;
    }
    ADD_FAILURE() << "no IDAT chunk";
    return 0;
}

class PngRead : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (std::filesystem::temp_directory_path() / "tavrix-XXXXXX").string();
        ASSERT_NE(nullptr, mkdtemp(pattern.data()));
        dir = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(dir); }
    std::string path(const std::string& name) const { return dir + "/" + name; }
    std::string dir;
};

} // namespace

TEST_F(PngRead, PlainFilesReadSampleForSampleAsOpenImageIODoes) {
    const std::pair<int, const char*> layouts[] = {{PNG_COLOR_TYPE_GRAY, "l"},
                                                   {PNG_COLOR_TYPE_GRAY_ALPHA, "la"},
                                                   {PNG_COLOR_TYPE_RGB, "rgb"},
                                                   {PNG_COLOR_TYPE_RGB_ALPHA, "rgba"}};
    const int filters[] = {PNG_FILTER_NONE, PNG_FILTER_SUB,   PNG_FILTER_UP,
                           PNG_FILTER_AVG,  PNG_FILTER_PAETH, PNG_ALL_FILTERS};
    std::mt19937 rng(13);
    unsigned seed = 0;
    for (auto [colorType, channels] : layouts)
        for (int depth : {8, 16})
            for (int filter : filters) {
                PngLayout l;
                l.colorType = colorType;
                l.depth = depth;
                l.filter = filter;
                l.gamma = filter == PNG_ALL_FILTERS; // a gamma note changes no sample
                const std::string name = path("plain" + std::to_string(++seed) + ".png");
                writePng(name, 1 + int(rng() % 40), 1 + int(rng() % 40), l, seed);
                const std::vector<unsigned char> bytes = bytesOf(name);
                Image img;
                ASSERT_TRUE(Orvane::decodePlainPng(bytes.data(), bytes.size(), img)) << name;
                EXPECT_EQ(Format(channels, depth == 8 ? Orvane::UB1 : Orvane::UB2, false),
                          img.getFormat());
                expectAsOpenImageIO(name, img);
                expectAsOpenImageIO(name, Orvane::readImage(name.c_str()));
            }
}

TEST_F(PngRead, OtherLayoutsAreLeftToTheGeneralReader) {
    PngLayout palette, grey1, interlaced, keyed, fewBits;
    palette.colorType = PNG_COLOR_TYPE_PALETTE;
    grey1.colorType = PNG_COLOR_TYPE_GRAY;
    grey1.depth = 1;
    interlaced.interlaced = true;
    keyed.transparency = true;
    fewBits.significantBits = true;
    const std::pair<const char*, PngLayout> cases[] = {{"palette.png", palette},
                                                       {"grey1.png", grey1},
                                                       {"interlaced.png", interlaced},
                                                       {"keyed.png", keyed},
                                                       {"fewbits.png", fewBits}};
    for (const auto& [name, layout] : cases) {
        writePng(path(name), 19, 11, layout, 3);
        const std::vector<unsigned char> bytes = bytesOf(path(name));
        const Image before(Rect(0, 0, 1, 1), Format::getRGB());
        Image out = before;
        EXPECT_FALSE(Orvane::decodePlainPng(bytes.data(), bytes.size(), out)) << name;
        EXPECT_TRUE(out == before) << name;
        expectAsOpenImageIO(path(name), Orvane::readImage(path(name).c_str()));
    }
}

TEST_F(PngRead, DamagedImageDataFailsQuietlyAndIsNamedByTheGeneralReader) {
    PngLayout l;
    writePng(path("good.png"), 64, 48, l, 5);
    const std::vector<unsigned char> good = bytesOf(path("good.png"));
    const size_t idat = firstImageData(good);

    // Garbage inside the compressed stream, and a stream cut short, each
    // behind a valid CRC so that only the decoder can tell.
    std::vector<unsigned char> garbled = good, cut = good;
    for (size_t k = idat + 8 + 20; k < idat + 8 + 60; ++k)
        garbled[k] ^= 0x5a;
    resealChunk(garbled, idat);
    ASSERT_EQ(0, cut[idat] | cut[idat + 1]);
    const size_t length = size_t(cut[idat + 2]) << 8 | cut[idat + 3];
    const size_t kept = length / 2;
    cut.erase(cut.begin() + std::ptrdiff_t(idat + 8 + kept),
              cut.begin() + std::ptrdiff_t(idat + 8 + length));
    cut[idat + 2] = static_cast<unsigned char>(kept >> 8);
    cut[idat + 3] = static_cast<unsigned char>(kept);
    resealChunk(cut, idat);

    for (const auto& [name, bytes] :
         {std::make_pair("garbled.png", garbled), std::make_pair("cut.png", cut)}) {
        std::string reason;
        ASSERT_TRUE(Orvane::checkPngBytes(bytes.data(), bytes.size(), reason)) << reason;
        Image out;
        testing::internal::CaptureStderr();
        EXPECT_FALSE(Orvane::decodePlainPng(bytes.data(), bytes.size(), out)) << name;
        EXPECT_EQ("", testing::internal::GetCapturedStderr()) << name;
        EXPECT_FALSE(out.exists());

        std::ofstream(path(name), std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
        // The general reader's libpng prints its own line here, as it always has.
        testing::internal::CaptureStderr();
        dstring error;
        EXPECT_FALSE(Orvane::loadFromFile(path(name).c_str(), out, error));
        testing::internal::GetCapturedStderr();
        EXPECT_EQ(0u, error.str().find("cannot read \"" + path(name) + "\": ")) << error;
    }
}

TEST_F(PngRead, TiffAndExrStillReadAsOpenImageIODoes) {
    const Image ub2 = testsupport::randomImage<unsigned short>(Rect(0, 0, 31, 17), "rgb", 7, false);
    const Image ub1 = testsupport::randomImage<unsigned char>(Rect(0, 0, 9, 40), "rgba", 8, false);
    const Image fl = testsupport::randomImage<float>(Rect(0, 0, 23, 5), "rgba", 9, true);
    const std::pair<const char*, Image> files[] = {
        {"a.tif", ub2}, {"b.tif", ub1}, {"c.exr", fl}, {"d.png", ub1}};
    for (const auto& [name, img] : files) {
        Orvane::saveToFile(path(name).c_str(), img);
        const Image back = Orvane::readImage(path(name).c_str());
        EXPECT_EQ(img.getFormat(), back.getFormat()) << name;
        expectAsOpenImageIO(path(name), back);
    }
}
