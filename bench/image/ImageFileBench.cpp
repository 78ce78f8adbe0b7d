#include "image/ImageFile.h"

#include "image/Format.h"
#include "image/GenRect.h"
#include "image/Image.h"

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <random>
#include <string>

namespace {

using Orvane::Format;
using Orvane::GenRect;
using Orvane::Image;

constexpr int width = 1920;
constexpr int height = 1080;

// A frame that compresses like footage: smooth gradients under a little
// grain, rather than pure noise or flat colour.
Image hdFrame() {
    Image img(GenRect<int>(0, 0, width, height), Format::getRGB());
    unsigned char* p;
    img.getBuffer(p);
    std::mt19937 rng(1);
    std::uniform_int_distribution<int> grain(-3, 3);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x, p += 3) {
            double s = 0.5 + 0.5 * std::sin(x * 0.01) * std::cos(y * 0.013);
            for (int k = 0; k < 3; ++k) {
                int v = static_cast<int>(255 * s * (0.6 + 0.2 * k)) + grain(rng);
                p[k] = static_cast<unsigned char>(v < 0 ? 0 : v > 255 ? 255 : v);
            }
        }
    }
    return img;
}

std::string framePath() {
    return (std::filesystem::temp_directory_path() /
            ("tavrix-bench-" + std::to_string(getpid()) + ".png"))
        .string();
}

void BM_LoadPngUb1Rgb1080p(benchmark::State& state) {
    const std::string path = framePath();
    Orvane::saveToFile(path.c_str(), hdFrame());
    state.counters["file_bytes"] = static_cast<double>(std::filesystem::file_size(path));
    for (auto _ : state) {
        Image img;
        if (!Orvane::loadFromFile(path.c_str(), img))
            state.SkipWithError("the frame could not be read");
        benchmark::DoNotOptimize(img.getBuffer());
    }
    state.SetItemsProcessed(state.iterations() * width * height);
    std::filesystem::remove(path);
}

void BM_SavePngUb1Rgb1080p(benchmark::State& state) {
    const std::string path = framePath();
    Image frame = hdFrame();
    for (auto _ : state)
        Orvane::saveToFile(path.c_str(), frame);
    state.SetItemsProcessed(state.iterations() * width * height);
    std::filesystem::remove(path);
}

} // namespace

BENCHMARK(BM_LoadPngUb1Rgb1080p)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SavePngUb1Rgb1080p)->Unit(benchmark::kMillisecond);
