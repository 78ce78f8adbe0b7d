#pragma once

#include "krovel/KrGenMatrix.h"
#include "krovel/KrGenVector.h"

#include <cstddef>

/// Summation kernels over raw element runs, for float and double. The sums
/// accumulate in the element type; the `_2` forms add by pairwise halving,
/// whose rounding error grows with log n rather than n.
namespace Krovel {

/// Σ p[i] for i < n.
template <class T> T _vector_sum(const T* p, int n);
/// Σ p[i * stride] for i < n.
template <class T> T _vector_sum(const T* p, int n, int stride);
/// Σ p[i]² for i < n: the squared norm, not its root.
template <class T> T _vector_norm2(const T* p, int n);
/// Σ p[i * stride]² for i < n.
template <class T> T _vector_norm2(const T* p, int n, int stride);
/// Σ p[i] by pairwise halving: meant for n a power of two of at least 4,
/// where blocks of 4 and 8 are added directly; any n >= 0 is accepted.
template <class T> T _vector_sum_2(const T* p, int n);
/// Σ p[i]² by pairwise halving, as `_vector_sum_2`.
template <class T> T _vector_norm2_2(const T* p, int n);

/// The mean and standard deviation of p[0..n) for normalising, in double:
/// one pass over the offsets from p[0], in four interleaved running sums.
/// False, with mean and sigma unset, when n < 1 or when the spread is too
/// small against the offsets for one pass to hold it (a flat run, NaN or
/// infinity among the values): the caller then takes the two-pass route,
/// which reports what needs reporting. Otherwise the values agree with the
/// two-pass ones to rounding.
bool _moments(const float* p, int n, double& mean, double& sigma);
/// p[i] = float((p[i] − mean) / sigma) for i < n, as `unbias` writes them.
void _normalise(float* p, int n, double mean, double sigma);
/// out[i · outStride] = (float((p[i] − mean) / sigma) − base[i]) / step: a
/// forward-difference column of normalised values, normalising on the way.
void _normalisedDifference(const float* p, int n, double mean, double sigma, const float* base,
                           float step, float* out, ptrdiff_t outStride);

} // namespace Krovel

/// (Σ aᵢbᵢ)/n − (Σaᵢ/n)(Σbᵢ/n) over the n elements of `a`, accumulated in
/// double; b must be as long ("KrVector length mismatch %d != %d"). NaN for
/// empty vectors.
double covariance(const KrGenVector<float>& a, const KrGenVector<float>& b);

/// True when no element is NaN or infinite.
bool finite(const KrGenMatrix<double>& m);
bool finite(const KrGenVector<double>& v);
bool finite(const KrGenMatrix<float>& m);
bool finite(const KrGenVector<float>& v);
