#pragma once

#include "krovel/KrGenMatrix.h"
#include "krovel/KrGenVector.h"

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
