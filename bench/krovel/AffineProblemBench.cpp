#include "image/Format.h"
#include "image/Image.h"
#include "krovel/AffineProblem.h"

#include <benchmark/benchmark.h>

#include <cmath>

using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::Image;

namespace {

// A smooth two-wave texture; the search copy is turned by 3 degrees, scaled
// by 2 % and shifted by a fraction of a pixel, as between two frames.
double texture(double u, double v) {
    return 2 + std::sin(0.61 * u + 0.23 * v) + 0.7 * std::sin(-0.17 * u + 0.53 * v + 1);
}

Image sampled(const GenRect<int>& b, double angle, double scale, double shift) {
    Image img(b, Orvane::Format("l", Orvane::FLOAT, false));
    float* p;
    img.getBuffer(p);
    const double c = std::cos(angle) / scale, s = std::sin(angle) / scale;
    for (int y = 0; y < b.h; ++y)
        for (int x = 0; x < b.w; ++x) {
            const double du = b.x + x + 0.5 - shift, dv = b.y + y + 0.5 - shift;
            p[y * b.w + x] = float(texture(c * du + s * dv, -s * du + c * dv));
        }
    return img;
}

void run(benchmark::State& state, bool allFree) {
    const Image pattern = sampled(GenRect<int>(-10, -10, 21, 21), 0, 1, 0);
    const Image search = allFree ? sampled(GenRect<int>(-16, -16, 33, 33), 0.05, 1.02, 0.3)
                                 : sampled(GenRect<int>(-16, -16, 33, 33), 0, 1, 0.3);
    for (auto _ : state) {
        AffineProblem p;
        p.setPattern(pattern);
        p.setSearch(search);
        p.setAnchor(GenPoint<float>(0.5f, 0.5f));
        p.setCentre(GenPoint<float>(0.5f, 0.5f));
        if (!allFree) {
            p.setUseRotation(false);
            p.setUseScale(false);
            p.setUseStretch(false);
        }
        p.execute();
        benchmark::DoNotOptimize(p.getQuality());
    }
}

void BM_Execute21AllFree(benchmark::State& state) {
    run(state, true);
}
BENCHMARK(BM_Execute21AllFree)->Unit(benchmark::kMicrosecond);

void BM_Execute21TranslationOnly(benchmark::State& state) {
    run(state, false);
}
BENCHMARK(BM_Execute21TranslationOnly)->Unit(benchmark::kMicrosecond);

} // namespace
