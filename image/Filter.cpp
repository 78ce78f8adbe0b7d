#include "image/Filter.h"

#include <cmath>

namespace Orvane {

namespace {

constexpr double pi = 3.141592653589793;
// exp(-(1.5 * 1.5)^2): subtracting it puts the Gaussian's zero at 1.5.
constexpr double gaussianFloor = 0.006329715427485747;

// sin(pi t) sin(pi t / a) / ((pi t)^2 / a), the Lanczos window of order a.
double lanczos(double x, double a) {
    if (x == 0.0)
        return 1.0;
    double t = std::fabs(x);
    if (t >= a)
        return 0.0;
    double pt = pi * t;
    return std::sin(pt) * std::sin(pt / a) / (pt * pt / a);
}

} // namespace

double filt_box(double x) {
    return x >= -0.5 && x < 0.5 ? 1.0 : 0.0;
}

double filt_triangle(double x) {
    if (x < -1.0)
        return 0.0;
    if (x < 0.0)
        return x + 1.0;
    if (x < 1.0)
        return 1.0 - x;
    return 0.0;
}

double filt_quadratic(double x) {
    if (x < -1.5)
        return 0.0;
    if (x < -0.5)
        return 0.5 * (x + 1.5) * (x + 1.5);
    if (x < 0.5)
        return 0.75 - x * x;
    if (x < 1.5)
        return 0.5 * (x - 1.5) * (x - 1.5);
    return 0.0;
}

double filt_mitchell(double x) {
    static const double p0 = 8.0 / 9.0;
    static const double p2 = -2.0;
    static const double p3 = 7.0 / 6.0;
    static const double q0 = 16.0 / 9.0;
    static const double q1 = -10.0 / 3.0;
    static const double q2 = 2.0;
    static const double q3 = -7.0 / 18.0;
    double t = std::fabs(x);
    double t2 = t * t;
    if (t < 1.0)
        return p0 + p2 * t2 + p3 * t2 * t;
    if (t < 2.0)
        return q0 + q1 * t + q2 * t2 + q3 * t2 * t;
    return 0.0;
}

double filt_gaussian(double x) {
    double u = 1.5 * x;
    return std::exp(-u * u) - gaussianFloor;
}

double filt_lanczos2(double x) {
    return lanczos(x, 2.0);
}

double filt_lanczos3(double x) {
    return lanczos(x, 3.0);
}

double filt_sinc(double x) {
    if (x == 0.0)
        return 1.0;
    double px = pi * x;
    return std::sin(px) / px;
}

} // namespace Orvane
