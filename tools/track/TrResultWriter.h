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
///
/// With `status`, a column after keyed says "tracked" or "coasted" for each
/// row, and a lost track gets one last row at the frame it was lost at,
/// status "lost", keyed 0, at the position it last had (where it was placed
/// when lost at the first frame), with the score and transform left empty:
///
///     track,frame,x,y,score,keyed,status,tx,ty,ro,sc,st0,st1
class TrCsvWriter : public TrRunSink {
public:
    explicit TrCsvWriter(std::ostream& out, bool status = false) : out(out), status(status) {}

    void begin(const std::vector<TrTrackResult>& tracks, int from, int to) override;
    void frame(int frame, const std::vector<TrTrackResult>& tracks) override;
    void finish(const std::vector<TrTrackResult>& tracks, bool complete,
                const std::string& error) override;

    static const char* header(bool status = false);
    /// One row, without the line end.
    static std::string row(const std::string& track, const TrSample& s, bool status = false);
    /// The status layout's row for the frame `r` was lost at.
    static std::string lostRow(const TrTrackResult& r);
    /// `field` quoted when it holds a comma, a quote or a line break.
    static std::string field(const std::string& text);

private:
    std::ostream& out;
    bool status;
};

/// Where a lost track last was: its last sample, or its placed position.
void lastPosition(const TrTrackResult& r, double& x, double& y);

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
///
/// With `status`, each sample has "status" after "keyed", as in the CSV, and
/// a lost track has a last sample at the frame it was lost at with
/// "status": "lost", "keyed": false, its last position, and null for
/// "score" and "transform".
class TrJsonWriter : public TrRunSink {
public:
    explicit TrJsonWriter(std::ostream& out, bool status = false) : out(out), status(status) {}

    void begin(const std::vector<TrTrackResult>& tracks, int from, int to) override;
    void frame(int frame, const std::vector<TrTrackResult>& tracks) override;
    void finish(const std::vector<TrTrackResult>& tracks, bool complete,
                const std::string& error) override;

private:
    void sample(const std::string& track, const TrSample& s);
    void lostSample(const TrTrackResult& r);

    std::ostream& out;
    bool status;
    bool first = true;
};
