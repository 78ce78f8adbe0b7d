#include "tools/track/TrProgress.h"

#include <cmath>

std::string TrProgress::format(int frame, int done, int total, int alive, int tracks,
                               double seconds) {
    char rate[32] = "-";
    char left[32] = "-";
    if (done > 0 && seconds > 0) {
        const double fps = done / seconds;
        std::snprintf(rate, sizeof rate, "%.1f", fps);
        const long remaining = std::lround((total - done) / fps);
        std::snprintf(left, sizeof left, "%ld:%02ld", remaining / 60, remaining % 60);
    }
    char line[160];
    std::snprintf(line, sizeof line, "frame %d (%d/%d)  tracks %d/%d  %s fps  %s left", frame, done,
                  total, alive, tracks, rate, left);
    return line;
}

void TrProgress::update(int frame, int done, int total, int alive, int tracks, double seconds) {
    const std::string line = format(frame, done, total, alive, tracks, seconds);
    // Pad over a longer previous line instead of clearing, so the line does
    // not flicker.
    std::fprintf(out, "\r%s%*s", line.c_str(), int(width > line.size() ? width - line.size() : 0),
                 "");
    std::fflush(out);
    width = line.size();
}

void TrProgress::clear() {
    if (width == 0)
        return;
    std::fprintf(out, "\r%*s\r", int(width), "");
    width = 0;
}

void TrProgress::finish() {
    if (width == 0)
        return;
    std::fprintf(out, "\n");
    std::fflush(out);
    width = 0;
}
