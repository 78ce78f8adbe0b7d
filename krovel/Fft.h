#pragma once

#include <cstdint>

/// In-place forward transform of n = 2^log2n complex points held in separate
/// real and imaginary arrays: X[k] = sum over t of x[t] e^(-2 pi i k t / n),
/// unscaled. n < 2 leaves the data as it is. The inverse is conjugate,
/// transform, conjugate and divide by n, which the caller does.
void fft(float* re, float* im, int log2n);

/// A complex plane pair for two-dimensional transforms: row-major float
/// planes of width x height elements, the row length doubling as the row
/// stride. The planes are borrowed; whoever fills an Fft2 owns them and
/// keeps them alive while it is used.
///
/// Cross-correlation of two real planes x and y (peak at the shift d where
/// y(t) = x(t - d)): xform both, conjugate the first, crosscor into out,
/// xform out in place; out.re / size is then the circular correlation.
struct Fft2 {
    float* re = nullptr;
    float* im = nullptr;
    int32_t log2Width = 0;
    int32_t log2Height = 0;
    int32_t width = 0;
    int32_t height = 0;
    int32_t size = 0;

    /// An empty pair (no planes, size 0).
    Fft2() = default;
    /// Borrows re and im, each of 2^log2Width x 2^log2Height floats. Throws
    /// NullPointerException "Fft2: null plane" for a missing plane and
    /// IllegalArgumentException "Fft2: bad size" for a negative logarithm or
    /// more than 2^30 elements.
    Fft2(float* re, float* im, int log2Width, int log2Height);

    /// Forward 2-D transform of src into dst, rows then columns; in place when
    /// the two share planes. The shapes are taken to match (see
    /// assertCompatible).
    static void xform(Fft2* src, Fft2* dst);
    /// out = conj(a * b) element by element over a's height and width; out
    /// may be a or b.
    static void crosscor(Fft2* a, Fft2* b, Fft2* out);
    /// Negates every element of the imaginary plane.
    static void conjugate(Fft2* f);
    /// Zeroes both planes.
    static void clear(Fft2* f);
    /// Zeroes `plane`, taken to hold f->size floats.
    static void clear(Fft2* f, float* plane);
    /// A hook for a shape check; it checks nothing.
    static void assertCompatible(Fft2* a, Fft2* b);
    /// The smallest k with 2^k >= n; 0 for n < 2.
    static int po2(int n);
    /// b to the power e by repeated multiplication (wrapping on overflow);
    /// 1 for e < 1.
    static int ipower(int b, int e);

    /// Floats in the scratch buffer: one 256 x 256 plane.
    static constexpr int bufSize = 256 * 256;
    /// One process-wide scratch buffer of bufSize floats, shared by every
    /// caller; nothing in the library uses it.
    static float* getBuf();
};
