#pragma once

#include "image/GenRect.h"
#include "image/Image.h"
#include "image/ImageStore.h"
#include "krovel/AffineTransform.h"
#include "krovel/KrGenMatrix.h"

#include <memory>
#include <vector>

class AffineProblem;
class Matcher;
class Reducer;

/// A matrix handle whose copies own their elements. Assigning a plain handle
/// shares its storage as any handle does; copying or assigning another
/// TrDeepMatrix copies the elements in the source's layout, so a saved step
/// never shares storage with the working one, which the refinement replaces
/// and the warp reads. Saving and restoring a step allocates nothing once
/// the thread has done it before: an assignment writes into storage of the
/// same shape that it alone holds, and a copy takes the storage the last
/// copy of that shape let go of on the same thread.
class TrDeepMatrix : public KrGenMatrix<float> {
public:
    TrDeepMatrix() = default;
    TrDeepMatrix(const TrDeepMatrix& other);
    TrDeepMatrix(TrDeepMatrix&& other) noexcept = default;
    TrDeepMatrix& operator=(const TrDeepMatrix& other);
    TrDeepMatrix& operator=(TrDeepMatrix&& other) noexcept = default;
    using KrGenMatrix<float>::operator=;
    ~TrDeepMatrix();
};

/// The part of a track's working state that one step may change and that
/// every attempt of the step starts from. Copies are complete and own their
/// matrix: `saved = info.state()` and `info.state() = saved` are the whole
/// save and restore, so a field added here is saved and restored with the
/// rest.
struct TrStepState {
    /// Track position at the begin frame: the pattern's anchor.
    Orvane::GenPoint<float> origin;
    /// Pattern rectangle relative to the position, as the track stores it.
    Orvane::GenRect<double> patternRect;
    /// Absolute pattern rectangle in the begin frame, rounded edge by edge.
    Orvane::GenRect<int> patternBounds;
    /// Current position estimate.
    Orvane::GenPoint<float> position;
    /// Current shape.
    AffineTransform transform;
    /// Shape of the previous frame.
    AffineTransform prevTransform;
    /// 2x3 map from pattern offsets to search offsets.
    TrDeepMatrix matrix;
    /// Extrapolation factor of the shape prediction; 0 keeps the shape.
    double transformGain = 0;
    /// Smoothed displacement per frame.
    Orvane::GenPoint<double> velocity;
    /// Weight of the old velocity: 0 until the first keyed frame, then 0.6.
    double velocityWeight = 0;
    /// Position at the start of the frame, before prediction.
    Orvane::GenPoint<double> prevPosition;
    /// Position plus velocity, each coordinate rounded to float.
    Orvane::GenPoint<double> predicted;
    /// Offset returned by the matcher.
    Orvane::GenPoint<float> matchOffset;
    /// Translation returned by the affine refinement.
    Orvane::GenPoint<float> affineOffset;
    /// Quality of the last match: the matcher's score or the refinement's.
    double score = 0;
    /// Frames in a row tracked by prediction only.
    int failCount = 0;
};

/// A reduced search image the lagged refinement will come back for.
struct TrSearchSlot {
    /// The frame it was fetched at.
    int frame = 0;
    /// False once the refinement took it back: the store is free for reuse.
    bool held = false;
    Orvane::ImageStore store;
};

/// The working state of one track during a pass: the step state, which reads
/// as the record's own fields, and what lives for the whole pass. The record
/// owns its reducer and its matcher; it can be moved but not copied.
struct TrTrackInfo : TrStepState {
    TrTrackInfo();
    ~TrTrackInfo();
    TrTrackInfo(const TrTrackInfo&) = delete;
    TrTrackInfo& operator=(const TrTrackInfo&) = delete;
    TrTrackInfo(TrTrackInfo&& other) noexcept;
    // Not noexcept: image handles have no move assignment, and their copy
    // assignment is not declared noexcept.
    TrTrackInfo& operator=(TrTrackInfo&& other); // NOLINT(performance-noexcept-move-constructor)

    TrStepState& state() { return *this; }
    const TrStepState& state() const { return *this; }

    /// Reduced pattern, captured once at the begin frame.
    Orvane::Image pattern;
    /// The search image handed to the matcher, in the pattern's frame.
    Orvane::Image search;
    /// The reduced search region as fetched, in frame coordinates.
    Orvane::Image searchRaw;
    /// Next frame for the lagged refinement.
    int patternFrame = 0;
    /// The stores behind `searchRaw` and `search`, kept for the pass so that
    /// a step allocates no image: the frames the lagged refinement still
    /// needs (usually the last three), the search region when nothing is
    /// cached, and the warped search image.
    std::vector<TrSearchSlot> searchSlots;
    Orvane::ImageStore searchStore;
    Orvane::ImageStore warpStore;
    /// Made from the track's colour mode at the begin frame.
    std::unique_ptr<Reducer> reducer;
    /// Holds the pattern; made at the begin frame. Declared after the
    /// reducer, so it is deleted first.
    std::unique_ptr<Matcher> matcher;
    /// The refinement's problems, kept for the pass so that their storage
    /// serves every step: translation alone (the step's first solve and the
    /// lagged refinement), and translation with the track's shape switches.
    /// Two, because one problem switching between two and six parameters
    /// would resize its vectors on every solve.
    std::unique_ptr<AffineProblem> shiftProblem;
    std::unique_ptr<AffineProblem> shapeProblem;
};
