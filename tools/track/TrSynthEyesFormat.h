#pragma once

#include "tools/track/TrTrackFormat.h"

/// The matchmover's 2-D tracker paths, one line per tracker and frame:
///
///     corner 1 -0.9984375000 0.9979166667
///
/// name, frame, u, v, grouped by tracker; blanks in a name become "_". On
/// reading, a fifth word (the tracker's status) is allowed and ignored.
///
/// u and v run from -1 at the left and bottom edges of the frame to +1 at
/// the right and top edges, 0 at its centre, y up: u = 2 x / width - 1,
/// v = 1 - 2 y / height, so both ways need the frame size. That the ends
/// are the frame's edges rather than the outer pixels' centres is our
/// reading of the package's documentation. Frames are our frame numbers.
/// Only keyed frames are written: the package treats a tracker's listed
/// frames as valid and the others as untracked.
class TrSynthEyesWriter : public TrExportWriter {
public:
    using TrExportWriter::TrExportWriter;
    std::vector<TrExportFile> render(const std::vector<TrTrackResult>& tracks) const override;
};

/// A tracker's lines need not be together; its points keep file order.
std::vector<TrImportedTrack>
parseSynthEyesTracks(const std::string& text, const std::string& source, const TrFrameSize& size);

/// Whether the first line that holds anything is a name, a whole frame and
/// two numbers (and maybe a status).
bool looksLikeSynthEyes(const std::string& text);
