#pragma once

#include "image/Format.h"
#include "image/GenRect.h"
#include "image/Image.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

// Images and slow double-precision references for the matcher tests.
namespace trackimages {

using Orvane::Format;
using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::Image;

inline Format luminance(int datatype = Orvane::FLOAT) {
    return Format("l", datatype, false);
}

/// A one-channel image over `b` whose pixel (x, y), in absolute
/// coordinates, is f(x, y) converted to the datatype.
template <class T, class F> Image makeImage(const GenRect<int>& b, int datatype, F f) {
    Image img(b, luminance(datatype));
    for (int y = 0; y < b.h; ++y) {
        T* row = static_cast<T*>(img.getBuffer(GenPoint<int>(b.x, b.y + y)));
        for (int x = 0; x < b.w; ++x)
            row[x] = static_cast<T>(f(b.x + x, b.y + y));
    }
    return img;
}

template <class F> Image makeFloat(const GenRect<int>& b, F f) {
    return makeImage<float>(b, Orvane::FLOAT, f);
}

inline Image randomImage(const GenRect<int>& b, std::mt19937& rng, float lo = 0.0f,
                         float hi = 1.0f) {
    std::uniform_real_distribution<float> u(lo, hi);
    return makeFloat(b, [&](int, int) { return u(rng); });
}

/// The pixels of a float image in double, row-major from its origin.
struct Plane {
    explicit Plane(const Image& img) : w(img.getBounds().w), h(img.getBounds().h) {
        const GenRect<int>& b = img.getBounds();
        const bool wide = img.getFormat().getDatatype() == Orvane::DOUBLE;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const GenPoint<int> at(b.x + x, b.y + y);
                if (wide) {
                    double* d;
                    v.push_back(*img.getBuffer(d, at));
                } else {
                    float* f;
                    v.push_back(*img.getBuffer(f, at));
                }
            }
    }
    double operator()(int x, int y) const { return v[std::size_t(y) * w + x]; }

    int w;
    int h;
    std::vector<double> v;
};

/// Pearson correlation of the pattern with the search window whose top-left
/// corner is (x, y) from the search origin.
inline double referenceNcc(const Plane& p, const Plane& s, int x, int y) {
    const double n = double(p.w) * p.h;
    double mp = 0.0;
    double ms = 0.0;
    for (int r = 0; r < p.h; ++r)
        for (int c = 0; c < p.w; ++c) {
            mp += p(c, r);
            ms += s(x + c, y + r);
        }
    mp /= n;
    ms /= n;
    double cov = 0.0;
    double vp = 0.0;
    double vs = 0.0;
    for (int r = 0; r < p.h; ++r)
        for (int c = 0; c < p.w; ++c) {
            const double a = p(c, r) - mp;
            const double b = s(x + c, y + r) - ms;
            cov += a * b;
            vp += a * a;
            vs += b * b;
        }
    return cov / std::sqrt(vp * vs);
}

/// The sub-pixel step the matcher takes for a peak m between a and b.
inline double referenceStep(double a, double b, double m) {
    return 0.5 * (b - a) / (m - std::min(a, b));
}

} // namespace trackimages
