#pragma once

#include <cstdio>
#include <string>

/// A progress line rewritten in place on a terminal: frame, tracks alive,
/// frames per second and the time left.
class TrProgress {
public:
    /// Writes to `out` (not owned), usually standard error.
    explicit TrProgress(std::FILE* out) : out(out) {}

    /// Redraws the line after `done` of `total` frames in `seconds`.
    void update(int frame, int done, int total, int alive, int tracks, double seconds);
    /// Blanks the line so that a notice can be printed on its own.
    void clear();
    /// Ends the line.
    void finish();

    /// "frame 17 (17/100)  tracks 15/16  8.2 fps  0:10 left"; the rate and
    /// time left read "-" until a frame has taken measurable time.
    static std::string format(int frame, int done, int total, int alive, int tracks,
                              double seconds);

private:
    std::FILE* out;
    size_t width = 0;
};
