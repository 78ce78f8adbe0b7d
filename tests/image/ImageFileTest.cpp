#include "image/ImageFile.h"

#include "image/Convert.h"

#include "support/ExpectThrows.h"
#include "support/PixelProbe.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

using Orvane::Format;
using Orvane::Image;
using Rect = Orvane::GenRect<int>;
using testsupport::sampleAt;

// OpenImageIO's PNG reader loses a small error string when a file ends
// early: libpng jumps out of its read callback over the string. That leak
// belongs to the dependency, so the leak checker is told to pass it over;
// the full unwind lets it see the reader's frame under the string's.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:PNGInput::PngReadCallback\n";
}
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
    return "fast_unwind_on_malloc=0";
}

namespace {

// A fresh directory per test, removed afterwards.
class ImageFile : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (std::filesystem::temp_directory_path() / "tavrix-XXXXXX").string();
        ASSERT_NE(nullptr, mkdtemp(pattern.data()));
        dir = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(dir); }
    std::string path(const std::string& name) const { return dir + "/" + name; }

    // Writes random samples and expects them back unchanged; floats reach
    // below 0 and above 1, so that a clamp on the way shows.
    template <class T> void expectRoundTrip(const char* name, const char* channels, bool premult) {
        Image img = testsupport::randomImage<T>(Rect(0, 0, 37, 23), channels, 5, premult);
        if (std::is_floating_point<T>::value)
            testsupport::forEachSample(img, [&](int x, int y, int k) {
                sampleAt<T>(img, x, y, k) = sampleAt<T>(img, x, y, k) * 12 - 2;
            });
        Orvane::saveToFile(path(name).c_str(), img);
        Image back = Orvane::readImage(path(name).c_str());
        EXPECT_EQ(img.getFormat(), back.getFormat()) << name;
        testsupport::expectSamePixels<T>(img, back);
    }

    // The error text of reading `name`, after checking that the read failed
    // and left the image it was given alone.
    std::string readError(const char* name) {
        Image out = testsupport::randomImage<unsigned char>(Rect(0, 0, 2, 2), "l", 1);
        const Image before = out;
        dstring error;
        EXPECT_FALSE(Orvane::loadFromFile(path(name).c_str(), out, error)) << name;
        EXPECT_TRUE(out == before) << name;
        const std::string prefix = "cannot read \"" + path(name) + "\": ";
        EXPECT_EQ(0u, error.str().find(prefix)) << error;
        EXPECT_GT(error.str().size(), prefix.size()) << error;
        return error.str();
    }

    std::string dir;
};

} // namespace

TEST_F(ImageFile, RoundTripsKeepEverySample) {
    expectRoundTrip<unsigned char>("a.png", "rgba", false); // straight alpha stays straight
    expectRoundTrip<unsigned short>("a.tif", "rgb", false);
    expectRoundTrip<float>("a.exr", "rgba", true);
    expectRoundTrip<unsigned char>("l.png", "l", false);
    expectRoundTrip<unsigned short>("la.png", "la", false);
}

TEST_F(ImageFile, MissingTruncatedAndForeignFilesFailClearly) {
    const std::string missing = readError("missing.png");
    expectThrows<IllegalArgumentException>([&] { Orvane::readImage(path("missing.png").c_str()); },
                                           missing);

    const Image img = testsupport::randomImage<unsigned short>(Rect(0, 0, 64, 64), "rgb", 2, false);
    const std::pair<const char*, int> cut[] = {
        {"cut.png", Orvane::UB1}, {"cut.exr", Orvane::FLOAT}, {"cut.tif", Orvane::UB2}};
    for (auto [name, datatype] : cut) {
        Orvane::saveToFile(path(name).c_str(), Orvane::convertToDatatype(img, datatype));
        std::filesystem::resize_file(path(name), std::filesystem::file_size(path(name)) / 2);
        readError(name);
    }
    std::ofstream(path("text.png")) << "this is not an image\n";
    readError("text.png");
}
