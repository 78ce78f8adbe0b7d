#include "image/Format.h"
#include "image/Image.h"
#include "track/Correlator.h"
#include "track/DoubleImageSum.h"
#include "track/Matcher.h"

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

using Orvane::Format;
using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::Image;

namespace {

// The tracking driver's usual case: a 21 x 21 pattern in a 71 x 71 search
// image, a 51 x 51 surface.
Image randomImage(int w, int h, unsigned seed) {
    Image img(GenRect<int>(0, 0, w, h), Format("l", Orvane::FLOAT, false));
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> u(0.0f, 1.0f);
    float* p;
    img.getBuffer(p);
    for (int i = 0; i < w * h; ++i)
        p[i] = u(rng);
    return img;
}

const Image& pattern() {
    static const Image img = randomImage(21, 21, 1);
    return img;
}

const Image& search() {
    static const Image img = randomImage(71, 71, 2);
    return img;
}

void matchWith(benchmark::State& state, Matcher& matcher, bool newSearchEachTime) {
    matcher.setPattern(pattern());
    matcher.setSearch(search());
    GenPoint<float> offset;
    double score;
    for (auto _ : state) {
        if (newSearchEachTime)
            matcher.setSearch(search());
        matcher.match(offset, score);
        benchmark::DoNotOptimize(score);
    }
}

void BM_Match(benchmark::State& state) {
    Matcher matcher;
    matchWith(state, matcher, false);
}
BENCHMARK(BM_Match);

// One tracking step's share: the search image's tables are rebuilt too.
void BM_SetSearchAndMatch(benchmark::State& state) {
    Matcher matcher;
    matchWith(state, matcher, true);
}
BENCHMARK(BM_SetSearchAndMatch);

void BM_MatchDoubleSums(benchmark::State& state) {
    Matcher matcher;
    matcher.setImageSumIntf(new DoubleImageSum());
    matchWith(state, matcher, false);
}
BENCHMARK(BM_MatchDoubleSums);

void BM_SetSearchAndMatchDoubleSums(benchmark::State& state) {
    Matcher matcher;
    matcher.setImageSumIntf(new DoubleImageSum());
    matchWith(state, matcher, true);
}
BENCHMARK(BM_SetSearchAndMatchDoubleSums);

void correlateWith(benchmark::State& state, bool simd) {
    NaiveCorrelator correlator(simd);
    if (simd && !correlator.isSimd()) {
        state.SkipWithError("no AVX2 on this processor");
        return;
    }
    correlator.setPattern(pattern());
    correlator.setSearch(search());
    Image out;
    float scale;
    for (auto _ : state) {
        correlator.correlate(out, scale);
        benchmark::DoNotOptimize(out.getBuffer());
    }
    state.counters["FMA/s"] =
        benchmark::Counter(21.0 * 21 * 51 * 51 * state.iterations(), benchmark::Counter::kIsRate);
}

void BM_CorrelateSimd(benchmark::State& state) {
    correlateWith(state, true);
}
BENCHMARK(BM_CorrelateSimd);

void BM_CorrelateScalar(benchmark::State& state) {
    correlateWith(state, false);
}
BENCHMARK(BM_CorrelateScalar);

// The textbook loop, one cell at a time, for comparison.
void BM_PlainScalarLoop(benchmark::State& state) {
    const float* p = static_cast<const float*>(pattern().getBuffer());
    const float* s = static_cast<const float*>(search().getBuffer());
    std::vector<float> out(51 * 51);
    for (auto _ : state) {
        for (int y = 0; y < 51; ++y)
            for (int x = 0; x < 51; ++x) {
                float sum = 0.0f;
                for (int r = 0; r < 21; ++r)
                    for (int c = 0; c < 21; ++c)
                        sum += p[r * 21 + c] * s[(y + r) * 71 + x + c];
                out[y * 51 + x] = sum;
            }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_PlainScalarLoop);

} // namespace
