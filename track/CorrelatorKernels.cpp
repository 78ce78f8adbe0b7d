#include "track/CorrelatorKernels.h"

namespace CorrelatorKernels {

void correlateScalar(const Args& a) {
    const int pw = a.pattern.width();
    const int ph = a.pattern.height();
    const int cw = a.out.width();
    for (int y = 0; y < a.out.height(); ++y) {
        float* o = a.out.row(y);
        for (int x = 0; x < cw; ++x)
            o[x] = 0.0f;
        // One pattern value against a whole output row keeps the inner loop
        // contiguous; each cell still sees its products in row-major order.
        for (int r = 0; r < ph; ++r) {
            const float* p = a.pattern.row(r);
            const float* s = a.search.row(y + r);
            for (int c = 0; c < pw; ++c) {
                const float pv = p[c];
                const float* sc = s + c;
                for (int x = 0; x < cw; ++x)
                    o[x] += pv * sc[x];
            }
        }
    }
}

} // namespace CorrelatorKernels
