#pragma once

#include "tools/track/TrTrackFormat.h"

/// A script for the node-based compositor, to paste or import: one Tracker4
/// node whose "tracks" table holds a row per track, its position as two
/// animated curves,
///
///     Tracker4 {
///      tracks { { 1 31 1 }
///     { { 5 1 20 enable e 1 } { 3 1 75 name name 1 } … 31 columns }
///     { { 1 "corner" {curve x1 0.500000 x2 …} {curve x1 479.500000 …}
///         0 0 1 0 0 {curve x1 0.012500 …} 0 1 -10.5 -10.5 10.5 10.5 … } }
///     }
///      reference_frame 1
///     }
///
/// with the error curve as 1 - score and the pattern and search boxes as
/// offsets from the track's centre. With the corner pin asked for, a
/// CornerPin2D node follows whose "to" corners are the frame's corners
/// carried by the plane's homography, keyed at the frames where the fit
/// solved; its "from" corners are the frame's. The table's 31 columns are
/// the node's as we know them from scripts it saved; the node matches
/// columns by name, and so do we on reading, so a difference in the
/// columns we leave at their defaults costs only those values.
///
/// Coordinates are the compositor's: pixels, origin at the bottom-left
/// corner, y up, the bottom-left pixel's centre at (0.5, 0.5), so x is ours
/// and y the frame height less ours. Frames are our frame numbers. Only
/// keyed frames are keyed in the curves, which interpolate between them.
class TrNukeWriter : public TrExportWriter {
public:
    using TrExportWriter::TrExportWriter;
    std::vector<TrExportFile> render(const std::vector<TrTrackResult>& tracks) const override;
};

/// Reads the rows of every Tracker4 node's "tracks" table: the "name",
/// "track_x" and "track_y" columns, whose curves must key the same frames.
/// Other nodes and knobs are skipped.
std::vector<TrImportedTrack> parseNukeTracks(const std::string& text, const std::string& source,
                                             const TrFrameSize& size);
