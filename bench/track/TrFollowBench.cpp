#include "image/GenRect.h"
#include "image/Image.h"
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

// One step of one track: a 21 x 21 pattern, a 61 x 61 search area (92 x 92
// fetched), translation, rotation, scale and stretch refined. Frames 2 to 30
// in turn; the begin frame of each round is set up outside the timing.
void BM_TrackStep(benchmark::State& state) {
    TrShotImpl shot;
    shot.setSequence(new RenderedSequence());
    TrFollow follow;
    follow.setShot(&shot);

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
BENCHMARK(BM_TrackStep)->Unit(benchmark::kMicrosecond);

// A whole pass as the stand-alone shot runs it: 16 tracks around the
// saddle's centre, frames 1 to 30 rendered on demand, rotation refined.
void BM_Pass16Tracks(benchmark::State& state) {
    TrShotImpl shot;
    shot.setSequence(new TrTestSequence());
    TrFollow follow;
    follow.setShot(&shot);

    for (auto _ : state) {
        state.PauseTiming();
        shot.clearTracks();
        for (int k = 0; k < 16; ++k) {
            const int column = k % 4, row = k / 4;
            shot.addTrack(160 + column - 1.5, 120 + row - 1.5);
            shot.setPatternRect(k, GenRect<double>(-10, -10, 20, 20));
            shot.setSearchRect(k, GenRect<double>(-20, -20, 40, 40));
        }
        state.ResumeTiming();
        follow.begin(1, 1);
        bool alive[16];
        std::fill(alive, alive + 16, true);
        for (int f = 1; f <= 30; ++f)
            for (int k = 0; k < 16; ++k)
                alive[k] = alive[k] && follow.track(k, f, 1);
        follow.end(30);
        if (std::count(alive, alive + 16, false) > 0)
            state.SkipWithError("a track was lost");
    }
    state.SetItemsProcessed(state.iterations() * 30 * 16);
}
BENCHMARK(BM_Pass16Tracks)->Unit(benchmark::kMillisecond);

} // namespace
