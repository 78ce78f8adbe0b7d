#include "image/Format.h"
#include "image/Image.h"
#include "krovel/AffineProblem.h"
#include "krovel/AffineTransform.h"

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

// The images and flags of one refinement; `searchSize` is 33 for a search
// image just around the pattern and 92 for the driver's fetched region.
void setUp(AffineProblem& p, const Image& pattern, const Image& search, bool allFree) {
    p.setPattern(pattern);
    p.setSearch(search);
    p.setAnchor(GenPoint<float>(0.5f, 0.5f));
    p.setCentre(GenPoint<float>(0.5f, 0.5f));
    p.setUseRotation(allFree);
    p.setUseScale(allFree);
    p.setUseStretch(allFree);
    p.setXform(AffineTransform());
}

Image searchImage(int size, bool allFree) {
    const GenRect<int> b(-size / 2, -size / 2, size, size);
    return allFree ? sampled(b, 0.05, 1.02, 0.3) : sampled(b, 0, 1, 0.3);
}

// A new problem per refinement: its storage is made on every call.
void run(benchmark::State& state, bool allFree, int searchSize) {
    const Image pattern = sampled(GenRect<int>(-10, -10, 21, 21), 0, 1, 0);
    const Image search = searchImage(searchSize, allFree);
    for (auto _ : state) {
        AffineProblem p;
        setUp(p, pattern, search, allFree);
        p.execute();
        benchmark::DoNotOptimize(p.getQuality());
    }
}

// One problem kept across refinements, as a driver holding one per track.
void runKept(benchmark::State& state, bool allFree, int searchSize) {
    const Image pattern = sampled(GenRect<int>(-10, -10, 21, 21), 0, 1, 0);
    const Image search = searchImage(searchSize, allFree);
    AffineProblem p;
    for (auto _ : state) {
        setUp(p, pattern, search, allFree);
        p.execute();
        benchmark::DoNotOptimize(p.getQuality());
    }
}

void BM_Execute21AllFree(benchmark::State& state) {
    run(state, true, 33);
}
BENCHMARK(BM_Execute21AllFree)->Unit(benchmark::kMicrosecond);

void BM_Execute21TranslationOnly(benchmark::State& state) {
    run(state, false, 33);
}
BENCHMARK(BM_Execute21TranslationOnly)->Unit(benchmark::kMicrosecond);

void BM_Execute21AllFreeKept(benchmark::State& state) {
    runKept(state, true, 33);
}
BENCHMARK(BM_Execute21AllFreeKept)->Unit(benchmark::kMicrosecond);

void BM_Execute21TranslationOnlyKept(benchmark::State& state) {
    runKept(state, false, 33);
}
BENCHMARK(BM_Execute21TranslationOnlyKept)->Unit(benchmark::kMicrosecond);

// The driver's sizes: 21 x 21 pattern, 92 x 92 fetched search region.
void BM_Execute21Search92AllFreeKept(benchmark::State& state) {
    runKept(state, true, 92);
}
BENCHMARK(BM_Execute21Search92AllFreeKept)->Unit(benchmark::kMicrosecond);

// The Jacobian alone: six trial warps, each normalised, at the start state.
void BM_EvalDy21AllFree(benchmark::State& state) {
    const Image pattern = sampled(GenRect<int>(-10, -10, 21, 21), 0, 1, 0);
    AffineProblem p;
    setUp(p, pattern, searchImage(33, true), true);
    KrGenVector<float> x;
    p.pack(x, AffineTransform());
    p.setX(x);
    KrGenMatrix<float> dy;
    for (auto _ : state) {
        p.evalDy(dy);
        benchmark::DoNotOptimize(dy.data());
    }
}
BENCHMARK(BM_EvalDy21AllFree)->Unit(benchmark::kMicrosecond);

} // namespace
