#include "track/CorrelatorKernels.h"

#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

// Only these functions use AVX2; the rest of the library keeps the baseline
// instruction set, so it still loads on processors without it.
#define TAVRIX_AVX2 __attribute__((target("avx2,fma")))

namespace CorrelatorKernels {

namespace {

// R output rows by K vectors of 8 columns. Each search row is loaded once
// per column step and feeds every output row of the block, paired with the
// pattern row that lines up with it. R * K accumulators, K search vectors
// and one broadcast fill the 16 ymm registers at R = 4, K = 3.
//
// Each cell still adds its products in pattern row-major order, whatever
// block it falls in, so cells computed twice by overlapping blocks agree.
template <int R, int K, bool AllRows>
TAVRIX_AVX2 inline void accumulateRow(__m256 (&acc)[R][K], const float* s,
                                      const float* const (&p)[R], int pw) {
    for (int c = 0; c < pw; ++c) {
        __m256 v[K];
#pragma GCC unroll 4
        for (int k = 0; k < K; ++k)
            v[k] = _mm256_loadu_ps(s + c + 8 * k);
#pragma GCC unroll 8
        for (int i = 0; i < R; ++i) {
            if (!AllRows && !p[i])
                continue;
            const __m256 b = _mm256_broadcast_ss(p[i] + c);
#pragma GCC unroll 4
            for (int k = 0; k < K; ++k)
                acc[i][k] = _mm256_fmadd_ps(b, v[k], acc[i][k]);
        }
    }
}

template <int R, int K> TAVRIX_AVX2 void block(const Args& a, int x0, int y0) {
    __m256 acc[R][K];
#pragma GCC unroll 8
    for (int i = 0; i < R; ++i)
#pragma GCC unroll 4
        for (int k = 0; k < K; ++k)
            acc[i][k] = _mm256_setzero_ps();

    const int ph = a.pattern.height();
    const int searchRows = ph + R - 1;
    for (int sr = 0; sr < searchRows; ++sr) {
        const float* s = a.search.row(y0 + sr) + x0;
        // Output row i meets this search row through pattern row sr - i;
        // near the block's first and last search rows some have none.
        const float* p[R];
        bool allRows = true;
#pragma GCC unroll 8
        for (int i = 0; i < R; ++i) {
            const int r = sr - i;
            if (r >= 0 && r < ph) {
                p[i] = a.pattern.row(r);
            } else {
                p[i] = nullptr;
                allRows = false;
            }
        }
        if (allRows)
            accumulateRow<R, K, true>(acc, s, p, a.pattern.width());
        else
            accumulateRow<R, K, false>(acc, s, p, a.pattern.width());
    }

#pragma GCC unroll 8
    for (int i = 0; i < R; ++i) {
        float* o = a.out.row(y0 + i) + x0;
#pragma GCC unroll 4
        for (int k = 0; k < K; ++k)
            _mm256_storeu_ps(o + 8 * k, acc[i][k]);
    }
}

// One band of R output rows, at least 8 columns wide. A ragged right edge is
// covered by one more block ending at the last column; it recomputes a few
// cells, which is cheaper than a masked or scalar tail.
template <int R> TAVRIX_AVX2 void band(const Args& a, int y0) {
    const int cw = a.out.width();
    int x = 0;
    for (; cw - x >= 24; x += 24)
        block<R, 3>(a, x, y0);
    if (cw - x >= 16) {
        block<R, 2>(a, x, y0);
        x += 16;
    }
    if (cw - x >= 8) {
        block<R, 1>(a, x, y0);
        x += 8;
    }
    if (x < cw)
        block<R, 1>(a, cw - 8, y0);
}

} // namespace

bool avx2Supported() {
    static const bool supported = [] {
        __builtin_cpu_init();
        return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
    }();
    return supported;
}

TAVRIX_AVX2 void correlateAvx2(const Args& a) {
    // Narrower surfaces than one vector are rare and tiny.
    if (a.out.width() < 8) {
        correlateScalar(a);
        return;
    }
    const int ch = a.out.height();
    int y = 0;
    for (; ch - y >= 4; y += 4)
        band<4>(a, y);
    switch (ch - y) {
    case 3:
        band<3>(a, y);
        break;
    case 2:
        band<2>(a, y);
        break;
    case 1:
        band<1>(a, y);
        break;
    }
}

} // namespace CorrelatorKernels

#else

namespace CorrelatorKernels {

bool avx2Supported() {
    return false;
}

void correlateAvx2(const Args& a) {
    correlateScalar(a);
}

} // namespace CorrelatorKernels

#endif
