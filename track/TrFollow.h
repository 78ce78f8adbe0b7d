#pragma once

#include "base/Array.h"
#include "base/SafeObject.h"
#include "base/dstring.h"
#include "image/GenRect.h"
#include "image/Image.h"
#include "track/TrShot.h"
#include "track/TrTrackInfo.h"

#include <map>
#include <vector>

class AffineProblem;
class Reducer;
class TrFeedback;

/// What the last step of a track did with its frame.
enum class TrStepStatus {
    /// The match reached the tolerance: the frame holds a measured position.
    Tracked,
    /// The match failed and the failure behaviour carried the track on: the
    /// frame holds a predicted (or low-scoring) position, keyed or not.
    Coasted,
    /// The track stopped at this frame (`track` returned false).
    Lost,
};

/// The tracking driver: follows every track of a shot from frame to frame.
///
/// A pass is `begin(frame, step)`, then `track(i, frame, direction)` once per
/// track and frame, then `end(frame)`. Each step predicts the position, fetches
/// and reduces a search region, warps it by the current shape, matches the
/// pattern, refines position and shape, judges the quality against the
/// track's tolerance, applies the track's failure behaviour and keys the
/// result into the shot. A second refinement re-solves the frame two steps
/// behind with a shape averaged over five frames.
///
/// The shot is watched, not owned: every use checks that it still exists.
/// The feedback observer is not owned either. The driver owns its working
/// records, their reducers and matchers, and the cached search images.
class TrFollow {
public:
    /// No shot, no feedback, begin frame -1, step 1.
    TrFollow();
    ~TrFollow();
    TrFollow(const TrFollow&) = delete;
    TrFollow& operator=(const TrFollow&) = delete;

    /// Watches `shot`, which must derive from Orvane::SafeObject
    /// (IllegalArgumentException "SafePtr: object is not a SafeObject").
    void setShot(TrShot* shot);
    /// The shot, or null once it has been destroyed.
    TrShot* getShot() const;
    void setFeedback(TrFeedback* feedback);
    TrFeedback* getFeedback() const;

    /// Starts a pass at `frame`: one fresh working record per track of the
    /// shot, an empty search cache, then `setup()`.
    void begin(int frame, int step);
    /// Reads each track's position and pattern rectangle at the begin frame,
    /// and the shot's track range.
    void setup();
    /// Tracks track `i` into `frame`, going forward for a positive
    /// `direction` and backward otherwise. Returns false when the track is
    /// to stop: its pattern could not be captured at the begin frame (or,
    /// when robust, holds too little texture, TrTexture), its
    /// search region lies outside the frame, the failure behaviour says so,
    /// the affine refinement raised KrMatrixError, or the pass was
    /// cancelled. Every other exception passes to the caller. An index
    /// outside the records throws BadIndexException "Array::operator[]"; a
    /// missing shot NullPointerException "TrFollow: no shot".
    bool track(int i, int frame, int direction);
    /// Ends the pass; the records stay until the next `begin`.
    void end(int frame);
    /// Why the last `track(i, …)` returned false, as a fixed text ("its
    /// pattern lies outside the frame", "its match scored below the
    /// tolerance", …); null when it returned true or threw. Stopping is
    /// unchanged by it: a caller that reports lost tracks reads it.
    const char* getStopReason(int i) const { return stopReasons[size_t(i)]; }
    /// What the last `track(i, …)` did with its frame; `Lost` when it
    /// returned false or threw, and before the first step of a pass.
    TrStepStatus getStepStatus(int i) const { return stepStatus[size_t(i)]; }

    /// A new reducer for colour mode `mode`, set up on `pattern` where the
    /// mode needs it ("hue"); the caller owns it. Modes: "red", "green",
    /// "blue", "luminance", "saturation", "hue". Any other, or none, throws
    /// IllegalArgumentException "unsupported color mode \"<mode>\"".
    static Reducer* setupReducer(const Orvane::Image& pattern, const dstring& mode);
    /// `img` reduced once by a reducer for `mode`.
    static Orvane::Image reduce(const Orvane::Image& img, const dstring& mode);

    /// Double-precision window sums for matchers made from now on, for
    /// bright, low-contrast footage. Off by default.
    void setPreciseSums(bool on) { preciseSums = on; }
    bool getPreciseSums() const { return preciseSums; }

    /// The robust mode: the options beyond the designed driver that hold
    /// tracks through blur, occlusion and deforming content, taken together.
    /// Off by default, which keeps the designed behaviour exactly.
    void setRobust(bool on) { robust = on; }
    bool getRobust() const { return robust; }

    int getBeginFrame() const { return beginFrame; }
    int getFirstFrame() const { return firstFrame; }
    int getStep() const { return step; }
    float getRangeStart() const { return rangeStart; }
    float getRangeEnd() const { return rangeEnd; }
    bool getUseAffine() const { return useAffine; }
    bool getLagRefine() const { return lagRefine; }

    /// The working records, one per track, for inspection.
    int getInfoCount() const { return infos.getCount(); }
    const TrTrackInfo& getInfo(int i) const { return infos[i]; }
    /// Reduced search images waiting for the lagged refinement, keyed by
    /// frame * 256 + track index.
    const std::map<int, Orvane::Image>& getSearchCache() const { return searchCache; }

private:
    /// What the attempts at one frame decided.
    struct Verdict {
        /// The track stops; nothing more is done for the frame.
        bool stop = false;
        /// The last attempt's score reached the tolerance.
        bool matched = false;
        /// The frame's result is keyed.
        bool keyed = false;

        static Verdict stopTrack() { return Verdict{true, false, false}; }
    };

    TrShot* checkedShot() const;
    // The stages of `track`, in the order it runs them.
    bool captureAtBegin(int i, TrTrackInfo& info);
    bool capturePattern(int i, TrTrackInfo& info);
    Verdict matchWithRetries(int i, int frame, TrTrackInfo& info);
    bool fetchAndWarp(int i, int frame, double growth, TrTrackInfo& info);
    void warpSearch(const Orvane::GenRect<int>& warpRect, TrTrackInfo& info) const;
    bool matchAndRefine(int i, TrTrackInfo& info);
    void refineAffine(int i, TrTrackInfo& info);
    Verdict judge(int i, int frame, const dstring& behaviorName, TrTrackInfo& info);
    void key(int i, int frame, TrTrackInfo& info);
    bool refineLagged(int i, TrTrackInfo& info, int direction);
    bool reportStep(int i, int frame);
    bool stopBecause(int i, const char* why);

    Orvane::SafePtr<TrShot> shot;
    TrFeedback* feedback = nullptr;
    int beginFrame = -1;
    int firstFrame = -1;
    int step = 1;
    Array<TrTrackInfo> infos;
    std::map<int, Orvane::Image> searchCache;
    /// One per record, set where `track` returns false.
    std::vector<const char*> stopReasons;
    /// One per record, set by every `track`.
    std::vector<TrStepStatus> stepStatus;
    float rangeStart = 0;
    float rangeEnd = 0;
    bool useAffine = true;
    bool lagRefine = true;
    bool preciseSums = false;
    bool robust = false;
};
