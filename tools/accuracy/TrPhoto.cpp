#include "tools/accuracy/TrPhoto.h"

#include "base/Exception.h"
#include "image/Format.h"
#include "image/ImageFile.h"
#include "image/ImageRows.h"

#include <algorithm>
#include <cmath>

namespace {

// Catmull-Rom weights for the four taps around a sample at fraction t.
void _cubicWeights(double t, double* w) {
    const double t2 = t * t;
    const double t3 = t2 * t;
    w[0] = 0.5 * (-t3 + 2 * t2 - t);
    w[1] = 0.5 * (3 * t3 - 5 * t2 + 2);
    w[2] = 0.5 * (-3 * t3 + 4 * t2 + t);
    w[3] = 0.5 * (t3 - t2);
}

} // namespace

TrPhoto::TrPhoto(const Orvane::Image& image) {
    const Orvane::Format& f = image.getFormat();
    const bool grey = f.getIndex('r') < 0 && f.getIndex('l') >= 0;
    if (f.getDatatype() != Orvane::UB1 ||
        (!grey && (f.getIndex('r') < 0 || f.getIndex('g') < 0 || f.getIndex('b') < 0)))
        throw IllegalArgumentException("TrPhoto: 8-bit rgb or l images only");
    const int channel[3] = {grey ? f.getIndex('l') : f.getIndex('r'),
                            grey ? f.getIndex('l') : f.getIndex('g'),
                            grey ? f.getIndex('l') : f.getIndex('b')};
    const int step = f.getNumChannels();
    const Orvane::ImageRows<const unsigned char> rows(image);
    width = rows.width();
    height = rows.height();
    samples.resize(std::size_t(width) * height * 3);
    float* out = samples.data();
    for (int y = 0; y < height; ++y) {
        const unsigned char* p = rows.row(y);
        for (int x = 0; x < width; ++x, p += step)
            for (int c = 0; c < 3; ++c)
                *out++ = float(p[channel[c]]) / 255.0f;
    }
}

TrPhoto TrPhoto::read(const dstring& path) {
    return TrPhoto(Orvane::readImage(path));
}

const float* TrPhoto::pixel(int i, int j) const {
    i = std::clamp(i, 0, width - 1);
    j = std::clamp(j, 0, height - 1);
    return &samples[(std::size_t(j) * width + i) * 3];
}

void TrPhoto::sample(double u, double v, float* rgb) const {
    // Sample positions are pixel centres, so the tap grid starts half a
    // pixel in.
    const double x = u - 0.5;
    const double y = v - 0.5;
    const double fx = std::floor(x);
    const double fy = std::floor(y);
    double wx[4];
    double wy[4];
    _cubicWeights(x - fx, wx);
    _cubicWeights(y - fy, wy);
    const int x0 = int(fx) - 1;
    const int y0 = int(fy) - 1;
    double acc[3] = {0, 0, 0};
    const bool inside = x0 >= 0 && y0 >= 0 && x0 + 3 < width && y0 + 3 < height;
    for (int j = 0; j < 4; ++j) {
        double row[3] = {0, 0, 0};
        for (int i = 0; i < 4; ++i) {
            const float* p = inside ? &samples[(std::size_t(y0 + j) * width + x0 + i) * 3]
                                    : pixel(x0 + i, y0 + j);
            row[0] += wx[i] * p[0];
            row[1] += wx[i] * p[1];
            row[2] += wx[i] * p[2];
        }
        for (int c = 0; c < 3; ++c)
            acc[c] += wy[j] * row[c];
    }
    for (int c = 0; c < 3; ++c)
        rgb[c] = float(acc[c]);
}
