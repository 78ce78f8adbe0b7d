#pragma once

#include "image/Format.h"
#include "image/GenRect.h"
#include "image/Image.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <vector>

namespace testsupport {

/// A root store that records every change notification it receives.
class RecordingImpl : public Orvane::ImageImpl {
public:
    RecordingImpl(const Orvane::GenRect<int>& bounds, const Orvane::Format& f)
        : ImageImpl(bounds, f) {
        alloc();
    }
    void changed(const Orvane::GenRect<int>& r) override { rects.push_back(r); }
    std::vector<Orvane::GenRect<int>> rects;
};

/// Sample k of pixel (x, y), typed; the datatype must match T.
template <class T> T& sampleAt(const Orvane::Image& img, int x, int y, int k) {
    T* p;
    img.getBuffer(p, Orvane::GenPoint<int>(x, y));
    return p[k];
}

/// The datatype code of a sample type.
template <class T> struct DatatypeOf;
template <> struct DatatypeOf<unsigned char> : std::integral_constant<int, Orvane::UB1> {};
template <> struct DatatypeOf<unsigned short> : std::integral_constant<int, Orvane::UB2> {};
template <> struct DatatypeOf<unsigned int> : std::integral_constant<int, Orvane::UB4> {};
template <> struct DatatypeOf<float> : std::integral_constant<int, Orvane::FLOAT> {};
template <> struct DatatypeOf<double> : std::integral_constant<int, Orvane::DOUBLE> {};

using SampleTypes = testing::Types<unsigned char, unsigned short, unsigned int, float, double>;

} // namespace testsupport
