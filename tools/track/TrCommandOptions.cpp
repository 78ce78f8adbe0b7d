#include "tools/track/TrCommandOptions.h"

#include "base/Exception.h"
#include "tools/track/TrFormatTable.h"
#include "tools/track/TrNumbers.h"
#include "track/Sequence/TrFramePattern.h"
#include "track/TrModes.h"

#include <cstring>

namespace {

[[noreturn]] void fail(const std::string& message) {
    throw IllegalArgumentException(dstring(message));
}

bool endsWith(const std::string& s, const std::string& tail) {
    return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

// What the options gather besides their settings: tracks are numbered once
// every file is read, so they wait until the arguments are through.
struct Parsing {
    TrCommandOptions& o;
    std::vector<TrTrackSpec> lineTracks;
    std::vector<std::string> trackFiles;
};

// An option as given: the name as typed (messages repeat it) and its value.
struct Given {
    const std::string& name;
    const std::string& value;
};

// A name of a mode table with its line of help.
struct Choice {
    const char* name;
    const char* help;
};

template <class Mode, int N> std::vector<Choice> choicesOf(const TrModeName<Mode> (&table)[N]) {
    std::vector<Choice> list;
    for (const TrModeName<Mode>& row : table)
        list.push_back({row.name, row.help});
    return list;
}

std::vector<Choice> behaviors() {
    return choicesOf(TrModes::behaviors);
}

std::vector<Choice> colorModes() {
    return choicesOf(TrModes::colorModes);
}

std::vector<Choice> formats() {
    std::vector<Choice> list;
    for (const TrTrackFormat& f : TrFormatTable::formats())
        list.push_back({f.name, f.help});
    return list;
}

std::string onOff(bool on) {
    return on ? "on" : "off";
}

const char* const kByMode = "on with --robust, off with --design";
const int kMaxDetect = 10000;

// One row of the command line: its names, the placeholder of its value (null
// for a switch, which takes none), its help, what it does, and optionally
// the default it shows (read from a default TrCommandOptions) and the names
// it chooses from. A row without a name heads a group in the usage text.
struct Option {
    const char* name;
    const char* shortName;
    const char* value;
    const char* help;
    void (*apply)(Parsing& p, const Given& g);
    std::string (*shown)(const TrCommandOptions& defaults);
    std::vector<Choice> (*choices)();
};

const Option kOptions[] = {
    {nullptr, nullptr, nullptr, "Tracks:", nullptr, nullptr, nullptr},
    {"--track", nullptr, "X,Y", "place a track (repeatable)",
     [](Parsing& p, const Given& g) {
         const TrNumbers::Point at = TrNumbers::parsePoint(g.value, g.name);
         TrTrackSpec spec;
         spec.x = at.x;
         spec.y = at.y;
         p.lineTracks.push_back(spec);
     },
     nullptr, nullptr},
    {"--tracks", nullptr, "FILE.json",
     "tracks from a file: {\"tracks\": [{\"name\": \"a\", \"position\": [x,y], \"pattern\": "
     "[w,h], \"search\": [w,h], \"colorMode\": \"red\"}]}, or one of the --format files, "
     "each track starting where it is at --from (or at its first frame)",
     [](Parsing& p, const Given& g) { p.trackFiles.push_back(g.value); }, nullptr, nullptr},
    {"--pattern", nullptr, "WxH", "pattern size",
     [](Parsing& p, const Given& g) {
         const TrNumbers::Size s = TrNumbers::parseSize(g.value, g.name);
         p.o.patternWidth = s.width;
         p.o.patternHeight = s.height;
         p.o.patternGiven = true;
     },
     [](const TrCommandOptions& d) {
         return std::to_string(d.patternWidth) + "x" + std::to_string(d.patternHeight);
     },
     nullptr},
    {"--search", nullptr, "WxH", "search area",
     [](Parsing& p, const Given& g) {
         const TrNumbers::Size s = TrNumbers::parseSize(g.value, g.name);
         p.o.searchWidth = s.width;
         p.o.searchHeight = s.height;
         p.o.searchGiven = true;
     },
     [](const TrCommandOptions& d) {
         return std::to_string(d.searchWidth) + "x" + std::to_string(d.searchHeight);
     },
     nullptr},
    {"--detect", nullptr, "N",
     "place N tracks on the strongest corners of the first frame of the pass, at least the "
     "pattern's larger side apart, the search size in from every edge and each with enough "
     "texture; write them to --detect-out for --tracks to read back (edited or not), then "
     "track them",
     [](Parsing& p, const Given& g) {
         p.o.detect = TrNumbers::parseInt(g.value, g.name);
         if (p.o.detect < 1 || p.o.detect > kMaxDetect)
             fail(g.name + ": must lie between 1 and " + std::to_string(kMaxDetect) + ", got \"" +
                  g.value + "\"");
     },
     nullptr, nullptr},
    {"--detect-out", nullptr, "FILE.json", "the track file --detect writes",
     [](Parsing& p, const Given& g) {
         if (!endsWith(g.value, ".json"))
             fail(g.name + ": the file must end in .json, got \"" + g.value + "\"");
         p.o.detectOut = g.value;
     },
     nullptr, nullptr},
    {"--color-mode", nullptr, "MODE", "what the tracks are matched on:",
     [](Parsing& p, const Given& g) {
         if (!isColorMode(g.value))
             fail("unknown color mode \"" + g.value + "\" (expected one of " + colorModeList() +
                  ")");
         p.o.colorMode = g.value;
     },
     [](const TrCommandOptions& d) { return d.colorMode; }, colorModes},

    {nullptr, nullptr, nullptr, "Tracking:", nullptr, nullptr, nullptr},
    {"--robust", nullptr, nullptr,
     "robust tracking, the default: the tracker's robust options, double-precision window "
     "sums and a free scale; a pattern with too little texture is not started (it is lost at "
     "the first frame), and the results have a status column",
     [](Parsing& p, const Given&) { p.o.robust = true; }, nullptr, nullptr},
    {"--design", nullptr, nullptr,
     "the designed tracker exactly: no robust options, single-precision window sums, no "
     "scale, and the results without the status column. Wherever they stand, --scale, "
     "--no-scale, --precise-sums and --no-precise-sums override either mode",
     [](Parsing& p, const Given&) { p.o.robust = false; }, nullptr, nullptr},
    {"--from", nullptr, "N", "first frame of the pass (default: the sequence's first)",
     [](Parsing& p, const Given& g) {
         p.o.from = TrNumbers::parseInt(g.value, g.name);
         p.o.hasFrom = true;
     },
     nullptr, nullptr},
    {"--to", nullptr, "N",
     "last frame of the pass (default: the sequence's last); backward when below --from",
     [](Parsing& p, const Given& g) {
         p.o.to = TrNumbers::parseInt(g.value, g.name);
         p.o.hasTo = true;
     },
     nullptr, nullptr},
    {"--tolerance", nullptr, "T", "score below which a match fails, -1 to 1",
     [](Parsing& p, const Given& g) {
         p.o.tolerance = TrNumbers::parseDouble(g.value, g.name);
         if (p.o.tolerance < -1 || p.o.tolerance > 1)
             fail(g.name + ": must lie between -1 and 1, got \"" + g.value + "\"");
     },
     [](const TrCommandOptions& d) { return TrNumbers::text(d.tolerance); }, nullptr},
    {"--behavior", nullptr, "B", "what a track does when a match fails:",
     [](Parsing& p, const Given& g) {
         if (!isFailureBehavior(g.value))
             fail("unknown failure behavior \"" + g.value + "\" (expected one of " +
                  TrModes::behaviorList() + ")");
         p.o.behavior = g.value;
     },
     [](const TrCommandOptions& d) { return d.behavior; }, behaviors},
    {"--rotate", nullptr, nullptr, "fit rotation",
     [](Parsing& p, const Given&) { p.o.rotate = true; },
     [](const TrCommandOptions& d) { return onOff(d.rotate); }, nullptr},
    {"--no-rotate", nullptr, nullptr, "fit no rotation",
     [](Parsing& p, const Given&) { p.o.rotate = false; }, nullptr, nullptr},
    {"--scale", nullptr, nullptr, "fit a uniform scale",
     [](Parsing& p, const Given&) { p.o.scale = p.o.scaleGiven = true; },
     [](const TrCommandOptions&) { return std::string(kByMode); }, nullptr},
    {"--no-scale", nullptr, nullptr, "fit no scale",
     [](Parsing& p, const Given&) {
         p.o.scale = false;
         p.o.scaleGiven = true;
     },
     nullptr, nullptr},
    {"--stretch", nullptr, nullptr, "fit a stretch",
     [](Parsing& p, const Given&) { p.o.stretch = true; },
     [](const TrCommandOptions& d) { return onOff(d.stretch); }, nullptr},
    {"--no-stretch", nullptr, nullptr, "fit no stretch",
     [](Parsing& p, const Given&) { p.o.stretch = false; }, nullptr, nullptr},
    {"--precise-sums", nullptr, nullptr,
     "double-precision window sums (bright, low-contrast footage)",
     [](Parsing& p, const Given&) { p.o.preciseSums = p.o.preciseSumsGiven = true; },
     [](const TrCommandOptions&) { return std::string(kByMode); }, nullptr},
    {"--no-precise-sums", nullptr, nullptr, "single-precision window sums, as designed",
     [](Parsing& p, const Given&) {
         p.o.preciseSums = false;
         p.o.preciseSumsGiven = true;
     },
     nullptr, nullptr},
    {"--jobs", "-j", "N",
     "threads the tracks are spread over, results the same for any N; 1 tracks on the main "
     "thread alone. The summary's time per track and frame is the tracking CPU time summed "
     "over the jobs, divided by the tracks followed into each frame (default: one per core)",
     [](Parsing& p, const Given& g) {
         p.o.jobs = TrNumbers::parseInt(g.value, g.name);
         if (p.o.jobs < 1)
             fail(g.name + ": must be at least 1, got \"" + g.value + "\"");
     },
     nullptr, nullptr},
    {"--readers", nullptr, "N",
     "threads that read and decode frames ahead of the tracking; 0 reads them on the tracking "
     "thread, so that --jobs 1 --readers 0 runs the whole pass on one core (default: one per "
     "core, up to four)",
     [](Parsing& p, const Given& g) {
         p.o.readers = TrNumbers::parseInt(g.value, g.name);
         if (p.o.readers < 0)
             fail(g.name + ": must be at least 0, got \"" + g.value + "\"");
     },
     nullptr, nullptr},

    {nullptr, nullptr, nullptr, "Output:", nullptr, nullptr, nullptr},
    {"--out", "-o", "FILE.csv|.json", "results (default: CSV on standard output)",
     [](Parsing& p, const Given& g) {
         if (g.value.empty() || (!endsWith(g.value, ".csv") && !endsWith(g.value, ".json")))
             fail(g.name + ": the file must end in .csv or .json, got \"" + g.value + "\"");
         p.o.out = g.value;
     },
     nullptr, nullptr},
    {"--overlay", nullptr, "DIR",
     "each frame as DIR/overlay.NNNN.png with the tracks drawn, and DIR/path.png with every "
     "path",
     [](Parsing& p, const Given& g) {
         if (g.value.empty())
             fail(g.name + " needs a directory");
         p.o.overlayDir = g.value;
     },
     nullptr, nullptr},
    {"--homography", nullptr, "FILE.json",
     "one 3x3 matrix per frame relative to the first frame of the range (needs four or more "
     "tracks)",
     [](Parsing& p, const Given& g) {
         if (!endsWith(g.value, ".json"))
             fail(g.name + ": the file must end in .json, got \"" + g.value + "\"");
         p.o.homographyFile = g.value;
     },
     nullptr, nullptr},
    {"--export", nullptr, "FILE",
     "results in another package's format as well (instead of the CSV on standard output "
     "without --out)",
     [](Parsing& p, const Given& g) {
         if (g.value.empty())
             fail(g.name + " needs a file");
         p.o.exportPath = g.value;
     },
     nullptr, nullptr},
    {"--format", nullptr, "NAME", "the --export format, when its extension does not tell:",
     [](Parsing& p, const Given& g) { p.o.exportFormat = g.value; }, nullptr, formats},
    {"--quiet", "-q", nullptr, "no progress line, notices or summary",
     [](Parsing& p, const Given&) { p.o.quiet = true; }, nullptr, nullptr},
    {"--demo", nullptr, nullptr,
     "track a built-in synthetic clip with known motion (pattern 20x20 and search 40x40 unless "
     "given)",
     [](Parsing& p, const Given&) { p.o.demo = true; }, nullptr, nullptr},
    {"--help", "-h", nullptr, "this text", [](Parsing& p, const Given&) { p.o.help = true; },
     nullptr, nullptr},
    {"--version", nullptr, nullptr, "the program's name and version",
     [](Parsing& p, const Given&) { p.o.version = true; }, nullptr, nullptr},
};

const Option* findOption(const std::string& name) {
    for (const Option& row : kOptions)
        if (row.name && (name == row.name || (row.shortName && name == row.shortName)))
            return &row;
    return nullptr;
}

// Reads the arguments in order; an option's value is the next argument or,
// for a long name, the text after "=".
void readArguments(Parsing& p, const std::vector<std::string>& args) {
    bool onlyInputs = false;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (onlyInputs || arg.size() < 2 || arg[0] != '-' || arg == "-") {
            if (!p.o.input.empty())
                fail("more than one frame pattern: \"" + p.o.input + "\" and \"" + arg + "\"");
            p.o.input = arg;
            continue;
        }
        if (arg == "--") {
            onlyInputs = true;
            continue;
        }
        std::string name = arg, value;
        bool hasValue = false;
        const size_t eq = arg.find('=');
        if (arg.compare(0, 2, "--") == 0 && eq != std::string::npos) {
            name = arg.substr(0, eq);
            value = arg.substr(eq + 1);
            hasValue = true;
        }
        const Option* option = findOption(name);
        if (!option)
            fail("unknown option \"" + name + "\" (see --help)");
        if (!option->value && hasValue)
            fail(name + " takes no value");
        if (option->value && !hasValue) {
            if (i + 1 >= args.size())
                fail(name + " needs a value");
            value = args[++i];
        }
        option->apply(p, Given{name, value});
    }
}

void checkInput(const Parsing& p) {
    const TrCommandOptions& o = p.o;
    if (o.demo && !o.input.empty())
        fail("--demo tracks its own synthetic clip; drop the frame pattern \"" + o.input + "\"");
    if (!o.demo && o.input.empty())
        fail("no frame pattern given (e.g. shots/plate.####.png), nor --demo");
    if (!o.demo)
        TrFramePattern::parse(o.input);
    if (o.demo && (!p.lineTracks.empty() || !p.trackFiles.empty()))
        fail("--demo places its own tracks; --track and --tracks cannot be used with it");
}

void checkDetect(const Parsing& p) {
    const TrCommandOptions& o = p.o;
    if (!o.detectOut.empty() && o.detect == 0)
        fail("--detect-out names the file of --detect N, which is not given");
    if (o.detect == 0)
        return;
    if (o.detectOut.empty())
        fail("--detect needs --detect-out FILE.json to write its tracks to");
    if (o.demo)
        fail("--demo places its own tracks; --detect cannot be used with it");
    if (!p.lineTracks.empty() || !p.trackFiles.empty())
        fail("--detect places its own tracks; --track and --tracks cannot be used with it");
    if (o.searchWidth <= o.patternWidth || o.searchHeight <= o.patternHeight)
        fail("the search area must be larger than the pattern");
}

// A track file of ours, or of a package the format table reads; the latter's
// positions wait for the frame size.
std::vector<TrTrackSpec> readTracks(Parsing& p, const std::string& file, int firstNumber) {
    if (endsWith(file, ".json"))
        return readTrackFile(file, firstNumber);
    const std::string text = readTrackText(file);
    const TrTrackFormat* format = TrFormatTable::forImport(file, text);
    if (!format)
        return parseTrackFile(text, file, firstNumber);
    p.o.imports.push_back({file, p.o.tracks.size()});
    return TrFormatTable::startsOf(format->parse(text, file, TrFrameSize()), file, p.o.hasFrom,
                                   p.o.from);
}

void checkExport(const TrCommandOptions& o) {
    if (o.exportPath.empty() && !o.exportFormat.empty())
        fail("--format names the format of --export FILE, which is not given");
    if (!o.exportPath.empty())
        TrFormatTable::forExport(o.exportFormat, o.exportPath);
}

// Tracks from files first, in argument order, then those of --track, each
// numbered after the tracks before it.
void gatherTracks(Parsing& p) {
    std::vector<TrTrackSpec>& tracks = p.o.tracks;
    for (const std::string& file : p.trackFiles) {
        const std::vector<TrTrackSpec> more = readTracks(p, file, int(tracks.size()) + 1);
        for (const TrTrackSpec& s : more)
            for (const TrTrackSpec& t : tracks)
                if (s.name == t.name)
                    fail(file + ": a second track named \"" + s.name + "\"");
        tracks.insert(tracks.end(), more.begin(), more.end());
    }
    for (TrTrackSpec& spec : p.lineTracks) {
        spec.name = std::to_string(tracks.size() + 1);
        for (const TrTrackSpec& t : tracks)
            if (t.name == spec.name)
                fail("--track: the name \"" + spec.name + "\" is already taken by a track file");
        tracks.push_back(spec);
    }
    if (!p.o.demo && p.o.detect == 0 && tracks.empty())
        fail("no tracks: give --track X,Y or --tracks FILE.json");
}

// Per-track sizes fall back to the defaults; the search area must leave the
// pattern room to move.
void completeTracks(TrCommandOptions& o) {
    for (TrTrackSpec& s : o.tracks) {
        if (s.patternWidth == 0) {
            s.patternWidth = o.patternWidth;
            s.patternHeight = o.patternHeight;
        }
        if (s.searchWidth == 0) {
            s.searchWidth = o.searchWidth;
            s.searchHeight = o.searchHeight;
        }
        if (s.colorMode.empty())
            s.colorMode = o.colorMode;
        if (s.searchWidth <= s.patternWidth || s.searchHeight <= s.patternHeight)
            fail("track \"" + s.name + "\": the search area " + std::to_string(s.searchWidth) +
                 "x" + std::to_string(s.searchHeight) + " must be larger than the pattern " +
                 std::to_string(s.patternWidth) + "x" + std::to_string(s.patternHeight));
    }
    if (o.demo && (o.searchWidth <= o.patternWidth || o.searchHeight <= o.patternHeight))
        fail("the search area must be larger than the pattern");
}

const size_t kHelpColumn = 25;
const size_t kWidth = 79;

// `text` broken at blanks into lines that fit kWidth when the first starts
// at kHelpColumn; the others are indented to it.
std::string wrap(const std::string& text) {
    std::string out;
    size_t used = kHelpColumn;
    for (size_t start = 0; start < text.size();) {
        size_t end = text.find(' ', start);
        if (end == std::string::npos)
            end = text.size();
        const size_t length = end - start;
        if (!out.empty() && used + 1 + length > kWidth) {
            out += "\n" + std::string(kHelpColumn, ' ');
            used = kHelpColumn;
        } else if (!out.empty()) {
            out += " ";
            ++used;
        }
        out.append(text, start, length);
        used += length;
        start = end + 1;
    }
    return out;
}

// The names, then the help from kHelpColumn, on a line of its own when the
// names reach that far.
void entry(std::string& out, const std::string& names, const std::string& help) {
    out += names;
    const size_t at = names.size() < kHelpColumn ? names.size() : 0;
    if (at == 0)
        out += "\n";
    out += std::string(kHelpColumn - at, ' ') + wrap(help) + "\n";
}

void describe(std::string& out, const Option& row, const TrCommandOptions& defaults) {
    std::string names = std::string("  ") + row.name;
    if (row.shortName)
        names += std::string(", ") + row.shortName;
    if (row.value)
        names += std::string(" ") + row.value;
    const std::string shown = row.shown ? row.shown(defaults) : "";
    if (!row.choices) {
        entry(out, names, shown.empty() ? row.help : row.help + (" (default " + shown + ")"));
        return;
    }
    // The default of a choice is marked in the list rather than repeated.
    entry(out, names, row.help);
    for (const Choice& c : row.choices())
        entry(out, std::string("    ") + c.name,
              shown == c.name ? c.help + std::string(" (default)") : c.help);
}

std::string makeUsage() {
    std::string out = R"(usage: tavrix-track PATTERN --track X,Y [--track X,Y ...] [options]
       tavrix-track PATTERN --tracks FILE.json [options]
       tavrix-track --demo [options]

Follows features through a numbered image sequence and writes their paths.
PATTERN names the frame files; one field of the file name is the number:
  ####   '#' for the digits: zero-padded to the shortest number among the
         files, longer numbers in full (shots/plate.####.exr)
  @@@@   the same with '@' (shots/plate.@@@@.exr)
  %04d   printf's zero-padded width, %d unpadded, %% a plain '%'; only files
         named exactly so fit (shots/plate.%04d.exr)
In a name with '#', '%' and '@' are plain; in one with '%', '@' is. The pass
runs from the lowest to the highest number among the files unless --from and
--to say otherwise; a missing frame between them stops it with an error.
Positions are pixels, origin at the top-left corner of the frame, pixel
centres at +0.5 (the top-left pixel's centre is 0.5,0.5).
)";
    const TrCommandOptions defaults;
    for (const Option& row : kOptions) {
        if (row.name)
            describe(out, row, defaults);
        else
            out += std::string("\n") + row.help + "\n";
    }
    out += R"(
Exit status: 0 done (lost tracks included), 1 a failure while tracking
(results so far are kept), 2 bad arguments or input.
)";
    return out;
}

} // namespace

