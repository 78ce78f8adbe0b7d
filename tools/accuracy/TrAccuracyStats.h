#pragma once

#include "image/GenRect.h"
#include "tools/accuracy/TrAccuracyRun.h"
#include "tools/accuracy/TrAccuracyScenes.h"

#include <vector>

/// The errors and track counts of one category in one mode, gathered over
/// its clips or round trips.
///
/// An error sample is a track in a frame after its first, measured against
/// the truth, or one round trip's distance from its start. A track that
/// stopped leaves its later samples missing: they count against the shares
/// within a distance but not in the median, RMS or percentiles.
class TrAccuracyStats {
public:
    /// A clip's pass, against the clip's truth.
    void addClip(const TrAccuracyClip& clip, const TrPassResult& pass);
    /// A round trip from `start` that came back to `back`. `kept`: both
    /// passes followed the track to their last frame; `tracked`: both passes
    /// ended with the track reported Tracked.
    void addRoundTrip(const Orvane::GenPoint<double>& start, const Orvane::GenPoint<double>& back,
                      bool kept, bool tracked);
    /// Time spent in the tracker, and the steps it took.
    void addTime(double cpuSeconds, long steps);

    /// Error samples measured, and expected (measured or missing).
    int getMeasured() const { return int(errors.size()); }
    int getExpected() const { return expected; }
    /// Quantile `q` (0..1) of the measured errors, linearly interpolated; NaN
    /// without samples.
    double quantile(double q) const;
    double median() const { return quantile(0.5); }
    double rms() const;
    /// Share of the expected samples measured within `pixels` of the truth.
    double within(double pixels) const;

    int getTracks() const { return tracks; }
    /// Share of tracks followed to the last frame.
    double kept() const;
    /// Share of tracks followed to the last frame and ending within 1 px.
    double held() const;
    /// Tracks the occluder covered in some frame, and those of them that
    /// ended within 1 px.
    int getOccluded() const { return occluded; }
    int getRecovered() const { return recovered; }
    /// Tracks that ended more than 3 px from the truth while reported
    /// Tracked: following something else.
    int getFollowing() const { return following; }
    /// Tracks followed to the last frame and reported Tracked there, and
    /// those of them ending within 1 px: what a user would trust.
    int getTrackedToEnd() const { return trackedToEnd; }
    int getTrackedHeld() const { return trackedHeld; }
    /// Tracker CPU time per track and frame, in microseconds.
    double microsPerStep() const;

private:
    void addEnd(bool kept, double finalError, bool tracked);

    std::vector<double> errors;
    int expected = 0;
    int tracks = 0;
    int keptTracks = 0;
    int heldTracks = 0;
    int occluded = 0;
    int recovered = 0;
    int following = 0;
    int trackedToEnd = 0;
    int trackedHeld = 0;
    double cpuSeconds = 0;
    long steps = 0;
};
