#pragma once

#include "image/Format.h"
#include "image/GenRect.h"
#include "image/Image.h"

#include <gtest/gtest.h>

#include <random>
#include <type_traits>
#include <vector>

namespace testsupport {

/// A root store that records every change notification it receives and,
/// given a counter, counts its destruction.
class RecordingImpl : public Orvane::ImageImpl {
public:
    RecordingImpl(const Orvane::GenRect<int>& bounds, const Orvane::Format& f,
                  int* destroyed = nullptr)
        : ImageImpl(bounds, f), destroyed(destroyed) {
        alloc();
    }
    ~RecordingImpl() override { destroyed && ++*destroyed; }
    void changed(const Orvane::GenRect<int>& r) override { rects.push_back(r); }
    std::vector<Orvane::GenRect<int>> rects;
    int* destroyed;
};

/// Sample k of pixel (x, y), typed; the datatype must match T.
template <class T> T& sampleAt(const Orvane::Image& img, int x, int y, int k) {
    T* p;
    img.getBuffer(p, Orvane::GenPoint<int>(x, y));
    return p[k];
}

/// Calls f(x, y, k) for every sample of img, row by row.
template <class F> void forEachSample(const Orvane::Image& img, F&& f) {
    const Orvane::GenRect<int>& b = img.getBounds();
    for (int y = b.y; y < b.y + b.h; ++y)
        for (int x = b.x; x < b.x + b.w; ++x)
            for (int k = 0; k < img.getFormat().getNumChannels(); ++k)
                f(x, y, k);
}

/// The bytes of one pixel of a UB1 image, as ints for readable comparisons.
inline std::vector<int> pixelAt(const Orvane::Image& img, const Orvane::GenPoint<int>& p) {
    auto* b = static_cast<unsigned char*>(img.getBuffer(p));
    return std::vector<int>(b, b + img.getFormat().getBytesPerPixel());
}

/// The datatype code of a sample type.
template <class T> struct DatatypeOf;
template <> struct DatatypeOf<unsigned char> : std::integral_constant<int, Orvane::UB1> {};
template <> struct DatatypeOf<unsigned short> : std::integral_constant<int, Orvane::UB2> {};
template <> struct DatatypeOf<unsigned int> : std::integral_constant<int, Orvane::UB4> {};
template <> struct DatatypeOf<float> : std::integral_constant<int, Orvane::FLOAT> {};
template <> struct DatatypeOf<double> : std::integral_constant<int, Orvane::DOUBLE> {};

using SampleTypes = testing::Types<unsigned char, unsigned short, unsigned int, float, double>;

/// An image of format `channels` in T's datatype, samples random over the
/// whole integer range or [0, 1) for floating types.
template <class T>
Orvane::Image randomImage(const Orvane::GenRect<int>& b, const char* channels, unsigned seed,
                          bool premult = true) {
    Orvane::Image img(b, Orvane::Format(channels, DatatypeOf<T>::value, premult));
    std::mt19937 rng(seed);
    forEachSample(img, [&](int x, int y, int k) {
        sampleAt<T>(img, x, y, k) = std::is_integral<T>::value ? T(rng()) : T(rng() * 0x1p-32);
    });
    return img;
}

/// Expects b to hold a's samples, pixel for pixel from each one's corner.
template <class T> void expectSamePixels(const Orvane::Image& a, const Orvane::Image& b) {
    const Orvane::GenRect<int>&ra = a.getBounds(), &rb = b.getBounds();
    ASSERT_EQ(ra.w, rb.w);
    ASSERT_EQ(ra.h, rb.h);
    int differing = 0;
    forEachSample(a, [&](int x, int y, int k) {
        differing += sampleAt<T>(a, x, y, k) != sampleAt<T>(b, x - ra.x + rb.x, y - ra.y + rb.y, k);
    });
    EXPECT_EQ(0, differing);
}

} // namespace testsupport
