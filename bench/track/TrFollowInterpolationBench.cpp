#include "image/GenRect.h"
#include "image/Image.h"
#include "image/XformBicubic.h"
#include "track/Sequence/TrSequence.h"
#include "track/Sequence/TrTestSequence.h"
#include "track/TrFollow.h"
#include "track/TrShotImpl.h"

#include <benchmark/benchmark.h>

#include <algorithm>
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

} // namespace
