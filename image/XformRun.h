#pragma once

#include "image/GenRect.h"
#include "image/Kernel.h"
#include "krovel/vec/mat2.h"
#include "krovel/vec/mat3.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

// The pieces of the separable resampler that the per-run walk (Xform.cpp)
// and the table-driven rescaler (Rescaler.cpp) share, so that both weigh the
// same taps with the same weights. Internal to image/.

namespace Orvane {
namespace XformRun {

// The walk over one run. Destination sample j has its centre at
// dstX + j + 0.5; the inverse of the run's map takes that to the source
// position s, and p = s - srcX - 0.5 is s in source sample indices (centres
// on integers). The Gaussian is centred on p and stretched so that its zero
// crossing at 1.5 falls `stretch` source samples away; it weighs the source
// samples strictly inside that span, renormalised over those that exist. At
// unit stretch a p on a sample centre picks that sample alone, so identity
// maps and whole-pixel shifts copy exactly, and a symmetric set of weights
// reproduces a linear ramp.

// At the widest stretch of 16 the span covers at most 2 * 16 + 3 samples.
constexpr int maxTaps = 40;
// filt_gaussian's zero crossing, in kernel units.
constexpr double kernelZero = 1.5;

struct RunMap {
    // s = (a o + b) / (c o + d): the adjugate of m, which is its inverse up
    // to a factor that the homogeneous division cancels. A singular m gives
    // non-finite positions, which cover no source samples.
    double a, b, c, d;
    double stretch;
    // Affine runs (c == 0) step linearly: p = p0 + j dp, no division.
    bool affine;
    double p0, dp;
    double dstCentre, srcCentre;

    RunMap(const mat2& m, int dstX, int srcX)
        : a(m(1, 1)), b(-m(0, 1)), c(-m(1, 0)), d(m(0, 0)), dstCentre(dstX + 0.5),
          srcCentre(srcX + 0.5) {
        // The magnitude, so a mirrored minification is filtered like any
        // other; a NaN ratio reads as no minification.
        double st = std::fabs(m(1, 1) / m(0, 0));
        stretch = st >= 1.0 ? std::min(st, 16.0) : 1.0;
        affine = c == 0.0;
        p0 = (a * dstCentre + b) / d - srcCentre;
        dp = a / d;
    }

    double position(int j) const {
        if (affine)
            return p0 + j * dp;
        double o = dstCentre + j;
        return (a * o + b) / (c * o + d) - srcCentre;
    }

    // Whether p lies close enough to the run for any sample to count. False
    // for NaN, and it keeps the integer conversions below in range.
    bool reaches(double p, int srcWidth) const {
        return p > -stretch - 1.0 && p < srcWidth + stretch;
    }
    // The candidate taps; the kernel itself decides which of them count.
    int firstTap(double p) const { return std::max(0, int(floorInt(p - stretch))); }
    int lastTap(double p, int srcWidth) const {
        return std::min(srcWidth - 1, int(floorInt(p + stretch)) + 1);
    }

    // floor() without the library call, for values already known in range.
    static int64_t floorInt(double v) {
        int64_t t = int64_t(v);
        return t > v ? t - 1 : t;
    }
};

// The float kernel's taps for destination sample j: the source indices in
// `index`, their weights normalised to sum 1 in `weight` (left as they are
// when they sum to 0); returns how many. The indices that count lie within
// the kernel's span around p, so they are consecutive.
inline int floatTaps(const RunMap& run, int j, int srcWidth, int* index, double* weight) {
    const kernel<float>& kern = getFloatKern();
    const double kscale = kernelZero / run.stretch;
    const double steps = double(1 << kern.bits);
    const int centre = -kern.first;
    const double p = run.position(j);
    int n = 0;
    double sum = 0.0;
    if (run.reaches(p, srcWidth)) {
        const int last = run.lastTap(p, srcWidth);
        for (int i = run.firstTap(p); i <= last; ++i) {
            const double k = std::fabs(i - p) * kscale;
            if (k >= kernelZero)
                continue;
            const double w = kern.table[centre + int(k * steps + 0.5)];
            index[n] = i;
            weight[n++] = w;
            sum += w;
        }
    }
    // Normalised once per sample rather than once per channel; a lone tap
    // then weighs exactly 1 and copies its sample unchanged.
    if (sum != 0.0) {
        for (int t = 0; t < n; ++t)
            weight[t] /= sum;
    }
    return n;
}

// round(lo - param) and round(hi + param) - that, checked to fit an image.
inline bool outputRange(double lo, double hi, double param, int& start, int& size) {
    const double limit = 1073741824.0;
    double a = std::round(lo - param);
    double b = std::round(hi + param);
    if (!(a > -limit && a < limit && b > -limit && b < limit))
        return false;
    start = int(a);
    size = std::max(0, int(b) - start);
    return true;
}

// The output range of a pass along its axis: the mapped corners of `b`,
// widened by `param`. False when it does not fit an image.
inline bool passRange(const GenRect<int>& b, const mat3& m, double param, bool horizontal,
                      int& start, int& size) {
    const vec2 corners[4] = {m * vec2(b.x, b.y), m * vec2(b.x + b.w, b.y), m * vec2(b.x, b.y + b.h),
                             m * vec2(b.x + b.w, b.y + b.h)};
    double lo = horizontal ? corners[0].x : corners[0].y, hi = lo;
    for (const vec2& c : corners) {
        lo = std::min(lo, horizontal ? c.x : c.y);
        hi = std::max(hi, horizontal ? c.x : c.y);
    }
    return outputRange(lo, hi, param, start, size);
}

} // namespace XformRun
} // namespace Orvane
