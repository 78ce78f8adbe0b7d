#pragma once

#include "tools/track/TrTrackFormat.h"

/// "Adobe After Effects 8.0 Keyframe Data", the text that the compositor
/// pastes from its clipboard onto a layer or a track point:
///
///     Adobe After Effects 8.0 Keyframe Data
///
///     <TAB>Units Per Second<TAB>24
///     <TAB>Source Width<TAB>640
///     <TAB>Source Height<TAB>480
///     <TAB>Source Pixel Aspect Ratio<TAB>1
///     <TAB>Comp Pixel Aspect Ratio<TAB>1
///
///     Motion Trackers<TAB>Tracker #1<TAB>corner<TAB>Feature Center
///     <TAB>Frame<TAB>X pixels<TAB>Y pixels<TAB>
///     <TAB>1<TAB>0.500000<TAB>0.500000<TAB>
///
///     End of Keyframe Data
///
/// One "Feature Center" block per track, named after it (tabs in a name
/// become blanks). The layout is the one the compositor writes for its own
/// motion trackers, as we know it from its clipboard text; the rate is not
/// known to a pass and is written as 24.
///
/// Coordinates are the compositor's layer pixels: origin at the top-left
/// corner, y down, pixel centres at +0.5 — ours unchanged, so reading needs
/// no frame size. Frames are our frame numbers; the compositor places a
/// pasted path at its current time, so only their spacing matters there.
/// Only keyed frames are written: the compositor interpolates between keys.
class TrAfterEffectsWriter : public TrExportWriter {
public:
    using TrExportWriter::TrExportWriter;
    std::vector<TrExportFile> render(const std::vector<TrTrackResult>& tracks) const override;
};

/// Reads the "Feature Center" blocks back, one track each; other blocks
/// (attach points, confidence, layer transforms) are skipped.
std::vector<TrImportedTrack> parseAfterEffectsTracks(const std::string& text,
                                                     const std::string& source,
                                                     const TrFrameSize& size);

/// Whether `text` starts with the keyframe data's first line.
bool looksLikeAfterEffects(const std::string& text);
