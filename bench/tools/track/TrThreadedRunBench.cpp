// Frames per second of a tracking pass over the bench plate, the plain loop
// against frames read ahead and tracks spread over workers. The plate comes
// from scripts/make-bench-plate.sh, in $TAVRIX_BENCH_PLATE or /tmp/plate:
//
//   scripts/make-bench-plate.sh /tmp/plate
//   build/release/bench/bench_tools_track_TrThreadedRunBench
//
// Times are wall-clock: the threads' work overlaps.

#include "base/Exception.h"
#include "image/ImageFile.h"
#include "tools/track/TrCommandOptions.h"
#include "tools/track/TrFrameReader.h"
#include "tools/track/TrTrackFile.h"
#include "tools/track/TrTrackRun.h"
#include "tools/track/TrWorkerPool.h"
#include "track/Sequence/TrDiskSequence.h"
#include "track/Sequence/TrImageCache.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace {

std::string plateDir() {
    const char* dir = std::getenv("TAVRIX_BENCH_PLATE");
    return dir ? dir : "/tmp/plate";
}

// The plate's sequence and tracks, with the command's default sizes; null
// when there is no plate.
struct Plate {
    Orvane::SmartPtr<TrDiskSequence> sequence;
    std::vector<TrTrackSpec> tracks;
};

Plate openPlate(benchmark::State& state) {
    Plate p;
    const std::string dir = plateDir();
    if (!std::filesystem::exists(dir + "/tracks.json")) {
        state.SkipWithError(("no plate in " + dir + ": run scripts/make-bench-plate.sh").c_str());
        return p;
    }
    p.sequence =
        Orvane::SmartPtr<TrDiskSequence>(new TrDiskSequence(dstring(dir + "/plate.####.png")));
    const TrCommandOptions defaults;
    p.tracks = readTrackFile(dir + "/tracks.json");
    for (TrTrackSpec& s : p.tracks) {
        s.patternWidth = s.patternWidth ? s.patternWidth : defaults.patternWidth;
        s.patternHeight = s.patternHeight ? s.patternHeight : defaults.patternHeight;
        s.searchWidth = s.searchWidth ? s.searchWidth : defaults.searchWidth;
        s.searchHeight = s.searchHeight ? s.searchHeight : defaults.searchHeight;
        s.colorMode = s.colorMode.empty() ? defaults.colorMode : s.colorMode;
    }
    return p;
}

// Adds run tracks `which` to `shot` in that order, each setting from a
// string of the shot's own.
void setUpShot(TrShotImpl& shot, const std::vector<TrTrackSpec>& specs,
               const std::vector<int>& which) {
    for (int i : which)
        placeTrack(shot, specs[size_t(i)]);
}

void BM_DecodePlateFrame(benchmark::State& state) {
    Plate p = openPlate(state);
    if (!p.sequence)
        return;
    int f = p.sequence->getFirstFrame();
    for (auto _ : state) {
        Orvane::Image img = Orvane::readImage(p.sequence->getFramePath(float(f)));
        benchmark::DoNotOptimize(img.getBuffer());
        f = f == p.sequence->getLastFrame() ? p.sequence->getFirstFrame() : f + 1;
    }
    state.SetItemsProcessed(state.iterations());
}

// The loop tavrix-track runs today: read the frame through the cache, then
// step every track in turn.
void BM_PlainLoop(benchmark::State& state) {
    Plate p = openPlate(state);
    if (!p.sequence)
        return;
    const int from = p.sequence->getFirstFrame(), to = p.sequence->getLastFrame();
    std::vector<int> all;
    for (size_t i = 0; i < p.tracks.size(); ++i)
        all.push_back(int(i));
    for (auto _ : state) {
        TrImageCache::getInstance().clear();
        TrShotImpl shot;
        shot.setSequence(p.sequence.get());
        setUpShot(shot, p.tracks, all);
        TrFollow follow;
        follow.setShot(&shot);
        std::vector<bool> alive(p.tracks.size(), true);
        follow.begin(from, 1);
        for (int f = from; f <= to; ++f) {
            benchmark::DoNotOptimize(p.sequence->getFrame(float(f)).getBuffer());
            for (size_t i = 0; i < alive.size(); ++i)
                if (alive[i])
                    alive[i] = follow.track(int(i), f, 1);
        }
        follow.end(to);
    }
    state.SetItemsProcessed(state.iterations() * (to - from + 1));
}

// Frames read ahead on range(1) threads of their own, tracks over range(0)
// workers.
void BM_ReadAheadWorkers(benchmark::State& state) {
    Plate p = openPlate(state);
    if (!p.sequence)
        return;
    const int from = p.sequence->getFirstFrame(), to = p.sequence->getLastFrame();
    double decode = 0, wait = 0;
    for (auto _ : state) {
        TrWorkerPool pool(int(state.range(0)), int(p.tracks.size()), from, to);
        for (int w = 0; w < pool.getWorkerCount(); ++w)
            setUpShot(pool.getWorker(w).shot, p.tracks, pool.getWorker(w).tracks);
        TrFrameReader reader(*p.sequence, from, to, pool.getWorkerCount(), 4, int(state.range(1)));
        std::vector<bool> alive(p.tracks.size(), true);
        std::vector<TrStepResult> results;
        pool.begin(from, 1);
        TrReadFrame frame;
        while (reader.next(frame)) {
            if (!frame.ok()) {
                state.SkipWithError(frame.error.c_str());
                return;
            }
            pool.step(frame.frame, 1, frame.copies, alive, results);
            for (size_t i = 0; i < alive.size(); ++i)
                alive[i] = alive[i] && results[i].ok;
        }
        pool.end(to);
        decode += reader.getDecodeSeconds();
        wait += reader.getWaitSeconds();
    }
    state.SetItemsProcessed(state.iterations() * (to - from + 1));
    state.counters["decode_s"] = decode / double(state.iterations());
    state.counters["waited_s"] = wait / double(state.iterations());
}

} // namespace

BENCHMARK(BM_DecodePlateFrame)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlainLoop)->Unit(benchmark::kSecond)->UseRealTime()->Iterations(1);
BENCHMARK(BM_ReadAheadWorkers)
    ->Args({1, 1})
    ->Args({2, 1})
    ->Args({2, 2})
    ->Unit(benchmark::kSecond)
    ->UseRealTime()
    ->Iterations(1);
