#pragma once

#include "tools/track/TrTrackFormat.h"

/// The 2-D tracks text file that the matchmover exports and imports:
///
///     # "Name"
///     # clipNumber
///     # frameCount
///     # frame, xpos, ypos, similarity
///
///     "corner"
///     1
///     3
///     1 0.500000 479.500000 0.987500
///
/// A block per track after a blank line: the quoted name (a quote in a name
/// becomes an apostrophe), the clip number (1: a pass follows one clip), the
/// number of frames, then frame, x, y and the match similarity, for which we
/// write our score. Lines starting with "#" are comments.
///
/// Coordinates are pixels with the origin at the bottom-left corner and y
/// up, the bottom-left pixel's centre at (0.5, 0.5): x is ours, y the frame
/// height less ours. The origin and y direction are as we know the package's
/// documentation; the half-pixel rule is our assumption. Frames are our
/// frame numbers. Every frame a track was followed into is written,
/// predicted ones included, since the similarity column carries their low
/// score and the package weighs its tracks by it.
class TrPFTrackWriter : public TrExportWriter {
public:
    using TrExportWriter::TrExportWriter;
    std::vector<TrExportFile> render(const std::vector<TrTrackResult>& tracks) const override;
};

/// The similarity column is optional on reading and ignored.
std::vector<TrImportedTrack> parsePFTrackTracks(const std::string& text, const std::string& source,
                                                const TrFrameSize& size);

/// Whether the first line that is neither blank nor a comment is quoted.
bool looksLikePFTrack(const std::string& text);
