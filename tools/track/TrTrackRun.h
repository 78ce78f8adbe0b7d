#pragma once

#include "image/GenRect.h"
#include "image/Image.h"
#include "krovel/AffineTransform.h"
#include "tools/track/TrTrackFile.h"
#include "tools/track/TrWorkerPool.h"
#include "track/TrFollow.h"

#include <chrono>
#include <cstdio>
#include <deque>
#include <memory>
#include <string>
#include <vector>

class TrProgress;
class TrSequence;

/// One track's result at one frame. `keyed` tells whether the tracker wrote
/// the position into the track's curve; when it did not (the match scored
/// below the tolerance and the frame was predicted), position, score and
/// transform are the tracker's own estimate. `status` is the driver's word
/// on the step: tracked (the match held) or coasted (the failure behaviour
/// carried the track on); the frame a track is lost at has no sample.
struct TrSample {
    int frame = 0;
    double x = 0;
    double y = 0;
    double score = 0;
    bool keyed = false;
    AffineTransform transform;
    TrStepStatus status = TrStepStatus::Tracked;
};

/// "tracked", "coasted" or "lost": the status column's words.
const char* statusName(TrStepStatus status);

/// A track's results so far, in pass order, and whether it was lost.
struct TrTrackResult {
    TrTrackSpec spec;
    std::vector<TrSample> samples;
    bool lost = false;
    /// The frame the tracker could not follow the track into.
    int lostAt = 0;
    /// Why, when an error rather than a failed match ended the track.
    std::string reason;
};

/// Receives the results of a pass frame by frame, once no later step can
/// change them.
class TrRunSink {
public:
    virtual ~TrRunSink() = default;
    /// Before the first frame; `tracks` have no samples yet.
    virtual void begin(const std::vector<TrTrackResult>& tracks, int from, int to) = 0;
    /// Every track's samples now hold their final value for `frame`; a track
    /// that covers the frame has it as its last sample.
    virtual void frame(int frame, const std::vector<TrTrackResult>& tracks) = 0;
    /// After the last frame, or after a failure (`complete` false, `error`
    /// says what), once every frame tracked before it has been delivered.
    virtual void finish(const std::vector<TrTrackResult>& tracks, bool complete,
                        const std::string& error) = 0;
};

/// Where the time of a pass went. Frames are decoded on threads of their own
/// while the tracks are followed, so `decode` overlaps `track`: the pass
/// waited for frames only `wait` seconds of it.
struct TrRunTimes {
    /// Seconds spent decoding frames, summed over the threads that did.
    double decode = 0;
    /// Seconds the pass waited for the next frame.
    double wait = 0;
    /// Wall seconds of the tracking steps, all workers together.
    double track = 0;
    /// CPU seconds of the tracking steps, summed over the workers' threads.
    double trackCpu = 0;
    /// Seconds spent handing results to the sinks.
    double output = 0;
    /// Wall seconds of the whole pass.
    double wall = 0;
    int frames = 0;
    /// Tracks stepped into a frame, summed over the frames: the count the
    /// tracking time is shared by.
    long steps = 0;
    /// Threads that tracked and that decoded (0: the pass's own thread).
    int jobs = 1;
    int decoders = 0;
};

/// How a pass uses the machine; the defaults track and read on the caller's
/// thread alone.
struct TrRunThreads {
    /// Threads that follow tracks, the caller's included.
    int jobs = 1;
    /// Threads that decode frames ahead of the tracking; 0 reads each frame
    /// on the caller's thread when it is needed. Only sequences of image
    /// files are read ahead; any other is read on the caller's thread.
    int decoders = 0;
    /// Frames decoded ahead, per decoding thread.
    int aheadPerDecoder = 2;
};

/// How the driver follows every track of a pass.
struct TrRunSettings {
    /// Score below which a match fails, -1 to 1.
    double tolerance = 0.8;
    /// A failure behaviour's name (track/TrModes.h).
    std::string behavior = "default";
    bool rotate = true;
    bool scale = false;
    bool stretch = false;
    /// Double-precision window sums.
    bool preciseSums = false;
    /// The driver's robust mode (TrFollow::setRobust), which also leaves a
    /// pattern with too little texture unstarted.
    bool robust = false;
};

