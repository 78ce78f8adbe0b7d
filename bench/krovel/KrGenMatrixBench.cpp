#include "krovel/KrGenMatrix.h"
#include "krovel/KrInverse.h"
#include "krovel/KrSvd.h"
#include "krovel/KrVectorKernels.h"

#include <benchmark/benchmark.h>

#include <random>

namespace {

KrGenMatrix<float> randomMatrix(int rows, int cols, KrGenMatrix<float>::Layout l) {
    std::mt19937 rng(1);
    std::uniform_real_distribution<float> u(-1, 1);
    KrGenMatrix<float> m(rows, cols, l);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c)
            m(r, c) = u(rng) + (r == c ? float(rows) : 0.0f);
    return m;
}

// Like layouts copy as contiguous lines; the transposing copy strides one side.
void BM_SetSameLayout(benchmark::State& state) {
    const int n = int(state.range(0));
    KrGenMatrix<float> src = randomMatrix(n, n, KrGenMatrix<float>::RowMajor);
    KrGenMatrix<float> dst(n, n, KrGenMatrix<float>::RowMajor);
    for (auto _ : state) {
        dst.set(src);
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetBytesProcessed(state.iterations() * n * n * sizeof(float));
}
BENCHMARK(BM_SetSameLayout)->Arg(64)->Arg(512);

void BM_SetTransposedLayout(benchmark::State& state) {
    const int n = int(state.range(0));
    KrGenMatrix<float> src = randomMatrix(n, n, KrGenMatrix<float>::RowMajor);
    KrGenMatrix<float> dst(n, n, KrGenMatrix<float>::ColumnMajor);
    for (auto _ : state) {
        dst.set(src);
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetBytesProcessed(state.iterations() * n * n * sizeof(float));
}
BENCHMARK(BM_SetTransposedLayout)->Arg(64)->Arg(512);

// The damped normal matrix of the affine refinement is at most 6 by 6.
void BM_InverseFloat(benchmark::State& state) {
    KrGenMatrix<float> a =
        randomMatrix(int(state.range(0)), int(state.range(0)), KrGenMatrix<float>::ColumnMajor);
    for (auto _ : state)
        benchmark::DoNotOptimize(inverse(a).data());
}
BENCHMARK(BM_InverseFloat)->Arg(6)->Arg(64);

// Principal axes of a pattern's colours: pixels by 3 channels.
void BM_SvdPixelsByChannels(benchmark::State& state) {
    KrGenMatrix<float> a = randomMatrix(int(state.range(0)), 3, KrGenMatrix<float>::RowMajor);
    KrSvd<float> svd;
    for (auto _ : state)
        benchmark::DoNotOptimize(Krovel::_svdCall(svd, a));
}
BENCHMARK(BM_SvdPixelsByChannels)->Arg(1024);

void BM_PairwiseNorm2(benchmark::State& state) {
    KrGenMatrix<float> a = randomMatrix(1, int(state.range(0)), KrGenMatrix<float>::RowMajor);
    for (auto _ : state)
        benchmark::DoNotOptimize(Krovel::_vector_norm2_2(a.data(), a.cols()));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_PairwiseNorm2)->Arg(4096);

} // namespace
