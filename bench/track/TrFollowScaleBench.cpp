#include "bench/support/MedianReporter.h"
#include "bench/support/ThreadClock.h"
#include "bench/support/ValueNoise.h"
#include "image/Format.h"
#include "image/GenRect.h"
#include "image/Image.h"
#include "track/Sequence/TrSequence.h"
#include "track/TrFollow.h"
#include "track/TrShotImpl.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::Image;

// How the cost of a frame grows with the number of tracks: 1, 10, 100 and
// 1000 tracks on a 1920 x 1080 clip through one driver, one thread, rotation refined (the
// shot's defaults), a 21 x 21 pattern in a 61 x 61 search area. An
// iteration's time is the thread's CPU time for one frame of every track
// (the Time column). After the runs the medians are fitted with time per
// frame = fixed + per track × n.
namespace {

const int kWidth = 1920;
const int kHeight = 1080;
const int kFrames = 8;
// The clip turns by 0.15 degrees a frame about the frame centre and moves by
// (1.5, -0.8) pixels a frame: a corner travels about 3 pixels a frame.
const double kTurn = 0.15 * std::acos(-1.0) / 180;
const double kStepX = 1.5;
const double kStepY = -0.8;
const int kMaxTracks = 1000;
const int kCounts[] = {1, 10, 100, 1000};

GenPoint<double> centre() {
    return GenPoint<double>(kWidth / 2.0, kHeight / 2.0);
}

// Where a point of frame 1 lies in frame f.
GenPoint<double> truePosition(const GenPoint<double>& p, int f) {
    const double a = (f - 1) * kTurn, c = std::cos(a), s = std::sin(a);
    const double dx = p.x - centre().x, dy = p.y - centre().y;
    return GenPoint<double>(centre().x + c * dx - s * dy + (f - 1) * kStepX,
                            centre().y + s * dx + c * dy + (f - 1) * kStepY);
}

// Frame f as a host hands it over: four 8-bit channels, grey.
Image render(const ValueNoise& texture, int f) {
    const Orvane::Format& format = Orvane::Format::getRGBA();
    Image img(GenRect<int>(0, 0, kWidth, kHeight), format);
    const int r = format.getChannel('r'), g = format.getChannel('g');
    const int b = format.getChannel('b'), a = format.getChannel('a');
    const int nc = format.getNumChannels();
    const double angle = (f - 1) * kTurn, c = std::cos(angle), s = std::sin(angle);
    for (int y = 0; y < kHeight; ++y) {
        unsigned char* row;
        img.getBuffer(row, GenPoint<int>(0, y));
        for (int x = 0; x < kWidth; ++x) {
            // Frame f at q shows frame 1 at the inverse motion of q.
            const double dx = x + 0.5 - centre().x - (f - 1) * kStepX;
            const double dy = y + 0.5 - centre().y - (f - 1) * kStepY;
            const double v = texture(centre().x + c * dx + s * dy, centre().y - s * dx + c * dy);
            const auto level = (unsigned char)std::lround(std::min(255.0, v * 170));
            unsigned char* p = row + x * nc;
            p[r] = p[g] = p[b] = level;
            p[a] = 255;
        }
    }
    return img;
}

const std::vector<Image>& frames() {
    static const std::vector<Image> all = [] {
        const ValueNoise texture(11);
        std::vector<Image> v;
        for (int f = 1; f <= kFrames; ++f)
            v.push_back(render(texture, f));
        return v;
    }();
    return all;
}

class Clip : public TrSequence {
public:
    int getFirstFrame() override { return 1; }
    int getLastFrame() override { return kFrames; }
    GenRect<int> getBounds(float) override { return GenRect<int>(0, 0, kWidth, kHeight); }
    Image getFrame(float t) override { return frames()[std::size_t(std::lround(t) - 1)]; }
};

// Track points on a 40 x 25 grid of pixel centres 100 pixels inside the
// frame, in a fixed shuffled order so that a few tracks spread too.
const std::vector<GenPoint<double>>& points() {
    static const std::vector<GenPoint<double>> all = [] {
        std::vector<GenPoint<double>> v;
        for (int j = 0; j < 25; ++j)
            for (int i = 0; i < 40; ++i)
                v.emplace_back(100 + std::floor(i * (kWidth - 200) / 39.0) + 0.5,
                               100 + std::floor(j * (kHeight - 200) / 24.0) + 0.5);
        std::shuffle(v.begin(), v.end(), std::mt19937(3));
        return v;
    }();
    return all;
}

// n tracks in one shot, followed by one driver.
class Rig {
public:
    explicit Rig(int n) : n(n) {
        shot.setSequence(new Clip());
        follow.setShot(&shot);
    }

