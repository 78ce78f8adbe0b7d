#include "krovel/Fft.h"

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

namespace {

struct Planes {
    std::vector<float> re;
    std::vector<float> im;

    explicit Planes(int n) : re(n), im(n) {
        std::mt19937 rng(1);
        std::uniform_real_distribution<float> u(-1.0f, 1.0f);
        for (int i = 0; i < n; ++i) {
            re[i] = u(rng);
            im[i] = u(rng);
        }
    }
};

constexpr int log2Side = 8;
constexpr int side = 1 << log2Side;

// Repeated transforms grow the data by the plane size a pass; resetting it
// every few passes keeps it finite without timing a rescale.
template <class Step> void runInPlace(benchmark::State& state, Step step) {
    Planes p(side * side);
    const Planes fresh = p;
    Fft2 f(p.re.data(), p.im.data(), log2Side, log2Side);
    int passes = 0;
    for (auto _ : state) {
        step(&f);
        benchmark::ClobberMemory();
        if (++passes == 4) {
            state.PauseTiming();
            p.re = fresh.re;
            p.im = fresh.im;
            passes = 0;
            state.ResumeTiming();
        }
    }
    state.SetItemsProcessed(state.iterations() * side * side);
}

void BM_Fft2ForwardInPlace(benchmark::State& state) {
    runInPlace(state, [](Fft2* f) { Fft2::xform(f, f); });
}
BENCHMARK(BM_Fft2ForwardInPlace);

void BM_Fft2ForwardOutOfPlace(benchmark::State& state) {
    Planes src(side * side);
    Planes dst(side * side);
    Fft2 s(src.re.data(), src.im.data(), log2Side, log2Side);
    Fft2 d(dst.re.data(), dst.im.data(), log2Side, log2Side);
    for (auto _ : state) {
        Fft2::xform(&s, &d);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * side * side);
}
BENCHMARK(BM_Fft2ForwardOutOfPlace);

// The inverse as callers build it: conjugate, transform, conjugate; the
// division by the size is left out.
void BM_Fft2InverseInPlace(benchmark::State& state) {
    runInPlace(state, [](Fft2* f) {
        Fft2::conjugate(f);
        Fft2::xform(f, f);
        Fft2::conjugate(f);
    });
}
BENCHMARK(BM_Fft2InverseInPlace);

} // namespace
