#pragma once

#include "image/Image.h"
#include "tools/track/TrHandedSequence.h"
#include "track/TrFollow.h"
#include "track/TrShotImpl.h"

#include <condition_variable>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/// One worker's tracker: a shot over frames handed to it and the driver that
/// watches the shot, following some of the run's tracks. A worker is used by
/// one thread at a time, and nothing in it is shared with another worker.
///
/// Settings go to each shot separately and each from a string of its own:
/// strings count references with plain integers, so two shots must never
/// share one (`dstring(std::string)` makes a fresh one, copying a dstring
/// does not).
struct TrWorker {
    TrShotImpl shot;
    TrFollow follow;
    /// Held by the shot as well.
    TrHandedSequence* sequence = nullptr;
    /// The run's index of each of the shot's tracks, in the shot's order.
    std::vector<int> tracks;
};

/// What came of one track's step into a frame.
struct TrStepResult {
    /// The track was alive, so the step ran.
    bool ran = false;
    /// The driver's answer; false stops the track.
    bool ok = false;
    /// When the step threw one of the library's exceptions, its message;
    /// the track is lost and `ok` is false.
    std::string error;
};

/// The tracks of a run spread over workers that step into each frame side by
/// side. Track i belongs to worker i % count for the whole run: its working
/// record lives in that worker's driver, and the driver keeps one record per
/// track, so a track's results are the same whichever tracks share its
/// worker, and the same as with one worker.
///
/// The workers run on `threads` threads, worker w always on thread
/// w % threads: thread 0 is the caller's, the others the pool's. One driver
/// follows at most 256 tracks, so a run may need more workers than it has
/// threads; those workers take turns on their thread. Between calls every
/// worker is idle, and the caller may use any of them (to set tracks up,
/// read results) from its own thread.
class TrWorkerPool {
public:
    /// `workers` workers, but no more than there are tracks and at least
    /// one, for `trackCount` tracks over frames `first` to `last`; each
    /// shot's sequence holds the last `keep` frames handed to it. `threads`
    /// is at most the worker count; 0 gives each worker a thread. The shots
    /// get no tracks: add the tracks of getWorker(w).tracks to worker w's
    /// shot in that order (or use addTrack).
    TrWorkerPool(int workers, int trackCount, int first, int last, int keep = 8, int threads = 0);
    /// Stops and joins the threads.
    ~TrWorkerPool();
    TrWorkerPool(const TrWorkerPool&) = delete;
    TrWorkerPool& operator=(const TrWorkerPool&) = delete;

    int getWorkerCount() const { return int(workers.size()); }
    /// The caller's thread included.
    int getThreadCount() const { return int(cpuSeconds.size()); }
    TrWorker& getWorker(int w) { return *workers[size_t(w)]; }
    int getTrackCount() const { return int(owner.size()); }

    /// The worker of run track `track`, and the track's index in its shot.
    int workerOf(int track) const { return owner[size_t(track)]; }
    int localIndex(int track) const { return local[size_t(track)]; }
    TrShotImpl& shotOf(int track) { return getWorker(workerOf(track)).shot; }
    TrFollow& followOf(int track) { return getWorker(workerOf(track)).follow; }
    /// The driver's record of run track `track`.
    const TrTrackInfo& getInfo(int track) { return followOf(track).getInfo(localIndex(track)); }

    /// Adds run track `track` at (x, y) to its worker's shot; tracks must be
    /// added in run order. Returns the shot's track, borrowed.
    TrTrack* addTrack(int track, double x, double y);

    /// Runs job(worker, w) for every worker, the threads side by side, and
    /// returns when all have finished. When jobs throw, the exception of the
    /// lowest worker is rethrown here, after all have finished.
    void runAll(const std::function<void(TrWorker&, int)>& job);

    /// Starts a pass on every driver. Throws IllegalArgumentException when
    /// a shot does not hold its worker's tracks.
    void begin(int frame, int step);
    /// Hands worker w `copies[w % threads]` as frame `frame` (moved out; one
    /// image per thread, each on pixels of its own), then steps every track whose
    /// `alive` entry is set into the frame (the workers only read it, so
    /// the bits may be packed). `results` gets one entry per track.
    /// Exceptions other than the library's pass to the caller.
    void step(int frame, int direction, std::vector<Orvane::Image>& copies,
              const std::vector<bool>& alive, std::vector<TrStepResult>& results);
    void end(int frame);

    /// CPU seconds the threads have spent in jobs, summed over the threads.
    /// It leaves out the time a thread waited for a core or for the others,
    /// so it measures the work however busy the machine is.
    double getCpuSeconds() const;

private:
    void serve(int t);
    void runJobs(int t);
    void runJob(int w);

    std::vector<std::unique_ptr<TrWorker>> workers;
    std::vector<int> owner;
    std::vector<int> local;

    std::mutex mutex;
    std::condition_variable wake;
    std::condition_variable done;
    const std::function<void(TrWorker&, int)>* job = nullptr;
    /// Counts the jobs given, so a thread knows a new one from the last.
    unsigned long generation = 0;
    int running = 0;
    bool stopping = false;
    std::vector<std::exception_ptr> errors;
    /// By thread; each thread writes its own entry during a call.
    std::vector<double> cpuSeconds;
    std::vector<std::thread> threads;
};
