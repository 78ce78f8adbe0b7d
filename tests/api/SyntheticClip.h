#pragma once

// Frames as a host hands them over: alpha, red, green, blue bytes, rows
// without padding, with the origin of frame coordinates at the centre
// (column x + W/2, row y + H - H/2). Standard library only, so that the
// host-like test can use it without any of the library's headers.

#include <cmath>
#include <random>
#include <vector>

namespace clip {

/// A band-limited texture: a sum of sinusoids evaluated exactly at any
/// position, so a sub-pixel shift is rendered without an interpolator.
class Texture {
public:
    explicit Texture(unsigned seed) {
        std::mt19937 rng(seed);
        std::uniform_real_distribution<double> angle(0.0, 2.0 * M_PI);
        std::uniform_real_distribution<double> wavelength(7.0, 18.0);
        for (int i = 0; i < 8; ++i) {
            const double a = angle(rng);
            const double k = 2.0 * M_PI / wavelength(rng);
            waves.push_back({k * std::cos(a), k * std::sin(a), angle(rng)});
        }
    }

    /// A value in [0.02, 0.98].
    double operator()(double x, double y) const {
        double v = 0.5;
        for (const Wave& w : waves)
            v += 0.06 * std::sin(w.kx * x + w.ky * y + w.phase);
        return v;
    }

private:
    struct Wave {
        double kx, ky, phase;
    };
    std::vector<Wave> waves;
};

/// The frame of `width` by `height` whose content is `texture` moved by
/// (dx, dy) in frame coordinates.
inline std::vector<unsigned char> render(const Texture& texture, int width, int height, double dx,
                                         double dy) {
    std::vector<unsigned char> argb(std::size_t(width) * height * 4);
    unsigned char* p = argb.data();
    for (int row = 0; row < height; ++row) {
        const double y = row - (height - height / 2);
        for (int column = 0; column < width; ++column, p += 4) {
            const double x = column - width / 2;
            const double v = texture(x - dx, y - dy);
            p[0] = 255;
            p[1] = static_cast<unsigned char>(std::lround(255.0 * v));
            p[2] = static_cast<unsigned char>(std::lround(255.0 * (0.8 * v + 0.1)));
            p[3] = static_cast<unsigned char>(std::lround(255.0 * (1.0 - v)));
        }
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
