#pragma once

#include "image/ImageRows.h"

/// The inner loops of NaiveCorrelator, on float planes. Planes are read
/// through their rows, so views of larger images pass through unchanged.
namespace CorrelatorKernels {

/// One correlation: `out` receives its width (cw) by its height (ch) of
/// cells, cell (x, y) being the sum over r < ph, c < pw (the pattern's
/// height and width) of pattern(c, r) * search(x + c, y + r). The search
/// plane must hold at least (cw + pw - 1) x (ch + ph - 1) values.
struct Args {
    Orvane::ImageRows<const float> pattern;
    Orvane::ImageRows<const float> search;
    Orvane::ImageRows<float> out;
};

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
