#pragma once

#include "image/Image.h"
#include "tools/track/TrTrackRun.h"

#include <cstdio>
#include <string>

class TrSequence;

/// Draws the results of a pass over its frames: each frame becomes
/// DIR/overlay.NNNN.png with every track's path so far, the pattern (turned
/// and scaled by the track's transform), the search area and the track's
/// name; at the end DIR/path.png shows every path over the last frame.
///
/// Colours: green for a keyed match, orange for a predicted frame, red for a
/// lost track (its path only). Frames of any format are shown as 8-bit RGB
/// (float samples clamped to 0..1, one channel as grey). Text is rendered
/// with a system font; when none is found the rest is drawn and one notice
/// says so. The sequence is borrowed.
class TrOverlay : public TrRunSink {
public:
    /// Creates `dir` when missing; throws IllegalArgumentException naming it
    /// when it cannot be made.
    TrOverlay(TrSequence* sequence, const std::string& dir);

    /// Where the one "no font" notice goes; null for none.
    void setNotices(std::FILE* f) { notices = f; }

    void begin(const std::vector<TrTrackResult>& tracks, int from, int to) override;
    void frame(int frame, const std::vector<TrTrackResult>& tracks) override;
    void finish(const std::vector<TrTrackResult>& tracks, bool complete,
                const std::string& error) override;

    /// The file of `frame`: DIR/overlay.NNNN.png.
    std::string framePath(int frame) const;
    /// False when text rendering found no font (known after the first
    /// label).
    bool hasFont() const { return fontOk; }

    /// `img` as 8-bit RGB pixels, rows top first, in a buffer of
    /// width × height × 3 bytes.
    static void toRgb8(const Orvane::Image& img, unsigned char* out);

private:
    /// Picks the first font that renders, once; says so when none does.
    void chooseFont();
    void render(int frame, const std::vector<TrTrackResult>& tracks, bool summary,
                const std::string& path);

    TrSequence* sequence;
    std::string dir;
    std::FILE* notices = nullptr;
    bool fontChosen = false;
    bool fontOk = false;
    std::string font;
    bool anyFrame = false;
    int lastFrame = 0;
};
