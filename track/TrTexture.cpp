#include "track/TrTexture.h"

#include "image/Convert.h"
#include "image/DatatypeSwitch.h"
#include "image/ImageRows.h"

#include <cmath>

using Orvane::Image;
using Orvane::ImageRows;

namespace {

// The sums of gx², gx·gy and gy² over the inner pixels, and of the noise
// mask's absolute response there.
struct Tensor {
    double xx = 0;
    double xy = 0;
    double yy = 0;
    double mask = 0;
};

namespace texture {

template <class T> double sample(const T* row, int x, int channels) {
    return Orvane::_convertSample<T, double>(row[x * channels]);
}

// [1 -2 1; -2 4 -2; 1 -2 1] at column x: the product of two second
// differences, zero on any plane and small on smooth texture.
template <class T>
double maskAt(const T* above, const T* here, const T* below, int x, int channels) {
    const auto second = [&](const T* row) {
        return sample(row, x - 1, channels) - 2 * sample(row, x, channels) +
               sample(row, x + 1, channels);
    };
    return second(above) - 2 * second(here) + second(below);
}

template <class T> Tensor _sum(const Image& img) {
    const ImageRows<const T> rows(img);
    const int channels = img.getFormat().getNumChannels();
    Tensor t;
    for (int y = 1; y + 1 < rows.height(); ++y) {
        const T* above = rows.row(y - 1);
        const T* here = rows.row(y);
        const T* below = rows.row(y + 1);
        for (int x = 1; x + 1 < rows.width(); ++x) {
            const double gx = 0.5 * (sample(here, x + 1, channels) - sample(here, x - 1, channels));
            const double gy = 0.5 * (sample(below, x, channels) - sample(above, x, channels));
            t.xx += gx * gx;
            t.xy += gx * gy;
            t.yy += gy * gy;
            t.mask += std::abs(maskAt(above, here, below, x, channels));
        }
    }
    return t;
}

} // namespace texture

// The sums divided by the inner pixels' count; all zero under 3x3.
Tensor meanTensor(const Image& pattern) {
    const Tensor t = Orvane::switchDatatype(
        pattern.getFormat().getDatatype(), "TrTexture: datatype unknown",
        [&](auto s) { return texture::_sum<typename decltype(s)::type>(pattern); });
    const int w = pattern.getBounds().w, h = pattern.getBounds().h;
    if (w < 3 || h < 3)
        return Tensor();
    const double n = double(w - 2) * double(h - 2);
    Tensor m;
    m.xx = t.xx / n;
    m.xy = t.xy / n;
    m.yy = t.yy / n;
    m.mask = t.mask / n;
    return m;
}

double smallerEigenvalue(const Tensor& m) {
    const double a = m.xx, b = m.xy, c = m.yy;
    // The smaller root of the 2x2 symmetric eigenproblem, in the form that
    // keeps its precision when the two roots are far apart.
    const double mean = 0.5 * (a + c);
    const double spread = std::hypot(0.5 * (a - c), b);
    const double large = mean + spread;
    if (std::isnan(large))
        return large;
    return large > 0 ? (a * c - b * b) / large : 0;
}

// The mask's response to white noise of deviation s has a mean absolute
// value of 6 s sqrt(2 / pi).
double noiseVariance(const Tensor& m) {
    const double s = std::sqrt(M_PI / 2) * m.mask / 6;
    return s * s;
}

} // namespace

double TrTexture::measure(const Image& pattern) {
    return smallerEigenvalue(meanTensor(pattern));
}

double TrTexture::noise(const Image& pattern) {
    return noiseVariance(meanTensor(pattern));
}

bool TrTexture::isEnough(const Image& pattern) {
    const Tensor m = meanTensor(pattern);
    const double lambda = smallerEigenvalue(m);
    return lambda >= kMinimum || (lambda >= kFloor && lambda >= kNoiseRatio * noiseVariance(m));
}
