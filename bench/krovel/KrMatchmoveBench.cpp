#include "krovel/KrMatchmove.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <random>

namespace {

// A clip of `frames` frames over a plane of `points` tracks: the camera
// drifts, turns, zooms and tilts slowly; positions carry 0.05 px of noise.
KrMatchmove makeClip(int points, int frames) {
    std::mt19937 rng(5);
    std::uniform_real_distribution<double> spread(20, 620);
    std::normal_distribution<double> noise(0, 0.05);
    KrMatchmove mm;
    for (int i = 0; i < points; ++i) {
        const double X = spread(rng) - 320, Y = 0.75 * spread(rng) - 240;
        KrMatchmoveTrack track(KrGenMatrix<float>(frames, 2), KrGenVector<float>(frames, 1.0f));
        for (int f = 0; f < frames; ++f) {
            const double r = 0.002 * f, s = 1 + 0.001 * f;
            const double g = 1e-6 * f, h = -0.5e-6 * f;
            const double x = s * (std::cos(r) * X - std::sin(r) * Y) + 1.5 * f;
            const double y = s * (std::sin(r) * X + std::cos(r) * Y) - 0.8 * f;
            const double w = 1 + g * X + h * Y;
            track.positions(f, 0) = float(x / w + 320 + noise(rng));
            track.positions(f, 1) = float(y / w + 240 + noise(rng));
        }
        mm.addTrack(track);
    }
    return mm;
}

void BM_SolveClip(benchmark::State& state) {
    const int frames = int(state.range(1));
    KrMatchmove mm = makeClip(int(state.range(0)), frames);
    mm.setBaseFrame(frames / 2);
    for (auto _ : state) {
        mm.solve();
        benchmark::DoNotOptimize(mm.getHomography(0).data());
    }
    state.counters["frames/s"] = benchmark::Counter(double(frames) * double(state.iterations()),
                                                    benchmark::Counter::kIsRate);
}
BENCHMARK(BM_SolveClip)->Args({16, 100})->Unit(benchmark::kMillisecond);

} // namespace
