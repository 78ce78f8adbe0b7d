#include "tools/track/TrTrackCommand.h"

#include "base/Exception.h"
#include "tools/track/TrCommandOptions.h"
#include "tools/track/TrDemo.h"
#include "tools/track/TrHomography.h"
#include "tools/track/TrOverlay.h"
#include "tools/track/TrProgress.h"
#include "tools/track/TrResultWriter.h"
#include "tools/track/TrTrackRun.h"
#include "track/Sequence/TrDiskSequence.h"
#include "track/Sequence/TrImageCache.h"
#include "track/Sequence/TrTestSequence.h"
#include "track/TrFollow.h"
#include "track/TrShotImpl.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>

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

Orvane::SmartPtr<TrSequence> openSequence(const TrCommandOptions& o) {
    if (o.demo)
        return Orvane::SmartPtr<TrSequence>(new TrTestSequence());
    try {
        return Orvane::SmartPtr<TrSequence>(new TrDiskSequence(dstring(o.input)));
    } catch (const Exception& e) {
        if (e.getMessage() == dstring("not found"))
            throw IllegalArgumentException(
                dstring("no file matches the frame pattern \"" + o.input + "\""));
        throw IllegalArgumentException(
            dstring("frame pattern \"" + o.input + "\": " + e.getMessage().str()));
    }
}

std::string describe(const Orvane::GenRect<int>& r) {
    return "(" + std::to_string(r.x) + ", " + std::to_string(r.y) + ", " + std::to_string(r.w) +
           ", " + std::to_string(r.h) + ")";
}

} // namespace

