#include "image/GenRect.h"
#include "image/Image.h"
#include "track/Sequence/TrSequence.h"
#include "track/Sequence/TrTestSequence.h"
#include "track/TrFollow.h"
#include "track/TrShotImpl.h"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

using Orvane::GenRect;
using Orvane::Image;

namespace {

// The synthetic clip rendered once, so that a step's time is the driver's.
class Prerendered : public TrSequence {
public:
    Prerendered() {
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

// One step of one track through frames 2 to 30, as the designed driver
// (argument 0) and as the robust mode (1) take it: the price of the options
// on footage where every match passes.
void BM_TrackStepMode(benchmark::State& state) {
    TrShotImpl shot;
    shot.setSequence(new Prerendered());
    TrFollow follow;
    follow.setShot(&shot);
    follow.setRobust(state.range(0) != 0);

    int frame = 31;
    for (auto _ : state) {
        if (frame > 30) {
            state.PauseTiming();
            shot.clearTracks();
            shot.addTrack(160, 120);
            shot.setPatternRect(0, GenRect<double>(-10.5, -10.5, 21, 21));
            shot.setSearchRect(0, GenRect<double>(-30.5, -30.5, 61, 61));
            shot.setUseScale(0, true);
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
BENCHMARK(BM_TrackStepMode)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

} // namespace
