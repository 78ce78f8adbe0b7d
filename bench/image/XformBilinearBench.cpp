#include "image/XformBilinear.h"

#include "image/Format.h"
#include "image/Image.h"
#include "krovel/KrGenMatrix.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <random>

using namespace Orvane;

namespace {

// The tracker's case: a small one-channel float pattern resampled under a
// rotation and scale about its centre.
void BM_XformBilinearRotateScale(benchmark::State& state) {
    const int side = 64;
    const GenRect<int> bounds(0, 0, side, side);
    Image src(bounds, Format("l", FLOAT, true));
    Image dst(bounds, Format("l", FLOAT, true));
    std::mt19937 rng(1);
    std::uniform_real_distribution<float> u(0.0f, 1.0f);
    float* p = static_cast<float*>(src.getBuffer());
    for (int i = 0; i < side * side; ++i)
        p[i] = u(rng);

    const float angle = 0.3f, scale = 1.2f, centre = side / 2.0f;
    KrGenMatrix<float> m(2, 3);
    m(0, 0) = scale * std::cos(angle);
    m(0, 1) = -scale * std::sin(angle);
    m(1, 0) = scale * std::sin(angle);
    m(1, 1) = scale * std::cos(angle);
    m(0, 2) = centre - m(0, 0) * centre - m(0, 1) * centre;
    m(1, 2) = centre - m(1, 0) * centre - m(1, 1) * centre;

    for (auto _ : state) {
        xform_bilinear(src, dst, m);
        benchmark::DoNotOptimize(dst.getBuffer());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * side * side);
}
BENCHMARK(BM_XformBilinearRotateScale);

} // namespace
