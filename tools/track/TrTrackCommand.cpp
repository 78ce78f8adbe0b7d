#include "tools/track/TrTrackCommand.h"

#include "base/Exception.h"
#include "tools/track/TrCommandOptions.h"
#include "tools/track/TrDemo.h"
#include "tools/track/TrErrorText.h"
#include "tools/track/TrFormatTable.h"
#include "tools/track/TrHomography.h"
#include "tools/track/TrLimits.h"
#include "tools/track/TrNumbers.h"
#include "tools/track/TrOverlay.h"
#include "tools/track/TrPlacement.h"
#include "tools/track/TrProgress.h"
#include "tools/track/TrResultWriter.h"
#include "tools/track/TrTrackRun.h"
#include "track/Sequence/TrDiskSequence.h"
#include "track/Sequence/TrImageCache.h"
#include "track/Sequence/TrTestSequence.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <thread>

namespace {

const int kBadInput = 2;
const int kFailed = 1;

int error(const std::string& what, int code) {
    std::fprintf(stderr, "tavrix-track: %s\n", what.c_str());
    return code;
}

// The frames of the pass, the number of frames the tracker may still need
// (two behind for its refinement, one for the overlay) and some slack: the
// cache must hold them all, or every track would read its frame again.
const int kCachedFrames = 8;

// What a pass needs, all of it checked before the first step, so that bad
// input costs no tracking time and leaves no partial output.
struct Prepared {
    TrCommandOptions o;
    Orvane::SmartPtr<TrSequence> sequence;
    int from = 0;
    int to = 0;
    Orvane::GenRect<int> bounds;
    std::vector<TrTrackSpec> specs;

