#pragma once

#include "image/Image.h"
#include "support/ExpectThrows.h"
#include "support/PixelProbe.h"

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <vector>

// Images, a band-limited texture and slow double-precision references for
// the tracker's tests.
namespace trackimages {

using Orvane::Format;
using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::Image;
using testsupport::DatatypeOf;

/// The samples of pixel (x, y), in global coordinates.
template <class S> S* at(const Image& img, int x, int y) {
    S* p;
    return img.getBuffer(p, GenPoint<int>(x, y));
}

inline Format luminance(int datatype = Orvane::FLOAT) {
    return Format("l", datatype, false);
}

/// A one-channel image over `b` whose pixel (x, y) is f(x, y).
template <class T = float, class F> Image makeImage(const GenRect<int>& b, F f) {
    Image img(b, luminance(DatatypeOf<T>::value));
    for (int y = b.y; y < b.y + b.h; ++y)
        for (int x = b.x; x < b.x + b.w; ++x)
            *at<T>(img, x, y) = static_cast<T>(f(x, y));
    return img;
}

/// A view with bounds `r` on a wider parent, so rows are padded; samples
/// random over the whole integer range, or 0..1 for floating types.
template <class S = float>
Image randomImage(const GenRect<int>& r, std::mt19937& rng, const char* channels = "l") {
    const Format f(channels, DatatypeOf<S>::value, false);
    Image parent(GenRect<int>(r.x - 2, r.y - 1, r.w + 5, r.h + 3), f);
    const double top = std::is_integral_v<S> ? double(std::numeric_limits<S>::max()) : 1.0;
    std::uniform_real_distribution<double> unit(0, 1);
    for (int y = r.y - 1; y < r.y + r.h + 2; ++y)
        for (int i = 0; i < (r.w + 5) * f.getNumChannels(); ++i)
            at<S>(parent, r.x - 2, y)[i] =
                S(std::is_integral_v<S> ? std::round(unit(rng) * top) : unit(rng));
    return parent.clip(r);
}

/// The pixels of a float or double image in double, row-major from its origin.
struct Plane {
    explicit Plane(const Image& img) : w(img.getBounds().w), h(img.getBounds().h) {
        const GenRect<int>& b = img.getBounds();
        const bool wide = img.getFormat().getDatatype() == Orvane::DOUBLE;
        for (int y = b.y; y < b.y + b.h; ++y)
            for (int x = b.x; x < b.x + b.w; ++x)
                v.push_back(wide ? *at<double>(img, x, y) : *at<float>(img, x, y));
    }
    double operator()(int x, int y) const { return v[std::size_t(y) * w + x]; }
    int w, h;
    std::vector<double> v;
};

/// Pearson correlation of the pattern with the search window whose top-left
/// corner is (x, y) from the search origin.
inline double referenceNcc(const Plane& p, const Plane& s, int x, int y) {
    double mp = 0, ms = 0, cov = 0, vp = 0, vs = 0;
    for (int pass = 0; pass < 2; ++pass)
        for (int r = 0; r < p.h; ++r)
            for (int c = 0; c < p.w; ++c) {
                const double a = p(c, r), b = s(x + c, y + r);
                if (pass == 0) {
                    mp += a / p.v.size();
                    ms += b / p.v.size();
                } else {
                    cov += (a - mp) * (b - ms);
                    vp += (a - mp) * (a - mp);
                    vs += (b - ms) * (b - ms);
                }
            }
    return cov / std::sqrt(vp * vs);
}

/// The sub-pixel step the matcher takes for a peak m between a and b.
inline double referenceStep(double a, double b, double m) {
    return 0.5 * (b - a) / (m - std::min(a, b));
}

/// A sum of sinusoids with wavelengths from `shortest` to 16 pixels, exact
/// at any position, so a sub-pixel shift renders without an interpolator.
struct Texture {
    explicit Texture(unsigned seed, int count = 8, double shortest = 7, double amplitude = 0.045)
        : amplitude(amplitude) {
        std::mt19937 rng(seed);
        std::uniform_real_distribution<double> angle(0.0, 2.0 * M_PI), wavelength(shortest, 16.0);
        for (int i = 0; i < count; ++i) {
            const double a = angle(rng), k = 2.0 * M_PI / wavelength(rng);
            waves.push_back({k * std::cos(a), k * std::sin(a), angle(rng)});
        }
    }
    double operator()(double x, double y) const {
        double v = 0.5;
        for (const auto& w : waves)
            v += amplitude * std::sin(w[0] * x + w[1] * y + w[2]);
        return v;
    }
    double amplitude;
    std::vector<std::array<double, 3>> waves;
};

} // namespace trackimages