bool isFailureBehavior(const std::string& name) {
    return TrModes::findBehavior(name.c_str()) != nullptr;
}

bool TrCommandOptions::jsonOut() const {
    return endsWith(out, ".json");
}

TrCommandOptions TrCommandOptions::parse(const std::vector<std::string>& args) {
    TrCommandOptions o;
    Parsing p{o, {}, {}};
    readArguments(p, args);
    if (o.help || o.version)
        return o;
    checkInput(p);
    checkDetect(p);
    checkExport(o);
    gatherTracks(p);
    completeTracks(o);
    return o;
}

void TrCommandOptions::placeImportedTracks(const TrFrameSize& size) {
    for (const Import& i : imports) {
        const std::string text = readTrackText(i.path);
        const TrTrackFormat* format = TrFormatTable::forImport(i.path, text);
        if (!format)
            fail(i.path + ": changed while being read");
        const std::vector<TrTrackSpec> placed =
            TrFormatTable::startsOf(format->parse(text, i.path, size), i.path, hasFrom, from);
        for (size_t k = 0; k < placed.size() && i.first + k < tracks.size(); ++k) {
            tracks[i.first + k].x = placed[k].x;
            tracks[i.first + k].y = placed[k].y;
        }
    }
}

const char* TrCommandOptions::usage() {
    static const std::string text = makeUsage();
    return text.c_str();
}