/// Runs one tracking pass over a sequence: places the tracks on shots of
/// its own, follows them, and hands the results to its sinks as they become
/// final.
///
/// The driver keys the search images it keeps for its lagged refinement by
/// frame × 256 + track, so one driver follows at most `groupSize` tracks. The
/// tracks are dealt in turn over max(jobs, ceil(tracks / groupSize)) workers
/// (TrWorkerPool), each a shot and driver of its own over frames handed to
/// it, and the workers run on `jobs` threads. A track's record lives in its
/// driver alone, so its results are the same however the tracks are dealt:
/// the pass gives the same values with any number of jobs.
///
/// Frames come from a TrFrameReader decoding ahead on threads, one copy per
/// tracking thread, or from the sequence on the caller's thread. Only the
/// caller's thread touches the sequence and the process-wide image cache;
/// the workers see only the copies handed to them. The results are merged
/// in the original track order on the caller's thread, between steps.
///
/// A track is lost when the driver stops it (the driver's stop reason
/// becomes the reason), when a step throws one of the library's exceptions
/// (the message does), or when its point leaves the frame ("left the
/// frame"); the other tracks go on.
///
/// The driver refines each frame again two steps later, so a frame's values
/// are final only once the driver's refinement has passed it, the track has
/// stopped, or the pass has ended; sinks see each frame exactly then. When a
/// frame cannot be read, every frame tracked before it is still delivered
/// and the sinks are finished before the error is passed on.
/// Appends `spec` to `shot`: its point, pattern and search rectangles centred
/// on it, and its colour mode. Returns the track's index in the shot.
int placeTrack(TrShotImpl& shot, const TrTrackSpec& spec);

class TrTrackRun {
public:
    static constexpr int groupSize = 256;

    /// Places `specs` (sizes and colour modes filled in) on the workers'
    /// shots and starts the workers' threads. `sequence` is borrowed and must
    /// outlive the run.
    TrTrackRun(TrSequence* sequence, const std::vector<TrTrackSpec>& specs,
               const TrRunSettings& settings, const TrRunThreads& threads = TrRunThreads());
    ~TrTrackRun();
    TrTrackRun(const TrTrackRun&) = delete;
    TrTrackRun& operator=(const TrTrackRun&) = delete;

    /// Not owned; called in the order added.
    void addSink(TrRunSink* sink) { sinks.push_back(sink); }
    /// A progress line; not owned, may be null.
    void setProgress(TrProgress* p) { progress = p; }
    /// Where "track lost" notices go; null for none.
    void setNotices(std::FILE* f) { notices = f; }

    /// Tracks every track from `from` to `to` (backward when `to` < `from`).
    /// Whatever a step throws, other than a track's own library error, ends
    /// the pass and is passed on once the sinks are finished; a frame the
    /// reader could not decode throws IllegalArgumentException with the
    /// reader's message.
    void run(int from, int to);

    const std::vector<TrTrackResult>& getResults() const { return results; }
    const TrRunTimes& getTimes() const { return times; }
    int getLostCount() const;
    /// The frame whose failure ended the last run early.
    int getFailedFrame() const { return failedFrame; }

private:
    class Feed;
    /// The run's state of one track, kept on the caller's thread.
    struct Lane {
        /// Samples taken at the step, not yet final.
        std::deque<TrSample> pending;
        bool alive = true;
        /// Set by the step that lost the track; reported after the frame.
        bool justLost = false;
        int lostAt = 0;
        std::string reason;
    };

    void start(int from, int to);
    void step(int frame, std::vector<Orvane::Image>& copies, const Orvane::GenRect<int>& bounds);
    void stepFrame(Feed& feed, int frame, std::chrono::steady_clock::time_point start, int total);
    void reportLosses();
    bool isFinal(int i, int frame, bool passOver) const;
    TrSample finalSample(int i, const TrSample& estimate);
    void emit(int upTo, bool passOver);
    void finishSinks(bool complete, const std::string& error);

    TrSequence* sequence;
    TrRunThreads threads;
    std::unique_ptr<TrWorkerPool> pool;
    /// Reused from frame to frame.
    std::vector<bool> alive;
    std::vector<TrStepResult> stepped;
    std::vector<TrRunSink*> sinks;
    TrProgress* progress = nullptr;
    std::FILE* notices = nullptr;

    std::vector<TrTrackResult> results;
    std::vector<Lane> lanes;
    int direction = 1;
    int beginFrame = 0;
    int nextFrame = 0;
    int lastDone = 0;
    bool anyDone = false;
    int failedFrame = 0;
    TrRunTimes times;
};
