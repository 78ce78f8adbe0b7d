#pragma once

#include "tools/track/TrTrackRun.h"

#include <ostream>
#include <string>

/// Writes a pass's results as CSV, one row per track and frame, flushing
/// after every frame so that a failure later in the pass loses nothing:
///
///     track,frame,x,y,score,keyed,tx,ty,ro,sc,st0,st1
///
/// x, y are pixels (origin top-left, pixel centres at +0.5); keyed is 1 when
/// the position was written into the track's curve; tx … st1 are the
/// pattern's affine transform (translation in pixels, rotation in radians,
/// uniform scale, the two stretch factors). A lost track's rows stop at the
/// last frame it was followed into. The stream is borrowed.
class TrCsvWriter : public TrRunSink {
public:
    explicit TrCsvWriter(std::ostream& out) : out(out) {}

    void begin(const std::vector<TrTrackResult>& tracks, int from, int to) override;
    void frame(int frame, const std::vector<TrTrackResult>& tracks) override;
    void finish(const std::vector<TrTrackResult>& tracks, bool complete,
                const std::string& error) override;

    static const char* header();
    /// One row, without the line end.
    static std::string row(const std::string& track, const TrSample& s);
    /// `field` quoted when it holds a comma, a quote or a line break.
    static std::string field(const std::string& text);

private:
    std::ostream& out;
};

/// Writes a pass's results as one JSON document, the samples streamed as
/// they become final and the document closed by `finish`:
///
///     {"from": 1, "to": 30,
///      "tracks": [{"name": "1", "position": [x, y], "pattern": [w, h],
///                  "search": [w, h], "colorMode": "luminance"}],
///      "samples": [{"track": "1", "frame": 1, "x": …, "y": …, "score": …,
///                   "keyed": true, "transform": {"tx": …, "ty": …, "ro": …,
///                   "sc": …, "st0": …, "st1": …}}],
///      "lost": [{"track": "3", "frame": 17}],
///      "complete": true}
///
/// After a failure "complete" is false and "error" says what went wrong; the
/// document is still well formed. The stream is borrowed.
class TrJsonWriter : public TrRunSink {
public:
    explicit TrJsonWriter(std::ostream& out) : out(out) {}

    void begin(const std::vector<TrTrackResult>& tracks, int from, int to) override;
    void frame(int frame, const std::vector<TrTrackResult>& tracks) override;
    void finish(const std::vector<TrTrackResult>& tracks, bool complete,
                const std::string& error) override;

private:
    std::ostream& out;
    bool first = true;
};