    TrTestSequence& demo() { return static_cast<TrTestSequence&>(*sequence); }
};

// Where the results go; the run borrows them.
struct Outputs {
    std::ofstream file;
    std::unique_ptr<TrRunSink> writer;
    std::ofstream exportFile;
    std::unique_ptr<TrExportWriter> exporter;
    std::unique_ptr<TrOverlay> overlay;
    std::unique_ptr<TrProgress> progress;
};

Orvane::SmartPtr<TrSequence> openSequence(const TrCommandOptions& o) {
    if (o.demo)
        return Orvane::SmartPtr<TrSequence>(new TrTestSequence());
    return Orvane::SmartPtr<TrSequence>(openFrameSequence(o.input).get());
}

std::string describe(const Orvane::GenRect<int>& r) {
    return "(" + std::to_string(r.x) + ", " + std::to_string(r.y) + ", " + std::to_string(r.w) +
           ", " + std::to_string(r.h) + ")";
}

void checkRange(Prepared& p) {
    const int first = p.sequence->getFirstFrame(), last = p.sequence->getLastFrame();
    p.from = p.o.hasFrom ? p.o.from : first;
    p.to = p.o.hasTo ? p.o.to : last;
    for (int f : {p.from, p.to})
        if (f < first || f > last)
            throw IllegalArgumentException(
                dstring("frame " + std::to_string(f) + " lies outside the sequence's frames " +
                        std::to_string(first) + " to " + std::to_string(last)));
}

void checkTracks(const Prepared& p) {
    const Orvane::GenRect<int>& b = p.bounds;
    for (const TrTrackSpec& s : p.specs)
        if (!(s.x >= b.x && s.x < b.x + b.w && s.y >= b.y && s.y < b.y + b.h))
            throw IllegalArgumentException(dstring(
                "track \"" + s.name + "\" at " + TrNumbers::text(s.x) + "," + TrNumbers::text(s.y) +
                " lies outside frame " + std::to_string(p.from) + " " + describe(b)));
    if (!p.o.homographyFile.empty() && p.specs.size() < 4)
        throw IllegalArgumentException(dstring("--homography needs at least four tracks, got " +
                                               std::to_string(p.specs.size())));
}

// Tracks on the first frame's strongest corners, written where --detect-out
// says before any is tracked, so that the file is there to edit whatever
// the pass does.
void detectTracks(Prepared& p, const Orvane::Image& frame) {
    TrTrackSpec shape;
    shape.patternWidth = p.o.patternWidth;
    shape.patternHeight = p.o.patternHeight;
    shape.searchWidth = p.o.searchWidth;
    shape.searchHeight = p.o.searchHeight;
    shape.colorMode = p.o.colorMode;
    p.o.tracks = TrPlacement::detect(frame, p.o.detect, shape);
    if (p.o.tracks.empty())
        throw IllegalArgumentException(dstring("--detect: no place in frame " +
                                               std::to_string(p.from) +
                                               " has enough texture for a track"));
    writeTrackFile(p.o.detectOut, p.o.tracks);
    if (!p.o.quiet)
        std::fprintf(stderr,
                     "tavrix-track: placed %zu of %d tracks on frame %d, written to \"%s\"\n",
                     p.o.tracks.size(), p.o.detect, p.from, p.o.detectOut.c_str());
}

// The robust driver stops a track whose pattern is too flat, and says so as
// it loses it; the designed one tracks it all the same, so the warning is
// ours.
void warnFlatPatterns(const Prepared& p, const Orvane::Image& frame) {
    if (p.o.robust || p.o.quiet)
        return;
    for (const TrTrackSpec& s : p.specs)
        if (!TrPlacement::hasTexture(frame, s))
            std::fprintf(stderr,
                         "tavrix-track: track \"%s\" has too little texture at frame %d and may "
                         "drift\n",
                         s.name.c_str(), p.from);
}

// Opens the sequence, reads the first frame of the pass and checks the range
// and the tracks against it.
void prepare(Prepared& p) {
    p.sequence = openSequence(p.o);
    checkRange(p);
    const Orvane::Image frame = p.sequence->getFrame(float(p.from));
    p.bounds = frame.getBounds();
    const long bytes = long(p.bounds.w) * p.bounds.h * long(frame.getFormat().getBytesPerPixel());
    TrImageCache& cache = TrImageCache::getInstance();
    cache.setMaxSize(std::max(cache.getMaxSize(), kCachedFrames * bytes));
    p.o.placeImportedTracks(TrFrameSize{p.bounds.w, p.bounds.h});
    if (p.o.detect > 0)
        detectTracks(p, frame);
    p.specs = p.o.demo ? TrDemo::tracks(p.demo(), p.o) : p.o.tracks;
    checkTracks(p);
    TrLimits::check(p.specs, p.bounds, frame.getFormat().getBytesPerPixel(), cache.getMaxSize(),
                    p.from, p.to);
    warnFlatPatterns(p, frame);
}

// Tracking threads as asked, one per core by default; frames are decoded on
// up to four threads besides, which keeps a 1080p plate ahead of two jobs,
// unless the readers are given.
TrRunThreads threadsOf(const TrCommandOptions& o) {
    const int cores = int(std::max(1u, std::thread::hardware_concurrency()));
    TrRunThreads t;
    t.jobs = o.jobs > 0 ? o.jobs : cores;
    t.decoders = o.readers >= 0 ? o.readers : std::min(cores, 4);
    return t;
}

TrRunSettings settingsOf(const TrCommandOptions& o) {
    TrRunSettings s;
    s.tolerance = o.tolerance;
    s.behavior = o.behavior;
    s.rotate = o.rotate;
    s.scale = o.useScale();
    s.stretch = o.stretch;
    s.preciseSums = o.usePreciseSums();
    s.robust = o.robust;
    return s;
}

// The export's writer; a format of one file per track writes beside the
// path or into it, which must then be a directory.
void configureExport(Outputs& out, const Prepared& p) {
    const TrCommandOptions& o = p.o;
    const TrTrackFormat& format = TrFormatTable::forExport(o.exportFormat, o.exportPath);
    TrExportSetup setup;
    setup.path = o.exportPath;
    setup.size = TrFrameSize{p.bounds.w, p.bounds.h};
    setup.cornerPin = !o.homographyFile.empty();
    if (format.filePerTrack) {
        const std::string ext = format.extension;
        const std::string& path = o.exportPath;
        struct stat info {};
        const bool pattern = path.size() > ext.size() &&
                             path.compare(path.size() - ext.size(), ext.size(), ext) == 0;
        if (!pattern && (stat(path.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)))
            throw IllegalArgumentException(dstring("--export: \"" + path + "\" is neither a " +
                                                   ext + " pattern nor a directory"));
    } else {
        out.exportFile.open(o.exportPath, std::ios::out | std::ios::trunc | std::ios::binary);
        if (!out.exportFile)
            throw IllegalArgumentException(dstring("cannot write \"" + o.exportPath + "\""));
        setup.out = &out.exportFile;
    }
    out.exporter = format.makeWriter(setup);
}

// The results file or standard output, the overlay and the progress line.
void configure(Outputs& out, Prepared& p, TrTrackRun& run) {
    const TrCommandOptions& o = p.o;
    if (!o.out.empty()) {
        out.file.open(o.out, std::ios::out | std::ios::trunc);
        if (!out.file)
            throw IllegalArgumentException(dstring("cannot write \"" + o.out + "\""));
    }
    std::ostream& stream = o.out.empty() ? std::cout : out.file;
    // The status column is the robust layout; --design writes the designed one.
    if (o.jsonOut())
        out.writer.reset(new TrJsonWriter(stream, o.robust));
    else if (!o.out.empty() || (!o.demo && o.exportPath.empty()))
        out.writer.reset(new TrCsvWriter(stream, o.robust));
    if (!o.exportPath.empty())
        configureExport(out, p);
    if (!o.overlayDir.empty()) {
        out.overlay.reset(new TrOverlay(p.sequence.get(), o.overlayDir));
        out.overlay->setNotices(o.quiet ? nullptr : stderr);
    }
    if (out.writer)
        run.addSink(out.writer.get());
    if (out.exporter)
        run.addSink(out.exporter.get());
    if (out.overlay)
        run.addSink(out.overlay.get());
    if (!o.quiet && isatty(STDERR_FILENO)) {
        out.progress.reset(new TrProgress(stderr));
        run.setProgress(out.progress.get());
    }
    run.setNotices(o.quiet ? nullptr : stderr);
}

// The pass; a failure part way says, on its one line, how far the written
// results go.
int track(TrTrackRun& run, const Prepared& p) {
    std::string failure;
    try {
        run.run(p.from, p.to);
        return 0;
    } catch (...) {
        failure = "frame " + std::to_string(run.getFailedFrame()) + ": " +
                  errorText(std::current_exception());
    }
    const int direction = p.to >= p.from ? 1 : -1;
    int last = 0;
    bool any = false;
    for (const TrTrackResult& r : run.getResults())
        if (!r.samples.empty()) {
            const int f = r.samples.back().frame;
            last = !any || (f - last) * direction > 0 ? f : last;
            any = true;
        }
    return error(failure + (any ? "; results up to frame " + std::to_string(last) + " were written"
                                : "; no frame was tracked"),
                 kFailed);
}

// Decoding overlaps tracking, so the parts do not add up to the whole: the
// pass lost to reading only the time it waited. Tracking per track and frame
// is CPU time summed over the jobs, which a busy machine does not inflate.
std::string summary(const TrTrackRun& run, size_t tracks) {
    const TrRunTimes& t = run.getTimes();
    char head[160], reading[120], tracking[160];
    std::snprintf(head, sizeof head, "%d frames, %zu tracks (%d lost) in %.2f s, %.1f frames/s",
                  t.frames, tracks, run.getLostCount(), t.wall,
                  t.wall > 0 ? t.frames / t.wall : 0.0);
    if (t.decoders > 0)
        std::snprintf(reading, sizeof reading, "reading %.2f s on %d threads, waited %.2f s",
                      t.decode, t.decoders, t.wait);
    else
        std::snprintf(reading, sizeof reading, "reading %.2f s", t.decode);
    std::snprintf(tracking, sizeof tracking,
                  "tracking %.2f s on %d jobs, %.2f s CPU, %.1f \u00b5s per track and frame",
                  t.track, t.jobs, t.trackCpu,
                  t.steps > 0 ? 1e6 * t.trackCpu / double(t.steps) : 0.0);
    char out[480];
    std::snprintf(out, sizeof out, "%s; %s; %s; writing %.2f s", head, reading, tracking, t.output);
    return out;
}

int report(Prepared& p, const TrTrackRun& run) {
    if (!p.o.homographyFile.empty())
        writeHomographies(p.o.homographyFile, p.from,
                          solveHomographies(run.getResults(), p.from, p.to, p.bounds));
    int status = 0;
    if (p.o.demo) {
        const double worst = TrDemo::report(stdout, p.demo(), run.getResults());
        // The demo doubles as a smoke test: the centre must be followed to
        // within half a pixel.
        if (worst < 0 || worst > 0.5)
            status = error("the centre track strayed from the known path", kFailed);
    }
    if (!p.o.quiet) {
        std::fprintf(stderr, "tavrix-track: %s\n", summary(run, p.specs.size()).c_str());
    }
    return status;
}

} // namespace

