#pragma once

#include "tools/track/TrTrackFormat.h"

/// The matchmover's v4 2-D point file, as its own export and import of 2-D
/// tracks write and read it:
///
///     2                    number of points
///     corner               a point's name, the whole line
///     0                    its colour index
///     3                    number of frames that follow
///     1 0.500000 479.500000
///     …                    frame, x, y for each frame
///
/// Coordinates are pixels with the origin at the bottom-left corner of the
/// frame and y up; the bottom-left pixel's centre is (0.5, 0.5), so x is
/// ours and y is the frame height less ours. That the origin is the corner
/// rather than the first pixel's centre is our reading of the package's
/// documentation; check one point by eye when a plate's tracks must line up
/// to a tenth of a pixel. Frames are our frame numbers; the package counts a
/// camera's frames from 1, so give the camera the sequence's first frame.
/// Only keyed frames are written: a point's frames there are its tracked
/// ones, and gaps stay gaps.
class TrEqualizerWriter : public TrExportWriter {
public:
    using TrExportWriter::TrExportWriter;
    std::vector<TrExportFile> render(const std::vector<TrTrackResult>& tracks) const override;
};

std::vector<TrImportedTrack>
parseEqualizerTracks(const std::string& text, const std::string& source, const TrFrameSize& size);

/// Whether the first line that holds anything is a whole number alone.
bool looksLikeEqualizer(const std::string& text);
