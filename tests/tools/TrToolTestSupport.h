#pragma once

// Shared by the tavrix-track tests: a plane under known homographies, 3x3
// and row-major.

#include <algorithm>
#include <cmath>

// The plane's motion at step k: a turn, growth, move and tilt about (cx, cy)
// that all grow with k; step 0 is the identity.
inline void planeMotion(double k, double cx, double cy, double h[9]) {
    const double a = 0.01 * k, s = 1 + 0.006 * k, c = s * std::cos(a), sn = s * std::sin(a),
                 p = 1.5e-5 * k, q = -1e-5 * k;
    const double m[9] = {c,  -sn, 1.2 * k + cx - c * cx + sn * cy,
                         sn, c,   -0.8 * k + cy - sn * cx - c * cy,
                         p,  q,   1 - p * cx - q * cy};
    std::copy(m, m + 9, h);
}

inline void applyH(const double h[9], double x, double y, double& u, double& v) {
    const double w = h[6] * x + h[7] * y + h[8];
    u = (h[0] * x + h[1] * y + h[2]) / w;
    v = (h[3] * x + h[4] * y + h[5]) / w;
}

// The inverse by the adjugate.
inline void invertH(const double a[9], double r[9]) {
    const double m[9] = {
        a[4] * a[8] - a[5] * a[7], a[2] * a[7] - a[1] * a[8], a[1] * a[5] - a[2] * a[4],
        a[5] * a[6] - a[3] * a[8], a[0] * a[8] - a[2] * a[6], a[2] * a[3] - a[0] * a[5],
        a[3] * a[7] - a[4] * a[6], a[1] * a[6] - a[0] * a[7], a[0] * a[4] - a[1] * a[3]};
    const double det = a[0] * m[0] + a[1] * m[3] + a[2] * m[6];
    for (int i = 0; i < 9; ++i)
        r[i] = m[i] / det;
}

// The largest distance, over a grid of plane points, between where `fitted`
// carries their place in the base frame and where the plane puts them now.
inline double worstGridError(const double fitted[9], const double base[9], const double now[9],
                             double x0, double x1, double y0, double y1, double step) {
    double worst = 0;
    for (double x = x0; x <= x1; x += step)
        for (double y = y0; y <= y1; y += step) {
            double bu, bv, tu, tv, gu, gv;
            applyH(base, x, y, bu, bv);
            applyH(now, x, y, tu, tv);
            applyH(fitted, bu, bv, gu, gv);
            worst = std::max(worst, std::hypot(gu - tu, gv - tv));
        }
    return worst;
}