// Every stage catches whatever its steps throw, bare strings of the image
// library included, and turns it into one line and the stage's status.
int runTrackCommand(const std::vector<std::string>& args) {
    Prepared p;
    Outputs out;
    std::unique_ptr<TrTrackRun> run;
    try {
        p.o = TrCommandOptions::parse(args);
        if (p.o.help) {
            std::fputs(TrCommandOptions::usage(), stdout);
            return 0;
        }
        if (p.o.version) {
            std::printf("tavrix-track %s\n", TAVRIX_VERSION);
            return 0;
        }
        prepare(p);
        run.reset(new TrTrackRun(p.sequence.get(), p.specs, settingsOf(p.o), threadsOf(p.o)));
        configure(out, p, *run);
    } catch (...) {
        return error(errorText(std::current_exception()), kBadInput);
    }
    if (const int status = track(*run, p))
        return status;
    try {
        return report(p, *run);
    } catch (...) {
        return error(errorText(std::current_exception()), kFailed);
    }
}

Orvane::SmartPtr<TrDiskSequence> openFrameSequence(const std::string& pattern) {
    try {
        Orvane::SmartPtr<TrDiskSequence> sequence(new TrDiskSequence());
        sequence->setAllPatternForms(true);
        sequence->setFilename(dstring(pattern));
        return sequence;
    } catch (const Exception& e) {
        if (e.getMessage() == dstring("not found"))
            throw IllegalArgumentException(
                dstring("no file matches the frame pattern \"" + pattern + "\""));
        throw IllegalArgumentException(
            dstring("frame pattern \"" + pattern + "\": " + e.getMessage().str()));
    }
}
