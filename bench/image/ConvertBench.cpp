#include "image/Convert.h"

#include <benchmark/benchmark.h>

#include <random>

namespace {

using Orvane::Format;
using Orvane::GenRect;
using Orvane::Image;

constexpr int width = 1920;
constexpr int height = 1080;

Image hdFrame(int datatype) {
    Image ub1(GenRect<int>(0, 0, width, height), Format::getRGBA());
    unsigned char* p;
    ub1.getBuffer(p);
    std::mt19937 rng(1);
    for (int i = 0; i < width * height * 4; ++i)
        p[i] = static_cast<unsigned char>(rng());
    return Orvane::convertToDatatype(ub1, datatype);
}

void convertFrame(benchmark::State& state, int from, int to) {
    Image src = hdFrame(from);
    for (auto _ : state) {
        Image out = Orvane::convertToDatatype(src, to);
        benchmark::DoNotOptimize(out.getBuffer());
    }
    state.SetItemsProcessed(state.iterations() * width * height);
}

void BM_Ub1RgbaToFloat(benchmark::State& state) {
    convertFrame(state, Orvane::UB1, Orvane::FLOAT);
}
void BM_FloatRgbaToUb1(benchmark::State& state) {
    convertFrame(state, Orvane::FLOAT, Orvane::UB1);
}

} // namespace

BENCHMARK(BM_Ub1RgbaToFloat)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FloatRgbaToUb1)->Unit(benchmark::kMillisecond);
