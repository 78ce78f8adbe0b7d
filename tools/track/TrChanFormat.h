#pragma once

#include "tools/track/TrTrackFormat.h"

/// The compositor's channel file, one per track, which its Import chan file
/// reads into a position knob:
///
///     1 0.500000 479.500000
///
/// frame, x, y, one line per keyed frame. The files are named from the
/// export's path: a path ending in ".chan" is a pattern, the track's name
/// going before the extension ("shot.chan" gives "shot.corner.chan"); any
/// other path is a directory that must exist ("dir" gives
/// "dir/corner.chan"). A "/" in a name becomes "_". On reading, the track is
/// named after its file: the file name less ".chan" and less everything up
/// to its last ".", so "shot.corner.chan" and "dir/corner.chan" both read as
/// "corner" (a name with a "." keeps only its last part).
///
/// Coordinates are the compositor's: pixels, origin at the bottom-left
/// corner, y up, the bottom-left pixel's centre at (0.5, 0.5), so x is ours
/// and y the frame height less ours. Frames are our frame numbers. Only
/// keyed frames are written: the knob's curve interpolates between them.
class TrChanWriter : public TrExportWriter {
public:
    using TrExportWriter::TrExportWriter;
    std::vector<TrExportFile> render(const std::vector<TrTrackResult>& tracks) const override;
    /// Where the track named `name` goes for the export path `path`.
    static std::string pathFor(const std::string& path, const std::string& name);
};

std::vector<TrImportedTrack> parseChanTracks(const std::string& text, const std::string& source,
                                             const TrFrameSize& size);