    // Places fresh tracks and tracks the begin frame; false when one is lost.
    bool begin() {
        shot.clearTracks();
        for (int k = 0; k < n; ++k) {
            const GenPoint<double>& p = points()[std::size_t(k)];
            shot.addTrack(p.x, p.y);
            shot.setPatternRect(k, GenRect<double>(-10.5, -10.5, 21, 21));
            shot.setSearchRect(k, GenRect<double>(-30.5, -30.5, 61, 61));
        }
        follow.begin(1, 1);
        return track(1);
    }

    // Every track into frame f; false when one is lost.
    bool track(int f) {
        bool ok = true;
        for (int k = 0; k < n; ++k)
            ok = follow.track(k, f, 1) && ok;
        return ok;
    }

    // The largest distance of a keyed position in frame f from the truth.
    double maxError(int f) {
        double worst = 0;
        for (int k = 0; k < n; ++k) {
            const GenPoint<double> want = truePosition(points()[std::size_t(k)], f);
            const GenPoint<double> got = shot.getPosition(k, float(f));
            worst = std::max(worst, std::hypot(got.x - want.x, got.y - want.y));
        }
        return worst;
    }

private:
    int n;
    TrShotImpl shot;
    TrFollow follow;
};

// One iteration is one frame of n tracks, frames 2 to 8 in turn (the lagged
// refinement runs from frame 3 on); each round's begin frame is untimed.
// Every run covers whole rounds, so that no count is timed on the cheaper
// frame 2 alone.
void BM_Frame(benchmark::State& state) {
    Rig rig(int(state.range(0)));
    int frame = kFrames + 1;
    for (auto _ : state) {
        if (frame > kFrames) {
            if (!rig.begin()) {
                state.SkipWithError("a track was lost at the begin frame");
                break;
            }
            frame = 2;
        }
        const double start = threadSeconds();
        const bool ok = rig.track(frame);
        const double stop = threadSeconds();
        if (!ok) {
            state.SkipWithError(("a track was lost at frame " + std::to_string(frame)).c_str());
            break;
        }
        state.SetIterationTime(stop - start);
        ++frame;
    }
}

// The whole clip once with every track, before any timing: all must follow
// the true motion to a tenth of a pixel in every frame.
bool checkTracks() {
    Rig rig(kMaxTracks);
    if (!rig.begin()) {
        std::printf("a track was lost at the begin frame\n");
        return false;
    }
    double worst = 0;
    for (int f = 2; f <= kFrames; ++f) {
        if (!rig.track(f)) {
            std::printf("a track was lost at frame %d\n", f);
            return false;
        }
        worst = std::max(worst, rig.maxError(f));
    }
    std::printf("%d tracks, frames 2 to %d: largest error %.4f pixel\n", kMaxTracks, kFrames,
                worst);
    return worst <= 0.1;
}

// Least squares on relative residuals, so that the one-track point weighs as
// much as the thousand-track one: without it the fixed cost would be lost in
// the noise of the largest count.
void printFit(const MedianReporter& reporter) {
    double s = 0, sn = 0, snn = 0, st = 0, snt = 0;
    std::vector<double> times;
    for (int n : kCounts) {
        const double t = reporter.medianNs("BM_Frame/" + std::to_string(n)) / 1e3;
        if (t <= 0) {
            std::printf("\nBM_Frame/%d did not run: no fit\n", n);
            return;
        }
        times.push_back(t);
        const double w = 1 / (t * t);
        s += w;
        sn += w * n;
        snn += w * n * n;
        st += w * t;
        snt += w * n * t;
    }
    const double perTrack = (s * snt - sn * st) / (s * snn - sn * sn);
    const double fixed = (st - perTrack * sn) / s;
    std::printf("\nmedian thread CPU time per frame: fixed %.2f us + %.2f us per track\n", fixed,
                perTrack);
    std::printf("%8s %14s %14s %14s %10s\n", "tracks", "us per frame", "us per track", "fit us",
                "residual");
    for (std::size_t i = 0; i < times.size(); ++i) {
        const double fit = fixed + perTrack * kCounts[i];
        std::printf("%8d %14.1f %14.2f %14.1f %9.1f%%\n", kCounts[i], times[i],
                    times[i] / kCounts[i], fit, 100 * (times[i] - fit) / fit);
    }
}

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    if (!checkTracks()) {
        std::fprintf(stderr, "the tracks missed the motion; nothing timed\n");
        return 1;
    }
    // About a third of a second of tracking per run, in whole rounds.
    for (int n : kCounts)
        benchmark::RegisterBenchmark("BM_Frame", BM_Frame)
            ->Arg(n)
            ->Iterations((kFrames - 1) * std::max(1, 60 / n))
            ->UseManualTime()
            ->Unit(benchmark::kMicrosecond);
    MedianReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    printFit(reporter);
    benchmark::Shutdown();
    return 0;
}
