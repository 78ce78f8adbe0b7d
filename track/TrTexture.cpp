#include "track/TrTexture.h"

#include "image/Convert.h"
#include "image/DatatypeSwitch.h"
#include "image/ImageRows.h"

#include <cmath>

using Orvane::Image;
using Orvane::ImageRows;

namespace {

// The sums of gx², gx·gy and gy² over the inner pixels.
struct Tensor {
    double xx = 0;
    double xy = 0;
    double yy = 0;
};

namespace texture {

template <class T> double sample(const T* row, int x, int channels) {
    return Orvane::_convertSample<T, double>(row[x * channels]);
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
        }
    }
    return t;
}

} // namespace texture

} // namespace

double TrTexture::measure(const Image& pattern) {
    const Tensor t = Orvane::switchDatatype(
        pattern.getFormat().getDatatype(), "TrTexture: datatype unknown",
        [&](auto s) { return texture::_sum<typename decltype(s)::type>(pattern); });
    const int w = pattern.getBounds().w, h = pattern.getBounds().h;
    if (w < 3 || h < 3)
        return 0;
    const double n = double(w - 2) * double(h - 2);
    const double a = t.xx / n, b = t.xy / n, c = t.yy / n;
    // The smaller root of the 2x2 symmetric eigenproblem, in the form that
    // keeps its precision when the two roots are far apart.
    const double mean = 0.5 * (a + c);
    const double spread = std::hypot(0.5 * (a - c), b);
    const double large = mean + spread;
    if (std::isnan(large))
        return large;
    return large > 0 ? (a * c - b * b) / large : 0;
}
