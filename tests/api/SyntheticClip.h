#pragma once

// Frames as a host hands them over: alpha, red, green, blue bytes, rows
// without padding, with the origin of frame coordinates at the centre
// (column x + W/2, row y + H - H/2). Standard library only, so that the
// host-like test can use it without any of the library's headers.

#include <cmath>
#include <random>
#include <vector>

namespace clip {

/// A band-limited texture with values in [0.02, 0.98]: a sum of sinusoids
/// evaluated exactly at any position, so a sub-pixel shift is rendered
/// without an interpolator.
struct Texture {
    explicit Texture(unsigned seed) {
        std::mt19937 rng(seed);
        std::uniform_real_distribution<double> angle(0.0, 2.0 * M_PI), wavelength(7.0, 18.0);
        for (double* w = waves; w < waves + 24; w += 3) {
            const double a = angle(rng), k = 2.0 * M_PI / wavelength(rng);
            w[0] = k * std::cos(a), w[1] = k * std::sin(a), w[2] = angle(rng);
        }
    }
    double operator()(double x, double y) const {
        double v = 0.5;
        for (const double* w = waves; w < waves + 24; w += 3)
            v += 0.06 * std::sin(w[0] * x + w[1] * y + w[2]);
        return v;
    }
    double waves[24]; // eight of kx, ky, phase
};

/// The frame whose content is `texture` moved by (dx, dy) in frame
/// coordinates.
inline std::vector<unsigned char> render(const Texture& texture, int width, int height, double dx,
                                         double dy) {
    std::vector<unsigned char> argb;
    // The frame's centre in whole pixels.
    const int centreX = width / 2, centreY = height - height / 2;
    for (int row = 0; row < height; ++row)
        for (int column = 0; column < width; ++column) {
            const double v = texture(column - centreX - dx, row - centreY - dy);
            for (double c : {1.0, v, 0.8 * v + 0.1, 1.0 - v})
                argb.push_back(static_cast<unsigned char>(std::lround(255.0 * c)));
        }
    return argb;
}

/// The clip's known motion: sub-pixel steps of about half a pixel a frame,
/// not a multiple of any pixel fraction.
struct Motion {
    double x(int frame) const { return 0.43 * frame + 0.3 * std::sin(0.9 * frame); }
    double y(int frame) const { return -0.31 * frame + 0.2 * std::cos(0.7 * frame) - 0.2; }
};

} // namespace clip
