#pragma once

#include "image/Format.h"
#include "image/GenRect.h"
#include "image/Image.h"

#include <cstddef>
#include <initializer_list>
#include <limits>
#include <random>
#include <type_traits>

namespace sampleimages {

template <class S> constexpr int datatypeOf();
template <> constexpr int datatypeOf<unsigned char>() {
    return Orvane::UB1;
}
template <> constexpr int datatypeOf<unsigned short>() {
    return Orvane::UB2;
}
template <> constexpr int datatypeOf<unsigned int>() {
    return Orvane::UB4;
}
template <> constexpr int datatypeOf<float>() {
    return Orvane::FLOAT;
}
template <> constexpr int datatypeOf<double>() {
    return Orvane::DOUBLE;
}

/// The samples of pixel (x, y), in global coordinates.
template <class S> S* at(const Orvane::Image& img, int x, int y) {
    S* p;
    return img.getBuffer(p, Orvane::GenPoint<int>(x, y));
}

/// Writes `values` into pixel (x, y).
template <class S>
void put(const Orvane::Image& img, int x, int y, std::initializer_list<S> values) {
    S* p = at<S>(img, x, y);
    for (S v : values)
        *p++ = v;
}

/// The sample that stands for 1: the integer maximum, or 1.0.
template <class S> S fullScale() {
    if constexpr (std::is_integral_v<S>)
        return std::numeric_limits<S>::max();
    else
        return S(1);
}

/// A sample anywhere in the type's range; floating types in 0..1.
template <class S> S randomSample(std::mt19937& rng) {
    if constexpr (std::is_integral_v<S>) {
        std::uniform_int_distribution<unsigned long long> d(0, std::numeric_limits<S>::max());
        return S(d(rng));
    } else {
        std::uniform_real_distribution<S> d(0, 1);
        return d(rng);
    }
}

/// A view with bounds `r` on a wider parent, so rows are padded and the
/// origin is not (0, 0); every sample random.
template <class S>
Orvane::Image randomImage(const Orvane::GenRect<int>& r, const char* channels, std::mt19937& rng) {
    const Orvane::Format f(channels, datatypeOf<S>(), false);
    Orvane::Image parent(Orvane::GenRect<int>(r.x - 2, r.y - 1, r.w + 5, r.h + 3), f);
    const int nc = f.getNumChannels();
    for (int y = r.y - 1; y < r.y + r.h + 2; ++y) {
        S* p = at<S>(parent, r.x - 2, y);
        for (int i = 0; i < (r.w + 5) * nc; ++i)
            p[i] = randomSample<S>(rng);
    }
    return parent.clip(r);
}

} // namespace sampleimages
