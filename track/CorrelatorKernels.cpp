#include "track/CorrelatorKernels.h"

namespace CorrelatorKernels {

void correlateScalar(const Args& a) {
    for (int y = 0; y < a.ch; ++y) {
        float* o = rowOf(a.out, a.outStride, y);
        for (int x = 0; x < a.cw; ++x)
            o[x] = 0.0f;
        // One pattern value against a whole output row keeps the inner loop
        // contiguous; each cell still sees its products in row-major order.
        for (int r = 0; r < a.ph; ++r) {
            const float* p = rowOf(a.pattern, a.patternStride, r);
            const float* s = rowOf(a.search, a.searchStride, y + r);
            for (int c = 0; c < a.pw; ++c) {
                const float pv = p[c];
                const float* sc = s + c;
                for (int x = 0; x < a.cw; ++x)
                    o[x] += pv * sc[x];
            }
        }
    }
}

} // namespace CorrelatorKernels
