#pragma once

#include "tools/track/TrTrackFile.h"
#include "tools/track/TrTrackFormat.h"

#include <string>
#include <vector>

/// The settings of one run of tavrix-track, as read from its arguments.
/// One table of options (TrCommandOptions.cpp) drives both the parser and
/// the usage text: an option is a row with its names, value, help and what
/// it sets here.
struct TrCommandOptions {
    /// Frame-file pattern (TrFramePattern); empty with `demo`.
    std::string input;
    bool demo = false;
    /// Tracks from --tracks files, then from --track, in argument order.
    std::vector<TrTrackSpec> tracks;
    /// Defaults for tracks that do not set their own.
    int patternWidth = 21;
    int patternHeight = 21;
    int searchWidth = 61;
    int searchHeight = 61;
    /// Whether --pattern / --search were given (the demo picks its own sizes
    /// otherwise).
    bool patternGiven = false;
    bool searchGiven = false;
    std::string colorMode = "luminance";
    /// Frame range; when unset, the sequence's first and last frame.
    bool hasFrom = false;
    int from = 0;
    bool hasTo = false;
    int to = 0;
    double tolerance = 0.8;
    std::string behavior = "default";
    /// --robust (the default) or --design: the driver's robust options,
    /// double-precision window sums, a free scale and the status column, or
    /// the designed tracker and today's results layout.
    bool robust = true;
    bool rotate = true;
    /// As given by --scale / --no-scale and --precise-sums /
    /// --no-precise-sums; the `…Given` flags say whether they were, and
    /// useScale() and usePreciseSums() fall back on the mode when not.
    bool scale = false;
    bool scaleGiven = false;
    bool stretch = false;
    bool preciseSums = false;
    bool preciseSumsGiven = false;
    /// --detect: tracks placed on this many corners of the first frame of
    /// the pass (0: none), written to `detectOut` before they are tracked.
    int detect = 0;
    std::string detectOut;
    /// Threads that follow the tracks; 0 for one per core.
    int jobs = 0;
    /// Threads that read frames ahead of the tracking; 0 reads on the
    /// tracking thread, -1 takes one per core up to four.
    int readers = -1;
    /// Results file (.csv or .json); empty writes CSV to standard output.
    std::string out;
    std::string overlayDir;
    std::string homographyFile;
    /// --export: results in another package's format as well (or, without
    /// --out, instead of the CSV on standard output); empty for none.
    std::string exportPath;
    /// --format: the export's format; empty to go by the extension.
    std::string exportFormat;
    /// Track files in other packages' formats and where their tracks start
    /// in `tracks`: they are read again for their positions once the frame
    /// size is known (placeImportedTracks).
    struct Import {
        std::string path;
        size_t first = 0;
    };
    std::vector<Import> imports;
    bool quiet = false;
    bool help = false;
    bool version = false;

    /// True when `out` names a JSON file.
    bool jsonOut() const;
    bool useScale() const { return scaleGiven ? scale : robust; }
    bool usePreciseSums() const { return preciseSumsGiven ? preciseSums : robust; }

    /// Reads the arguments (without the program name). Options take their
    /// value as the next argument or after "=". Throws
    /// IllegalArgumentException with a one-line message naming the option
    /// and the offending text. Track files are read here, so their errors
    /// surface before any frame is.
    static TrCommandOptions parse(const std::vector<std::string>& args);

    /// Sets the positions of the imported tracks for frames of `size`.
    void placeImportedTracks(const TrFrameSize& size);

    /// The usage text printed by --help.
    static const char* usage();
};

/// The failure behaviours a shot accepts.
bool isFailureBehavior(const std::string& name);
