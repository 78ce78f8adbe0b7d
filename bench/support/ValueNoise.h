#pragma once

#include <cmath>
#include <random>
#include <vector>

/// A smooth random texture that can be sampled anywhere: two octaves of
/// value noise (random lattice values blended with a cubic step). Unlike a
/// sum of waves it has no repeat within a search area, so a correlation
/// surface has one clear peak. The lattice repeats every 256 cells, far
/// beyond any search area.
class ValueNoise {
public:
    explicit ValueNoise(unsigned seed) : lattice(kSize * kSize) {
        std::mt19937 rng(seed);
        std::uniform_real_distribution<float> u(0.0f, 1.0f);
        for (float& v : lattice)
            v = u(rng);
    }

    /// The texture at (u, v) in pixels; values lie in [0, 1.5].
    double operator()(double u, double v) const {
        return octave(u / 5.0, v / 5.0) + 0.5 * octave(u / 2.5 + 37.1, v / 2.5 + 11.3);
    }

private:
    static constexpr int kSize = 256;

    double octave(double u, double v) const {
        const double fu = std::floor(u), fv = std::floor(v);
        const int iu = int(fu) & (kSize - 1), iv = int(fv) & (kSize - 1);
        const int ju = (iu + 1) & (kSize - 1), jv = (iv + 1) & (kSize - 1);
        const double su = smooth(u - fu), sv = smooth(v - fv);
        const double top = at(iu, iv) + su * (at(ju, iv) - at(iu, iv));
        const double bottom = at(iu, jv) + su * (at(ju, jv) - at(iu, jv));
        return top + sv * (bottom - top);
    }
    double at(int u, int v) const { return lattice[std::size_t(v) * kSize + std::size_t(u)]; }
    static double smooth(double t) { return t * t * (3 - 2 * t); }

    std::vector<float> lattice;
};
