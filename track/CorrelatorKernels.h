#pragma once

#include <cstddef>

/// The inner loops of NaiveCorrelator, on float planes. Strides are in bytes
/// so views of larger images pass through unchanged.
namespace CorrelatorKernels {

/// One correlation: `out` receives cw x ch cells, cell (x, y) being the sum
/// over r < ph, c < pw of pattern(c, r) * search(x + c, y + r). The search
/// plane must hold at least (cw + pw - 1) x (ch + ph - 1) values.
struct Args {
    const float* pattern;
    std::ptrdiff_t patternStride;
    int pw;
    int ph;
    const float* search;
    std::ptrdiff_t searchStride;
    float* out;
    std::ptrdiff_t outStride;
    int cw;
    int ch;
};

/// Row y of a plane whose rows are `stride` bytes apart.
inline const float* rowOf(const float* base, std::ptrdiff_t stride, int y) {
    return reinterpret_cast<const float*>(reinterpret_cast<const char*>(base) + y * stride);
}
inline float* rowOf(float* base, std::ptrdiff_t stride, int y) {
    return reinterpret_cast<float*>(reinterpret_cast<char*>(base) + y * stride);
}

/// Portable loop; sums each cell in row-major pattern order, so its results
/// equal a plain float accumulation bit for bit.
void correlateScalar(const Args& a);

/// True when the processor runs AVX2 and FMA (checked once).
bool avx2Supported();

/// Register-blocked AVX2/FMA kernel. Same summation order per cell as the
/// scalar loop, but fused multiply-adds round differently. Only call it when
/// avx2Supported().
void correlateAvx2(const Args& a);

} // namespace CorrelatorKernels
