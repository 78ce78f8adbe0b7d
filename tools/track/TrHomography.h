#pragma once

#include "image/GenRect.h"
#include "tools/track/TrTrackRun.h"

#include <string>
#include <vector>

/// The plane's motion at one frame: the 3×3 homography (row-major,
/// h[8] = 1) that maps a pixel position (x, y, 1) in the base frame to the
/// position in this frame, in the tracks' pixel coordinates.
struct TrHomographyFrame {
    int frame = 0;
    double h[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    /// Tracks that counted at this frame (matched and keyed here and in the
    /// base frame).
    int tracks = 0;
    /// False when fewer than four tracks counted or the fit failed; the
    /// matrix is then the nearest solved frame's, or the solver's last step.
    bool solved = true;
};

/// Fits one homography per frame from `from` to `to` (either order), relative
/// to `from`, with KrMatchmove. Each track's observation at a frame weighs
/// its score where the frame was keyed and nothing where it was predicted or
/// the track was lost. Positions are scaled to about ±1 around the centre of
/// `frameBounds` for the fit, so that the solver's fixed difference step
/// suits every parameter. Needs at least four tracks (IllegalArgumentException
/// otherwise).
std::vector<TrHomographyFrame> solveHomographies(const std::vector<TrTrackResult>& tracks, int from,
                                                 int to, const Orvane::GenRect<int>& frameBounds);

/// Writes the frames as JSON:
///     {"baseFrame": 1, "frames": [{"frame": 1, "tracks": 16, "solved": true,
///       "matrix": [[1, 0, 0], [0, 1, 0], [0, 0, 1]]}, …]}
/// Throws IllegalArgumentException naming the file when it cannot be written.
void writeHomographies(const std::string& path, int baseFrame,
                       const std::vector<TrHomographyFrame>& frames);
