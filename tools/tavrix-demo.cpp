// Tracks one feature through a synthetic clip whose true motion is known and
// prints the tracked path against it: the matcher finds the pattern to the
// pixel, the affine refinement brings it to sub-pixel accuracy.

#include "image/Copy.h"
#include "image/Format.h"
#include "image/GenRect.h"
#include "image/Image.h"
#include "krovel/AffineProblem.h"
#include "track/Matcher.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::Image;

namespace {

// A band-limited texture: a sum of sinusoids, evaluated exactly at any
// position, so a sub-pixel shift is rendered without an interpolator.
struct Texture {
    struct Wave {
        double kx, ky, phase, amplitude;
    };
    std::vector<Wave> waves;

    explicit Texture(unsigned seed) {
        std::mt19937 rng(seed);
        std::uniform_real_distribution<double> angle(0.0, 2.0 * M_PI);
        std::uniform_real_distribution<double> wavelength(8.0, 20.0);
        for (int i = 0; i < 8; ++i) {
            double a = angle(rng);
            double k = 2.0 * M_PI / wavelength(rng);
            waves.push_back({k * std::cos(a), k * std::sin(a), angle(rng), 0.06});
        }
    }

    float operator()(double x, double y) const {
        double v = 0.5;
        for (const Wave& w : waves)
            v += w.amplitude * std::sin(w.kx * x + w.ky * y + w.phase);
        return static_cast<float>(v);
    }
};

// The content of frame t moves by this displacement.
GenPoint<double> motion(int t) {
    return {2.3 * t + 4.0 * std::sin(t / 6.0), -1.1 * t + 3.0 * std::sin(t / 4.0)};
}

Image render(const Texture& tex, GenPoint<double> d, int width, int height) {
    Image img(GenRect<int>(0, 0, width, height), Orvane::Format::mono(Orvane::FLOAT));
    for (int y = 0; y < height; ++y) {
        float* row;
        img.getBuffer(row, GenPoint<int>(0, y));
        for (int x = 0; x < width; ++x)
            row[x] = tex(x + 0.5 - d.x, y + 0.5 - d.y);
    }
    return img;
}

} // namespace

int main(int argc, char** argv) {
    const int frames = argc > 1 ? std::atoi(argv[1]) : 30;
    const int width = 320, height = 240, half = 10, margin = 30;
    const Texture texture(7);

    Image first = render(texture, motion(0), width, height);
    const GenRect<int> patternRect(width / 2 - half, height / 2 - half, 2 * half + 1, 2 * half + 1);
    const Image pattern = Orvane::copy(first.clip(patternRect));
    const GenPoint<float> origin(patternRect.x + half + 0.5f, patternRect.y + half + 0.5f);

    Matcher matcher;
    matcher.setPattern(pattern);

    GenPoint<float> position = origin, previous = origin;
    double worst = 0.0, sumSq = 0.0, seconds = 0.0;
    std::printf("frame   true x   true y  tracked x tracked y   error quality\n");
    for (int t = 1; t <= frames; ++t) {
        Image frame = render(texture, motion(t), width, height);
        auto start = std::chrono::steady_clock::now();

        GenPoint<float> predicted(2 * position.x - previous.x, 2 * position.y - previous.y);
        const int cx = static_cast<int>(std::floor(predicted.x));
        const int cy = static_cast<int>(std::floor(predicted.y));
        Image search = frame.clip(GenRect<int>(cx - half - margin, cy - half - margin,
                                               2 * (half + margin) + 1, 2 * (half + margin) + 1));
        matcher.setSearch(search);
        GenPoint<float> offset;
        double score = 0.0;
        matcher.match(offset, score);
        GenPoint<float> matched(origin.x + offset.x, origin.y + offset.y);

        AffineProblem refine;
        refine.setPattern(pattern);
        refine.setSearch(search);
        refine.setAnchor(origin);
        refine.setCentre(matched);
        refine.setUseRotation(false);
        refine.setUseScale(false);
        refine.setUseStretch(false);
        refine.execute();
        const GenPoint<float> shift = refine.getTranslation();

        seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        previous = position;
        position = GenPoint<float>(matched.x + shift.x, matched.y + shift.y);

        const GenPoint<double> d = motion(t) - motion(0);
        const double tx = origin.x + d.x, ty = origin.y + d.y;
        const double error = std::hypot(position.x - tx, position.y - ty);
        worst = std::max(worst, error);
        sumSq += error * error;
        std::printf("%5d %8.3f %8.3f %9.3f %9.3f %7.4f %6.4f\n", t, tx, ty, position.x, position.y,
                    error, refine.getQuality());
    }
    std::printf("max error %.4f px, rms %.4f px over %d frames; %.1f us per tracking step\n", worst,
                std::sqrt(sumSq / frames), frames, 1e6 * seconds / frames);
    return worst < 0.1 ? 0 : 1;
}
