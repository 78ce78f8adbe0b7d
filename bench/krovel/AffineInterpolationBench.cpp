#include "bench/support/ValueNoise.h"
#include "image/Format.h"
#include "image/Image.h"
#include "image/XformBicubic.h"
#include "krovel/AffineProblem.h"
#include "krovel/AffineTransform.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <string>

using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::Image;
using Orvane::Interpolation;

// What the refinement's interpolant does to its answer, and what it costs.
// First a table: a pattern found in search images moved by sub-pixel
// phases, solved with each interpolant, error against the true shift. The
// textures are evaluated exactly at the pixel centres, so none of the
// tracker's interpolants renders them. Then the time of one execute.

namespace {

using Texture = std::function<double(double, double)>;

// Waves of 4 to 11 pixels in several directions.
double fine(double u, double v) {
    return std::sin(0.61 * u + 0.23 * v) + 0.8 * std::sin(-0.37 * u + 0.93 * v + 1) +
           0.6 * std::sin(1.21 * u - 0.52 * v + 2) + 0.5 * std::sin(0.35 * u + 1.37 * v + 0.5);
}

// Two waves of about 4 pixels.
double finer(double u, double v) {
    return std::sin(1.6 * u + 0.3 * v) + 0.8 * std::sin(-0.4 * u + 1.5 * v + 1);
}

// The benchmark rig's smooth texture, waves of 10 pixels and more.
double smooth(double u, double v) {
    return 2 + std::sin(0.61 * u + 0.23 * v) + 0.7 * std::sin(-0.17 * u + 0.53 * v + 1);
}

const char* const kNames[] = {"bilinear", "bicubic", "bspline"};
const Interpolation kKinds[] = {Interpolation::Bilinear, Interpolation::Bicubic,
                                Interpolation::BSpline};

// The texture over `b`, moved by (dx, dy) pixels.
Image rendered(const Texture& t, const GenRect<int>& b, double dx, double dy) {
    Image img(b, Orvane::Format("l", Orvane::FLOAT, false));
    float* p;
    img.getBuffer(p);
    for (int y = 0; y < b.h; ++y)
        for (int x = 0; x < b.w; ++x)
            p[y * b.w + x] = float(t(b.x + x + 0.5 - dx, b.y + y + 0.5 - dy));
    return img;
}

void setUp(AffineProblem& p, const Image& pattern, const Image& search, bool allFree) {
    p.setPattern(pattern);
    p.setSearch(search);
    p.setAnchor(GenPoint<float>(0.5f, 0.5f));
    p.setCentre(GenPoint<float>(0.5f, 0.5f));
    p.setUseRotation(allFree);
    p.setUseScale(allFree);
    p.setUseStretch(allFree);
    p.setXform(AffineTransform());
}

// The solved transform for a shift of `phase` along x and 0.3 of it along
// y, translation (and scale when asked) free, at full size.
AffineTransform solved(const Texture& t, double phase, bool scale, Interpolation how) {
    AffineProblem p;
    setUp(p, rendered(t, GenRect<int>(-10, -10, 21, 21), 0, 0),
          rendered(t, GenRect<int>(-16, -16, 33, 33), phase, 0.3 * phase), false);
    p.setUseScale(scale);
    p.setCoarseToFine(false);
    p.setInterpolation(how);
    p.execute();
    return p.getXform();
}

void printTable(const char* name, const Texture& t) {
    std::printf("\n%s texture: tx error (px) by phase; then with scale free, tx error and "
                "scale - 1\n",
                name);
    std::printf("%6s %10s %10s %10s | %10s %10s %10s %10s\n", "phase", "bilinear", "bicubic",
                "bspline", "bil. tx", "bil. sc-1", "bsp. tx", "bsp. sc-1");
    double largest[3] = {0, 0, 0};
    for (int k = 0; k < 10; ++k) {
        const double phase = 0.1 * k;
        double error[3];
        for (int i = 0; i < 3; ++i) {
            error[i] = solved(t, phase, false, kKinds[i]).tx - phase;
            largest[i] = std::max(largest[i], std::fabs(error[i]));
        }
        const AffineTransform bil = solved(t, phase, true, Interpolation::Bilinear);
        const AffineTransform bsp = solved(t, phase, true, Interpolation::BSpline);
        std::printf("%6.1f %10.4f %10.4f %10.4f | %10.4f %10.5f %10.4f %10.5f\n", phase, error[0],
                    error[1], error[2], bil.tx - phase, bil.sc - 1, bsp.tx - phase, bsp.sc - 1);
    }
    std::printf("%6s %10.4f %10.4f %10.4f\n", "max", largest[0], largest[1], largest[2]);
}

// One kept problem, executed again and again, as the driver holds one.
void execute(benchmark::State& state, Interpolation how, bool allFree, int searchSize) {
    const Image pattern = rendered(smooth, GenRect<int>(-10, -10, 21, 21), 0, 0);
    const GenRect<int> b(-searchSize / 2, -searchSize / 2, searchSize, searchSize);
    const Image search = rendered(smooth, b, 0.3, 0.3);
    AffineProblem p;
    p.setInterpolation(how);
    for (auto _ : state) {
        setUp(p, pattern, search, allFree);
        p.execute();
        benchmark::DoNotOptimize(p.getQuality());
    }
}

// The B-spline's prefilter alone, over a search image of the given size.
void fit(benchmark::State& state, int size) {
    const Image search = rendered(smooth, GenRect<int>(-size / 2, -size / 2, size, size), 0.3, 0.3);
    Orvane::BSplineCoefficients fitted;
    for (auto _ : state)
        benchmark::DoNotOptimize(fitted.fit(search).getBuffer());
}

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    printTable("fine", fine);
    printTable("finer", finer);
    printTable("smooth", smooth);
    const ValueNoise noise(7);
    printTable("value-noise", [&](double u, double v) { return noise(u + 50, v + 50); });
    std::printf("\n");
    for (int i = 0; i < 3; ++i)
        for (int size : {33, 92})
            for (bool allFree : {false, true}) {
                const std::string name = std::string("BM_Execute21Search") + std::to_string(size) +
                                         (allFree ? "AllFree/" : "Translation/") + kNames[i];
                benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& s) {
                    execute(s, kKinds[i], allFree, size);
                })->Unit(benchmark::kMicrosecond);
            }
    for (int size : {33, 92})
        benchmark::RegisterBenchmark(("BM_BSplineFit" + std::to_string(size)).c_str(),
                                     [=](benchmark::State& s) { fit(s, size); })
            ->Unit(benchmark::kMicrosecond);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
