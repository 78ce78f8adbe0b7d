#pragma once

#include "image/GenRect.h"
#include "image/Image.h"
#include "tools/accuracy/TrAccuracyMode.h"
#include "track/TrFollow.h"

#include <vector>

/// What one pass of the tracker gave, track by track.
struct TrPassResult {
    /// path[k][f]: track k's keyed position in frame f (0-based, in the
    /// order of the frames given), read from the shot after the pass; only
    /// where alive[k][f].
    std::vector<std::vector<Orvane::GenPoint<double>>> path;
    /// The frames each track had a result for: from the begin frame up to
    /// the frame before the one whose step returned false.
    std::vector<std::vector<bool>> alive;
    /// Each track's status after its last step.
    std::vector<TrStepStatus> last;
    /// Thread CPU time spent in TrFollow::track, and the number of calls.
    double cpuSeconds = 0;
    long steps = 0;
};

/// Tracks `starts` through `frames` with a stand-alone shot and the driver
/// set up as `mode` says, from the first frame to the last, or from the last
/// to the first when `backward`.
TrPassResult runAccuracyPass(const std::vector<Orvane::Image>& frames,
                             const std::vector<Orvane::GenPoint<double>>& starts,
                             const TrAccuracyMode& mode, bool backward = false);
