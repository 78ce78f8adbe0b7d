#pragma once

#include "base/Array.h"
#include "base/SafeObject.h"
#include "base/dstring.h"
#include "image/GenRect.h"
#include "image/Image.h"
#include "image/XformBicubic.h"
#include "track/TrModes.h"
#include "track/TrMotionCheck.h"
#include "track/TrShot.h"
#include "track/TrTrackInfo.h"

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
/// records, their reducers and matchers, and the cached search images. A
/// record keeps its working images for the pass, so that after a track's
/// first steps a step allocates no image.
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
    /// Ends the pass at `frame`, the last one tracked; the records stay until
    /// the next `begin`. With the guarded lagged refinement it re-solves the
    /// last two frames of every track not lost, which no later step reaches.
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
    /// On sets the guarded lagged refinement, coasting for `kRobustCoast`
    /// frames, the motion check at `kRobustSpreads` and the B-spline
    /// interpolation of the lagged re-solve; off sets all four back, which
    /// keeps the designed behaviour exactly. Either replaces what
    /// the single setters below chose before it. The spline takes the
    /// translation median on rendered photographs from 0.030 to 0.016 px.
    void setRobust(bool on);
    bool getRobust() const { return robust; }
    static constexpr int kRobustCoast = 16;
    static constexpr double kRobustSpreads = 4;

    /// The lagged refinement re-solves only frames the step keyed with a
    /// passing score, keeps the result only when it scores at least the
    /// tolerance and no worse than the step did, and never touches the begin
    /// frame, which is the user's placement. A re-solve that fails leaves
    /// the keys and the track alone. Off by default: every frame two steps
    /// behind is re-solved and keyed unchecked. Costs nothing; it mostly
    /// saves the solve, as the step's own shape usually scores higher.
    void setGuardedLagRefine(bool on) { guardedLag = on; }
    bool getGuardedLagRefine() const { return guardedLag; }

    /// Under the predicting behaviours ("predict", "default",
    /// "predictAndKey"), a failed frame takes the prediction from the last
    /// accepted frames, not the low-scoring attempt, and keeps their
    /// velocity and shape; each further failure in a row searches an area a
    /// quarter larger, and after `frames` of them the next failure stops the
    /// track. 0, the default, keeps the designed rule: the attempt's
    /// position and velocity stay, and the sixth failure stops the track.
    /// Costs the larger fetches while a track coasts.
    void setCoastFrames(int frames) { coastFrames = frames; }
    int getCoastFrames() const { return coastFrames; }

    /// The guarded re-solve fits the shape with the position, in one
    /// full-size solve with the refinement's interpolation, and keys the
    /// shape it found instead of the five-frame average. A shape fitted
    /// bilinearly is biased (a 1 % scale on a pure translation of a facade),
    /// and a position solved under it inherits up to 0.1 px; with the spline
    /// the accuracy suite's translation and rotation+zoom samples all come
    /// within 0.1 px. Off by default and not part of the robust mode: it
    /// costs about a fifth more CPU time a step, which takes the robust mode
    /// past 1.3 times the designed driver's. Needs setGuardedLagRefine.
    void setGuardedShapeFit(bool on) { guardedShape = on; }
    bool getGuardedShapeFit() const { return guardedShape; }

    /// A match whose miss of the prediction exceeds `spreads` times the
    /// spread of the track's recent misses (and at least `kMotionFloor`
    /// pixels, more while it coasts) fails, whatever it scores, so that
    /// occluders and repeated texture cannot take the track. 0, the default,
    /// judges by the score alone. Costs a few operations per step; a real
    /// jolt of the camera beyond the reach fails the frame, which coasting
    /// then carries.
    void setMotionCheck(double spreads) { motionSpreads = spreads; }
    double getMotionCheck() const { return motionSpreads; }
    static constexpr double kMotionFloor = 1.5;

    /// How the lagged refinement, which gives the position keyed last,
    /// samples the search image in its full-size solve
    /// (AffineProblem::setInterpolation). Bilinear by default. BSpline
    /// lessens that position's error, which follows the sub-pixel phase,
    /// several times over, at the price of a fit of the search image and dearer warps in
    /// that one solve (8 to 16 % more CPU time a step, measured on a busy
    /// machine). The step's own solves stay bilinear, and so do the last two
    /// frames of a pass unless the guarded refinement settles them at `end`.
    void setRefineInterpolation(Orvane::Interpolation how) { refineInterpolation = how; }
    Orvane::Interpolation getRefineInterpolation() const { return refineInterpolation; }

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
    /// How many reduced search images track `i` keeps for the lagged
    /// refinement: the frames it has not come back for yet.
    int getCachedSearchCount(int i) const;

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
    void reduceSearch(int frame, const Orvane::Image& fetched, TrTrackInfo& info);
    // The search cache: the store for a frame's reduced search image, and
    // taking it back (into `searchRaw`) for the lagged refinement.
    Orvane::ImageStore& cacheSearch(int frame, TrTrackInfo& info);
    bool takeCachedSearch(int frame, TrTrackInfo& info);
    bool matchAndRefine(int i, TrTrackInfo& info);
    void refineAffine(int i, TrTrackInfo& info);
    Verdict judge(int i, int frame, const dstring& behaviorName, TrTrackInfo& info);
    bool accepts(int i, const TrTrackInfo& info) const;
    Verdict carryOn(int i, int frame, TrBehavior behavior, TrTrackInfo& info);
    void coast(const TrStepState& saved, TrTrackInfo& info) const;
    void key(int i, int frame, TrTrackInfo& info);
    bool refineLagged(int i, TrTrackInfo& info, int direction);
    AffineTransform laggedAverage(int i, int p, int direction);
    void refineGuarded(int i, int frame, TrTrackInfo& info, int direction);
    void refineGuardedAt(int i, int p, TrTrackInfo& info, int direction);
    bool reportStep(int i, int frame);
    bool stopBecause(int i, const char* why);

    Orvane::SafePtr<TrShot> shot;
    TrFeedback* feedback = nullptr;
    int beginFrame = -1;
    int firstFrame = -1;
    int step = 1;
    Array<TrTrackInfo> infos;
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
    Orvane::Interpolation refineInterpolation = Orvane::Interpolation::Bilinear;
    bool guardedLag = false;
    bool guardedShape = false;
    int coastFrames = 0;
    double motionSpreads = 0;
    /// The direction of the pass's last step, for `end`.
    int passDirection = 1;
    /// One per record, reset at its begin frame; read only by the motion check.
    std::vector<TrMotionCheck> motion;
};
