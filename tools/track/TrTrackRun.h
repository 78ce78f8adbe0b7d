#pragma once

#include "krovel/AffineTransform.h"
#include "tools/track/TrTrackFile.h"

#include <cstdio>
#include <deque>
#include <string>
#include <vector>

class TrFollow;
class TrProgress;
class TrShotImpl;

/// One track's result at one frame. `keyed` tells whether the tracker wrote
/// the position into the track's curve; when it did not (the match scored
/// below the tolerance and the frame was predicted), position, score and
/// transform are the tracker's own estimate.
struct TrSample {
    int frame = 0;
    double x = 0;
    double y = 0;
    double score = 0;
    bool keyed = false;
    AffineTransform transform;
};

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

/// Seconds spent reading frames, tracking and writing results.
struct TrRunTimes {
    double decode = 0;
    double track = 0;
    double output = 0;
    int frames = 0;
};

/// Runs one tracking pass over a stand-alone shot whose sequence and tracks
/// are set up, and hands the results to its sinks as they become final.
///
/// A track is lost when the driver stops it, when a step throws one of the
/// library's exceptions (the message becomes the reason), or when its point
/// leaves the frame ("left the frame"); the other tracks go on.
///
/// The driver refines each frame again two steps later, so a frame's values
/// are final only once the driver's refinement has passed it, the track has
/// stopped, or the pass has ended; sinks see each frame exactly then. When a
/// frame cannot be read, every frame tracked before it is still delivered
/// and the sinks are finished before the error is passed on.
class TrTrackRun {
public:
    /// Borrows the shot and the driver; the driver must watch the shot.
    TrTrackRun(TrShotImpl& shot, TrFollow& follow, const std::vector<TrTrackSpec>& specs);

    /// Not owned; called in the order added.
    void addSink(TrRunSink* sink) { sinks.push_back(sink); }
    /// A progress line; not owned, may be null.
    void setProgress(TrProgress* p) { progress = p; }
    /// Where "track lost" notices go; null for none.
    void setNotices(std::FILE* f) { notices = f; }

    /// Tracks every track from `from` to `to` (backward when `to` < `from`).
    void run(int from, int to);

    const std::vector<TrTrackResult>& getResults() const { return results; }
    const TrRunTimes& getTimes() const { return times; }
    int getLostCount() const;
    /// The frame whose failure ended the last run early.
    int getFailedFrame() const { return failedFrame; }

private:
    struct Capture {
        int frame;
        TrSample sample;
    };

    void loseTrack(int i, int frame, const std::string& reason);
    bool isFinal(int i, int frame, bool passOver) const;
    void emit(int upTo, bool passOver);
    void finishSinks(bool complete, const std::string& error);

    TrShotImpl& shot;
    TrFollow& follow;
    std::vector<TrRunSink*> sinks;
    TrProgress* progress = nullptr;
    std::FILE* notices = nullptr;

    std::vector<TrTrackResult> results;
    std::vector<std::deque<Capture>> pending;
    std::vector<bool> alive;
    int direction = 1;
    int nextFrame = 0;
    int lastDone = 0;
    bool anyDone = false;
    int failedFrame = 0;
    TrRunTimes times;
};
