#pragma once

namespace Orvane {

/// One-dimensional resampling filters. Each takes the distance x from the
/// sample centre, in samples, and returns the weight there.

/// 1 on [-0.5, 0.5), 0 elsewhere: half-open, so boxes one sample apart tile
/// the line exactly once.
double filt_box(double x);
/// 1 - |x| on [-1, 1), 0 elsewhere.
double filt_triangle(double x);
/// The quadratic B-spline, support [-1.5, 1.5).
double filt_quadratic(double x);
/// The Mitchell-Netravali cubic with B = C = 1/3, support (-2, 2).
double filt_mitchell(double x);
/// exp(-(1.5 x)^2) - exp(-5.0625): zero at |x| = 1.5 and, with no cut-off,
/// slightly negative beyond.
double filt_gaussian(double x);
/// sinc(x) sinc(x / 2) on (-2, 2), 0 elsewhere; exactly 1 at 0.
double filt_lanczos2(double x);
/// sinc(x) sinc(x / 3) on (-3, 3), 0 elsewhere; exactly 1 at 0.
double filt_lanczos3(double x);
/// sin(pi x) / (pi x), unwindowed; exactly 1 at 0.
double filt_sinc(double x);

} // namespace Orvane
