#include "image/Xform.h"

#include "image/Format.h"
#include "image/Image.h"

#include <benchmark/benchmark.h>

#include <random>

using namespace Orvane;

namespace {

Image frame(const Format& f) {
    const GenRect<int> bounds(0, 0, 1920, 1080);
    Image img(bounds, f);
    std::mt19937 rng(1);
    unsigned char* p = static_cast<unsigned char*>(img.getBuffer());
    for (int i = 0; i < bounds.w * bounds.h * 4; ++i)
        p[i] = static_cast<unsigned char>(rng());
    return img;
}

// A straight frame is premultiplied before it is filtered; the second case
// shows the filtering alone.
void BM_ScaleHalfStraightRGBA(benchmark::State& state) {
    Image img = frame(Format::getRGBA());
    for (auto _ : state)
        benchmark::DoNotOptimize(scale(img, 0.5, 0.5).getBuffer());
    state.SetItemsProcessed(state.iterations() * 1920 * 1080);
}
BENCHMARK(BM_ScaleHalfStraightRGBA)->Unit(benchmark::kMillisecond);

void BM_ScaleHalfPremultipliedRGBA(benchmark::State& state) {
    Image img = frame(Format::getrgba());
    for (auto _ : state)
        benchmark::DoNotOptimize(scale(img, 0.5, 0.5).getBuffer());
    state.SetItemsProcessed(state.iterations() * 1920 * 1080);
}
BENCHMARK(BM_ScaleHalfPremultipliedRGBA)->Unit(benchmark::kMillisecond);

} // namespace
