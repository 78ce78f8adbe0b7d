#pragma once

#include <string>
#include <vector>

/// How the suite drives the tracker: one row per mode, one table for the
/// benchmark and the test.
struct TrAccuracyMode {
    std::string name;
    /// TrFollow::setRobust and TrFollow::setPreciseSums.
    bool robust = false;
    bool preciseSums = false;
    /// The refinement's free parameters beyond translation, on every track.
    bool rotate = true;
    bool scale = true;
    bool stretch = true;
    /// The shot's failure behaviour and tolerance.
    std::string behavior = "default";
    double tolerance = 0.8;
    /// Pattern and search area, square, in pixels.
    int pattern = 21;
    int search = 61;

    /// "design" runs the driver as the plug-in does: its defaults, rotation,
    /// scale and stretch free. "robust" adds the robust options and the
    /// precise window sums, the command-line tool's coming default.
    static const std::vector<TrAccuracyMode>& all();
    /// The row named `name`; any other throws IllegalArgumentException
    /// "unknown accuracy mode \"<name>\"".
    static const TrAccuracyMode& find(const std::string& name);
};
