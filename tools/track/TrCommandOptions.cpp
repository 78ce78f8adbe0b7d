#include "tools/track/TrCommandOptions.h"

#include "base/Exception.h"
#include "tools/track/TrNumbers.h"
#include "track/TrModes.h"

namespace {

[[noreturn]] void fail(const std::string& message) {
    throw IllegalArgumentException(dstring(message));
}

bool endsWith(const std::string& s, const std::string& tail) {
    return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
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
    std::vector<TrTrackSpec> lineTracks;
    std::vector<std::string> trackFiles;
    bool onlyInputs = false;

    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (onlyInputs || arg.size() < 2 || arg[0] != '-' || arg == "-") {
            if (!o.input.empty())
                fail("more than one frame pattern: \"" + o.input + "\" and \"" + arg + "\"");
            o.input = arg;
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
        auto flag = [&]() {
            if (hasValue)
                fail(name + " takes no value");
        };
        auto take = [&]() -> std::string {
            if (hasValue)
                return value;
            if (i + 1 >= args.size())
                fail(name + " needs a value");
            return args[++i];
        };

        if (name == "--help" || name == "-h") {
            flag();
            o.help = true;
        } else if (name == "--demo") {
            flag();
            o.demo = true;
        } else if (name == "--track") {
            const TrNumbers::Point p = TrNumbers::parsePoint(take(), name);
            TrTrackSpec spec;
            spec.x = p.x;
            spec.y = p.y;
            lineTracks.push_back(spec);
        } else if (name == "--tracks") {
            trackFiles.push_back(take());
        } else if (name == "--pattern") {
            const TrNumbers::Size s = TrNumbers::parseSize(take(), name);
            o.patternWidth = s.width;
            o.patternHeight = s.height;
            o.patternGiven = true;
        } else if (name == "--search") {
            const TrNumbers::Size s = TrNumbers::parseSize(take(), name);
            o.searchWidth = s.width;
            o.searchHeight = s.height;
            o.searchGiven = true;
        } else if (name == "--from") {
            o.from = TrNumbers::parseInt(take(), name);
            o.hasFrom = true;
        } else if (name == "--to") {
            o.to = TrNumbers::parseInt(take(), name);
            o.hasTo = true;
        } else if (name == "--tolerance") {
            const std::string text = take();
            o.tolerance = TrNumbers::parseDouble(text, name);
            if (o.tolerance < -1 || o.tolerance > 1)
                fail(name + ": must lie between -1 and 1, got \"" + text + "\"");
        } else if (name == "--behavior") {
            o.behavior = take();
            if (!isFailureBehavior(o.behavior))
                fail("unknown failure behavior \"" + o.behavior + "\" (expected one of " +
                     TrModes::behaviorList() + ")");
        } else if (name == "--color-mode") {
            o.colorMode = take();
            if (!isColorMode(o.colorMode))
                fail("unknown color mode \"" + o.colorMode + "\" (expected one of " +
                     colorModeList() + ")");
        } else if (name == "--rotate") {
            flag();
            o.rotate = true;
        } else if (name == "--no-rotate") {
            flag();
            o.rotate = false;
        } else if (name == "--scale") {
            flag();
            o.scale = true;
        } else if (name == "--no-scale") {
            flag();
            o.scale = false;
        } else if (name == "--stretch") {
            flag();
            o.stretch = true;
        } else if (name == "--no-stretch") {
            flag();
            o.stretch = false;
        } else if (name == "--precise-sums") {
            flag();
            o.preciseSums = true;
        } else if (name == "--out" || name == "-o") {
            o.out = take();
            if (o.out.empty() || (!endsWith(o.out, ".csv") && !endsWith(o.out, ".json")))
                fail(name + ": the file must end in .csv or .json, got \"" + o.out + "\"");
        } else if (name == "--overlay") {
            o.overlayDir = take();
            if (o.overlayDir.empty())
                fail(name + " needs a directory");
        } else if (name == "--homography") {
            o.homographyFile = take();
            if (!endsWith(o.homographyFile, ".json"))
                fail(name + ": the file must end in .json, got \"" + o.homographyFile + "\"");
        } else if (name == "--quiet" || name == "-q") {
            flag();
            o.quiet = true;
        } else {
            fail("unknown option \"" + name + "\" (see --help)");
        }
    }
    if (o.help)
        return o;

    if (o.demo && !o.input.empty())
        fail("--demo tracks its own synthetic clip; drop the frame pattern \"" + o.input + "\"");
    if (!o.demo && o.input.empty())
        fail("no frame pattern given (e.g. shots/plate.####.png), nor --demo");
    if (!o.demo && o.input.find('#') == std::string::npos)
        fail("the frame pattern \"" + o.input + "\" has no '#' for the frame number");
    if (o.demo && (!lineTracks.empty() || !trackFiles.empty()))
        fail("--demo places its own tracks; --track and --tracks cannot be used with it");

    for (const std::string& file : trackFiles) {
        const std::vector<TrTrackSpec> more =
            readTrackFile(file, static_cast<int>(o.tracks.size()) + 1);
        for (const TrTrackSpec& s : more)
            for (const TrTrackSpec& t : o.tracks)
                if (s.name == t.name)
                    fail(file + ": a second track named \"" + s.name + "\"");
        o.tracks.insert(o.tracks.end(), more.begin(), more.end());
    }
    for (TrTrackSpec& spec : lineTracks) {
        spec.name = std::to_string(o.tracks.size() + 1);
        for (const TrTrackSpec& t : o.tracks)
            if (t.name == spec.name)
                fail("--track: the name \"" + spec.name + "\" is already taken by a track file");
        o.tracks.push_back(spec);
    }
    if (!o.demo && o.tracks.empty())
        fail("no tracks: give --track X,Y or --tracks FILE.json");

    // Per-track sizes fall back to the defaults; the search area must leave
    // the pattern room to move.
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
    return o;
}

const char* TrCommandOptions::usage() {
    return R"(usage: tavrix-track PATTERN --track X,Y [--track X,Y ...] [options]
       tavrix-track PATTERN --tracks FILE.json [options]
       tavrix-track --demo [options]

Follows features through a numbered image sequence and writes their paths.
PATTERN names the frame files with '#' for the digits: shots/plate.####.exr.
Positions are pixels, origin at the top-left corner of the frame, pixel
centres at +0.5 (the top-left pixel's centre is 0.5,0.5).

Tracks:
  --track X,Y            place a track (repeatable)
  --tracks FILE.json     tracks from a file: {"tracks": [{"name": "a",
                         "position": [x, y], "pattern": [w, h],
                         "search": [w, h], "colorMode": "red"}]}
  --pattern WxH          pattern size (default 21x21)
  --search WxH           search area (default 61x61)
  --color-mode MODE      red, green, blue, luminance (default), saturation, hue

Tracking:
  --from N, --to N       frame range (default: all); backward when --to < --from
  --tolerance T          score below which a match fails (default 0.8)
  --behavior B           on failure: default (retry larger, then predict),
                         stop, predict, predictAndKey, dontPredict,
                         useExistingCurve (default: default)
  --rotate, --no-rotate  fit rotation (default on)
  --scale, --stretch     fit scale, stretch (default off)
  --precise-sums         double-precision window sums (bright, low-contrast
                         footage)

Output:
  --out FILE.csv|.json   results (default: CSV on standard output)
  --overlay DIR          each frame as DIR/overlay.NNNN.png with tracks drawn,
                         and DIR/path.png with every path
  --homography FILE.json one 3x3 matrix per frame relative to the first frame
                         of the range (needs four or more tracks)
  --quiet                no progress line, notices or summary
  --demo                 track a built-in synthetic clip with known motion
                         (pattern 20x20 and search 40x40 unless given)

Exit status: 0 done (lost tracks included), 1 a failure while tracking
(results so far are kept), 2 bad arguments or input.
)";
}
