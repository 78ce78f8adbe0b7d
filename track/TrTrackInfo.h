#pragma once

#include "image/GenRect.h"
#include "image/Image.h"
#include "krovel/AffineTransform.h"
#include "krovel/KrGenMatrix.h"

class Matcher;
class Reducer;

/// The working state of one track during a pass. The record owns its reducer
/// and its matcher and deletes them; it can be moved but not copied.
struct TrTrackInfo {
    TrTrackInfo() = default;
    ~TrTrackInfo();
    TrTrackInfo(const TrTrackInfo&) = delete;
    TrTrackInfo& operator=(const TrTrackInfo&) = delete;
    TrTrackInfo(TrTrackInfo&& other) noexcept;
    TrTrackInfo& operator=(TrTrackInfo&& other) noexcept;

    void swap(TrTrackInfo& other) noexcept;

    /// Track position at the begin frame: the pattern's anchor.
    Orvane::GenPoint<float> origin;
    /// Pattern rectangle relative to the position, as the track stores it.
    Orvane::GenRect<double> patternRect;
    /// Absolute pattern rectangle in the begin frame, rounded edge by edge.
    Orvane::GenRect<int> patternBounds;
    /// Reduced pattern, captured once at the begin frame.
    Orvane::Image pattern;
    /// The search image handed to the matcher, in the pattern's frame.
    Orvane::Image search;
    /// The reduced search region as fetched, in frame coordinates.
    Orvane::Image searchRaw;
    /// Current position estimate.
    Orvane::GenPoint<float> position;
    /// Current shape.
    AffineTransform transform;
    /// Shape of the previous frame.
    AffineTransform prevTransform;
    /// 2x3 map from pattern offsets to search offsets.
    KrGenMatrix<float> matrix;
    /// Extrapolation factor of the shape prediction; 0 keeps the shape.
    double transformGain = 0;
    /// Next frame for the lagged refinement.
    int patternFrame = 0;
    /// Smoothed displacement per frame.
    Orvane::GenPoint<double> velocity;
    /// Weight of the old velocity: 0 until the first keyed frame, then 0.6.
    double velocityWeight = 0;
    /// Made from the track's colour mode at the begin frame; owned.
    Reducer* reducer = nullptr;
    /// Holds the pattern; made at the begin frame; owned.
    Matcher* matcher = nullptr;
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
