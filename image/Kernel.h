#pragma once

#include <cstdint>

namespace Orvane {

/// A tabulated Gaussian, `filt_gaussian` sampled 2^bits times per unit over
/// [-radius, radius). Entry i holds the weight at x = i / 2^bits - radius,
/// scaled by `amplitude`; integer tables truncate toward zero. The table is
/// owned and immutable; shared instances come from getIntKern() and
/// getFloatKern().
template <class T> class kernel {
public:
    /// Builds the table. radius >= 1 and 0 <= bits <= 16, with at most 2^24
    /// entries, else IllegalArgumentException "kernel: radius or bits out of
    /// range".
    kernel(int radius, int bits, T amplitude);
    ~kernel() { delete[] table; }
    kernel(const kernel&) = delete;
    kernel& operator=(const kernel&) = delete;

    /// `count` entries.
    const T* const table;
    /// -radius << bits: the position of entry 0 in fixed point with `bits`
    /// fraction bits.
    const int32_t first;
    /// (2 radius) << bits.
    const int32_t count;
    const int32_t radius;
    /// log2 of the sub-steps per unit.
    const int32_t bits;
    const T amplitude;

private:
    static const T* build(int radius, int bits, T amplitude);
};

extern template class kernel<int>;
extern template class kernel<float>;

/// kernel<int>(3, 10, 256), built on first use and kept until exit.
const kernel<int>& getIntKern();
/// kernel<float>(3, 10, 256.0), built on first use and kept until exit.
const kernel<float>& getFloatKern();
/// 1.0 in 16.16 fixed point: 65536.
const int& getFixOne();

} // namespace Orvane
