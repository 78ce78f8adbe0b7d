#include "image/Format.h"
#include "image/Image.h"
#include "image/Rescaler.h"
#include "image/Xform.h"

#include <benchmark/benchmark.h>

#include <random>

using namespace Orvane;

namespace {

// The coarse level of the affine refinement: a 92 x 92 one-channel float
// search region (1.5 times a 61 x 61 search area) halved.
Image region() {
    Image img(GenRect<int>(114, 74, 92, 92), Format("l", FLOAT, false));
    std::mt19937 rng(1);
    float* p;
    img.getBuffer(p);
    for (int i = 0; i < 92 * 92; ++i)
        p[i] = float(rng() * 0x1p-32);
    return img;
}

// The two-pass transform walked run by run, weights worked out per sample.
void BM_HalveRegionRunByRun(benchmark::State& state) {
    const Image img = region();
    for (auto _ : state) {
        mat3 m = scaling2D(vec2(0.5, 0.5));
        benchmark::DoNotOptimize(xform(img, m, 0.0).getBuffer());
    }
}
BENCHMARK(BM_HalveRegionRunByRun)->Unit(benchmark::kMicrosecond);

// scale(): weight tables per pass, a new rescaler and new images per call.
void BM_HalveRegionScale(benchmark::State& state) {
    const Image img = region();
    for (auto _ : state)
        benchmark::DoNotOptimize(scale(img, 0.5, 0.5).getBuffer());
}
BENCHMARK(BM_HalveRegionScale)->Unit(benchmark::kMicrosecond);

// A kept rescaler, as the refinement holds one: tables and storage reused.
void BM_HalveRegionKept(benchmark::State& state) {
    const Image img = region();
    Rescaler halve(0.5, 0.5);
    for (auto _ : state)
        benchmark::DoNotOptimize(halve.apply(img).getBuffer());
}
BENCHMARK(BM_HalveRegionKept)->Unit(benchmark::kMicrosecond);

} // namespace
