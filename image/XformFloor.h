#pragma once

#include <cmath>
#include <cstdint>

namespace Orvane {

/// floor(s) as a float and as an index, for the warps' sample positions.
/// Inside ±1e9 by truncation, without the library call: below 2^23 the
/// truncated value is exact in float, above it s is whole already. Farther
/// out, and for NaN, the index saturates at ∓1e9 so that the caller's clamp
/// treats it as any other outside position.
inline float saturatingFloor(float s, int64_t& index) {
    if (s > -1e9f && s < 1e9f) {
        index = static_cast<int64_t>(s);
        float fl = static_cast<float>(index);
        if (fl > s) {
            fl -= 1.0f;
            --index;
        }
        return fl;
    }
    const float fl = std::floor(s);
    if (!(fl > -1e9f))
        index = -1000000000;
    else if (fl > 1e9f)
        index = 1000000000;
    else
        index = static_cast<int64_t>(fl);
    return fl;
}

} // namespace Orvane
