#include "krovel/KrInverse.h"

#include <benchmark/benchmark.h>

namespace {

// The damped normal matrix of the affine refinement: six by six, dominant.
KrGenMatrix<float> normalMatrix() {
    KrGenMatrix<float> a(6, 6);
    for (int r = 0; r < 6; ++r)
        for (int c = 0; c < 6; ++c)
            a(r, c) = r == c ? 10.0f + r : 1.0f / (1 + r + c);
    return a;
}

// A new factor, pivot vector and workspace, with its size query, per call.
void BM_Inverse6(benchmark::State& state) {
    const KrGenMatrix<float> a = normalMatrix();
    for (auto _ : state)
        benchmark::DoNotOptimize(inverse(a).data());
}
BENCHMARK(BM_Inverse6);

// A kept inverter, as the solver holds one.
void BM_Inverse6Kept(benchmark::State& state) {
    const KrGenMatrix<float> a = normalMatrix();
    KrInverter<float> inverter;
    for (auto _ : state)
        benchmark::DoNotOptimize(inverter.invert(a).data());
}
BENCHMARK(BM_Inverse6Kept);

} // namespace
