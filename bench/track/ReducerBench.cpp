#include "image/Format.h"
#include "image/GenRect.h"
#include "image/Image.h"
#include "track/Reducer.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <random>

namespace {

// The tracker's typical search region: 61 × 61 pixels of 8-bit RGBA.
Orvane::Image searchRegion() {
    const Orvane::GenRect<int> bounds(-30, -30, 61, 61);
    Orvane::Image img(bounds, Orvane::Format::getRGBA());
    std::mt19937 rng(61);
    unsigned char* row = static_cast<unsigned char*>(img.getBuffer());
    for (int y = 0; y < bounds.h; ++y, row += img.getStride())
        for (int i = 0; i < bounds.w * 4; ++i)
            row[i] = static_cast<unsigned char>(rng());
    return img;
}

void runReducer(benchmark::State& state, const Reducer& reducer) {
    const Orvane::Image src = searchRegion();
    for (auto _ : state) {
        Orvane::Image out = reducer.reduce(src);
        benchmark::DoNotOptimize(out.getBuffer());
    }
    state.SetItemsProcessed(state.iterations() * 61 * 61);
}

void BM_ChannelReducer(benchmark::State& state) {
    runReducer(state, ChannelReducer('g'));
}
void BM_LuminanceReducer(benchmark::State& state) {
    runReducer(state, LuminanceReducer());
}
void BM_SaturationReducer(benchmark::State& state) {
    runReducer(state, SaturationReducer());
}
void BM_PCAReducer(benchmark::State& state) {
    const std::unique_ptr<PCAReducer> reducer(PCAReducer::setupPCA(searchRegion()));
    runReducer(state, *reducer);
}
// Set-up runs once per track, on the pattern.
void BM_PCASetup(benchmark::State& state) {
    const Orvane::Image pattern = searchRegion();
    for (auto _ : state) {
        std::unique_ptr<PCAReducer> reducer(PCAReducer::setupPCA(pattern));
        benchmark::DoNotOptimize(reducer.get());
    }
    state.SetItemsProcessed(state.iterations() * 61 * 61);
}

} // namespace

BENCHMARK(BM_ChannelReducer);
BENCHMARK(BM_LuminanceReducer);
BENCHMARK(BM_SaturationReducer);
BENCHMARK(BM_PCAReducer);
BENCHMARK(BM_PCASetup);
