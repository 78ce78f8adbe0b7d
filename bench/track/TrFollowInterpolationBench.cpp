#include "bench/support/ValueNoise.h"
#include "image/Format.h"
#include "image/GenRect.h"
#include "image/Image.h"
#include "image/ImageRows.h"
#include "image/XformBicubic.h"
#include "track/Sequence/TrSequence.h"
#include "track/Sequence/TrTestSequence.h"
#include "track/TrFollow.h"
#include "track/TrShotImpl.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

using Orvane::GenRect;
using Orvane::Image;

namespace {

// The synthetic clip rendered once, so that a step's time is the driver's
// and not the renderer's.
class RenderedSequence : public TrSequence {
public:
    RenderedSequence() {
        TrTestSequence source;
        for (int f = source.getFirstFrame(); f <= source.getLastFrame(); ++f)
            frames.push_back(source.getFrame(float(f)));
        bounds = source.getBounds(1);
    }
    int getFirstFrame() override { return 1; }
    int getLastFrame() override { return int(frames.size()); }
    GenRect<int> getBounds(float) override { return bounds; }
    Image getFrame(float t) override { return frames[std::size_t(int(t + 0.5f) - 1)]; }

private:
    std::vector<Image> frames;
    GenRect<int> bounds;
};

// One step of one track with the refinement sampling as `how` says: a 21 x 21 pattern, a 61 x 61
// search area (92 x 92 fetched), translation, rotation, scale and stretch refined. Frames 2 to 30
// in turn; the begin frame of each round is set up outside the timing.
void trackStep(benchmark::State& state, Orvane::Interpolation how) {
    TrShotImpl shot;
    shot.setSequence(new RenderedSequence());
    TrFollow follow;
    follow.setShot(&shot);
    follow.setRefineInterpolation(how);

    int frame = 31;
    for (auto _ : state) {
        if (frame > 30) {
            state.PauseTiming();
            // Fresh keys each round: a pass re-keys its begin frame, and
            // rounds would otherwise start where the last one left it.
            shot.clearTracks();
            shot.addTrack(160, 120);
            shot.setPatternRect(0, GenRect<double>(-10.5, -10.5, 21, 21));
            shot.setSearchRect(0, GenRect<double>(-30.5, -30.5, 61, 61));
            shot.setUseRotate(0, true);
            shot.setUseScale(0, true);
            shot.setUseStretch(0, true);
            follow.begin(1, 1);
            if (!follow.track(0, 1, 1))
                state.SkipWithError("lost at the begin frame");
            frame = 2;
            state.ResumeTiming();
        }
        if (!follow.track(0, frame, 1)) {
            state.SkipWithError(("track lost at frame " + std::to_string(frame)).c_str());
            break;
        }
        ++frame;
    }
}
void BM_TrackStepBilinear(benchmark::State& state) {
    trackStep(state, Orvane::Interpolation::Bilinear);
}
BENCHMARK(BM_TrackStepBilinear)->Unit(benchmark::kMicrosecond);

void BM_TrackStepBicubic(benchmark::State& state) {
    trackStep(state, Orvane::Interpolation::Bicubic);
}
BENCHMARK(BM_TrackStepBicubic)->Unit(benchmark::kMicrosecond);

void BM_TrackStepBSpline(benchmark::State& state) {
    trackStep(state, Orvane::Interpolation::BSpline);
}
BENCHMARK(BM_TrackStepBSpline)->Unit(benchmark::kMicrosecond);

// A textured clip whose feature point moves by a sub-pixel step a frame
// and, for the shape case, turns and grows about that point: frame f shows
// the texture at R⁻¹ (x − c_f) / z with c_f the point's true position. The
// texture is evaluated exactly at each pixel centre, then rounded to 8 bits.
class MovingTexture : public TrSequence {
public:
    MovingTexture(bool shape) : shape(shape), noise(3) {}
    int getFirstFrame() override { return 1; }
    int getLastFrame() override { return kFrames; }
    GenRect<int> getBounds(float) override { return GenRect<int>(0, 0, kWidth, kHeight); }
    Image getFrame(float t) override {
        const int f = int(std::lround(t));
        const Orvane::GenPoint<double> c = truth(f);
        const double angle = shape ? 0.004 * (f - 1) : 0, zoom = shape ? 1 + 0.003 * (f - 1) : 1;
        const double cs = std::cos(angle) / zoom, sn = std::sin(angle) / zoom;
        Image img(getBounds(t), Orvane::Format::getRGB());
        const Orvane::ImageRows<unsigned char> rows(img);
        const int step = int(img.getFormat().getBytesPerPixel());
        for (int y = 0; y < kHeight; ++y) {
            unsigned char* p = rows.row(y);
            for (int x = 0; x < kWidth; ++x, p += step) {
                const double u = x + 0.5 - c.x, v = y + 0.5 - c.y;
                const double value = noise(cs * u + sn * v + 80, -sn * u + cs * v + 60);
                p[0] = p[1] = p[2] = (unsigned char)std::lround(20 + 140 * value);
            }
        }
        return img;
    }
    static Orvane::GenPoint<double> truth(int f) {
        return {80.0 + 0.137 * (f - 1), 60.0 + 0.071 * (f - 1)};
    }
    static constexpr int kFrames = 30, kWidth = 160, kHeight = 120;

private:
    bool shape;
    ValueNoise noise;
};

// The distance of each keyed position from the truth, frames 2 to 30.
std::vector<double> trackErrors(bool shape, Orvane::Interpolation how) {
    TrShotImpl shot;
    shot.setSequence(new MovingTexture(shape));
    TrFollow follow;
    follow.setShot(&shot);
    follow.setRefineInterpolation(how);
    shot.addTrack(MovingTexture::truth(1).x, MovingTexture::truth(1).y);
    shot.setPatternRect(0, GenRect<double>(-10.5, -10.5, 21, 21));
    shot.setSearchRect(0, GenRect<double>(-30.5, -30.5, 61, 61));
    shot.setUseRotate(0, shape);
    shot.setUseScale(0, shape);
    shot.setUseStretch(0, false);
    follow.begin(1, 1);
    std::vector<double> errors;
    for (int f = 1; f <= MovingTexture::kFrames; ++f)
        if (!follow.track(0, f, 1))
            return errors;
    follow.end(MovingTexture::kFrames);
    for (int f = 2; f <= MovingTexture::kFrames; ++f) {
        const Orvane::GenPoint<double> p = shot.getPosition(0, float(f));
        const Orvane::GenPoint<double> q = MovingTexture::truth(f);
        errors.push_back(std::hypot(p.x - q.x, p.y - q.y));
    }
    return errors;
}

void printAccuracy() {
    const char* const names[] = {"bilinear", "bicubic", "bspline"};
    const Orvane::Interpolation kinds[] = {Orvane::Interpolation::Bilinear,
                                           Orvane::Interpolation::Bicubic,
                                           Orvane::Interpolation::BSpline};
    std::printf("position error of the driver, px, frames 2 to 30 (0.137, 0.071 px a frame)\n");
    std::printf("%-22s %9s %9s %9s\n", "", "median", "max", "frames");
    for (bool shape : {false, true})
        for (int i = 0; i < 3; ++i) {
            std::vector<double> e = trackErrors(shape, kinds[i]);
            if (e.empty()) {
                std::printf("%-13s %-8s lost\n", shape ? "turn+zoom" : "translation", names[i]);
                continue;
            }
            std::vector<double> sorted = e;
            std::sort(sorted.begin(), sorted.end());
            std::printf("%-13s %-8s %9.4f %9.4f %9zu\n", shape ? "turn+zoom" : "translation",
                        names[i], sorted[sorted.size() / 2], sorted.back(), e.size());
        }
    std::printf("\n");
}

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    printAccuracy();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