int runTrackCommand(const std::vector<std::string>& args) {
    TrCommandOptions o;
    Orvane::SmartPtr<TrSequence> sequence;
    TrShotImpl shot;
    TrFollow follow;
    int from = 0, to = 0;
    Orvane::GenRect<int> bounds;
    std::vector<TrTrackSpec> specs;
    std::ofstream file;
    std::unique_ptr<TrRunSink> writer;
    std::unique_ptr<TrOverlay> overlay;

    // Everything that can be checked is checked before the first step, so
    // that bad input costs no tracking time and leaves no partial output.
    try {
        o = TrCommandOptions::parse(args);
        if (o.help) {
            std::fputs(TrCommandOptions::usage(), stdout);
            return 0;
        }
        sequence = openSequence(o);
        const int first = sequence->getFirstFrame(), last = sequence->getLastFrame();
        from = o.hasFrom ? o.from : first;
        to = o.hasTo ? o.to : last;
        for (int f : {from, to})
            if (f < first || f > last)
                throw IllegalArgumentException(
                    dstring("frame " + std::to_string(f) + " lies outside the sequence's frames " +
                            std::to_string(first) + " to " + std::to_string(last)));

        const Orvane::Image frame = sequence->getFrame(float(from));
        bounds = frame.getBounds();
        const long bytes = long(bounds.w) * bounds.h * long(frame.getFormat().getBytesPerPixel());
        TrImageCache& cache = TrImageCache::getInstance();
        cache.setMaxSize(std::max(cache.getMaxSize(), kCachedFrames * bytes));

        specs =
            o.demo ? TrDemo::tracks(static_cast<TrTestSequence&>(*sequence.get()), o) : o.tracks;
        for (const TrTrackSpec& s : specs)
            if (!(s.x >= bounds.x && s.x < bounds.x + bounds.w && s.y >= bounds.y &&
                  s.y < bounds.y + bounds.h))
                throw IllegalArgumentException(
                    dstring("track \"" + s.name + "\" at " + std::to_string(s.x) + "," +
                            std::to_string(s.y) + " lies outside frame " + std::to_string(from) +
                            " " + describe(bounds)));
        if (!o.homographyFile.empty() && specs.size() < 4)
            throw IllegalArgumentException(dstring("--homography needs at least four tracks, got " +
                                                   std::to_string(specs.size())));

        shot.setSequence(sequence.get());
        for (size_t i = 0; i < specs.size(); ++i) {
            const TrTrackSpec& s = specs[i];
            const int k = int(i);
            shot.addTrack(s.x, s.y);
            shot.setPatternRect(k, Orvane::GenRect<double>(-s.patternWidth / 2.0,
                                                           -s.patternHeight / 2.0, s.patternWidth,
                                                           s.patternHeight));
            shot.setSearchRect(k,
                               Orvane::GenRect<double>(-s.searchWidth / 2.0, -s.searchHeight / 2.0,
                                                       s.searchWidth, s.searchHeight));
            shot.setColorMode(k, dstring(s.colorMode));
        }
        // Tolerance, behaviour and the switches are the shot's, whatever the
        // track index.
        shot.setFailureTolerance(0, o.tolerance);
        shot.setFailureBehavior(0, dstring(o.behavior));
        shot.setUseRotate(0, o.rotate);
        shot.setUseScale(0, o.scale);
        shot.setUseStretch(0, o.stretch);
        follow.setShot(&shot);
        follow.setPreciseSums(o.preciseSums);

        if (!o.out.empty()) {
            file.open(o.out, std::ios::out | std::ios::trunc);
            if (!file)
                throw IllegalArgumentException(dstring("cannot write \"" + o.out + "\""));
        }
        std::ostream& stream = o.out.empty() ? std::cout : file;
        if (o.jsonOut())
            writer.reset(new TrJsonWriter(stream));
        else if (!o.out.empty() || !o.demo)
            writer.reset(new TrCsvWriter(stream));
        if (!o.overlayDir.empty()) {
            overlay.reset(new TrOverlay(sequence.get(), o.overlayDir));
            overlay->setNotices(o.quiet ? nullptr : stderr);
        }
    } catch (const Exception& e) {
        return error(e.getMessage().str(), kBadInput);
    } catch (const std::exception& e) {
        return error(e.what(), kBadInput);
    }

    TrTrackRun run(shot, follow, specs);
    if (writer)
        run.addSink(writer.get());
    if (overlay)
        run.addSink(overlay.get());
    std::unique_ptr<TrProgress> progress;
    if (!o.quiet && isatty(STDERR_FILENO)) {
        progress.reset(new TrProgress(stderr));
        run.setProgress(progress.get());
    }
    run.setNotices(o.quiet ? nullptr : stderr);

    try {
        run.run(from, to);
    } catch (const std::exception& e) {
        error("frame " + std::to_string(run.getFailedFrame()) + ": " + e.what(), kFailed);
        int last = 0;
        bool any = false;
        for (const TrTrackResult& r : run.getResults())
            if (!r.samples.empty()) {
                last = any ? (to >= from ? std::max(last, r.samples.back().frame)
                                         : std::min(last, r.samples.back().frame))
                           : r.samples.back().frame;
                any = true;
            }
        if (any)
            error("results up to frame " + std::to_string(last) + " were written", kFailed);
        else
            error("no frame was tracked", kFailed);
        return kFailed;
    }

    try {
        if (!o.homographyFile.empty())
            writeHomographies(o.homographyFile, from,
                              solveHomographies(run.getResults(), from, to, bounds));
    } catch (const std::exception& e) {
        return error(e.what(), kFailed);
    }

    int status = 0;
    if (o.demo) {
        const double worst =
            TrDemo::report(stdout, static_cast<TrTestSequence&>(*sequence.get()), run.getResults());
        // The demo doubles as a smoke test: the centre must be followed to
        // within half a pixel.
        if (worst < 0 || worst > 0.5)
            status = error("the centre track strayed from the known path", kFailed);
    }
    if (!o.quiet) {
        const TrRunTimes& t = run.getTimes();
        const double total = t.decode + t.track + t.output;
        std::fprintf(stderr,
                     "tavrix-track: %d frames, %zu tracks (%d lost) in %.2f s, %.1f frames/s; "
                     "reading %.2f s, tracking %.2f s, writing %.2f s\n",
                     t.frames, specs.size(), run.getLostCount(), total,
                     total > 0 ? t.frames / total : 0.0, t.decode, t.track, t.output);
    }
    return status;
}
