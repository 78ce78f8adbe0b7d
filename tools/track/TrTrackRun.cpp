#include "tools/track/TrTrackRun.h"

#include "base/Exception.h"
#include "image/Copy.h"
#include "image/Image.h"
#include "tools/track/TrErrorText.h"
#include "tools/track/TrFrameReader.h"
#include "tools/track/TrProgress.h"
#include "track/Sequence/TrDiskSequence.h"
#include "track/Sequence/TrSequence.h"
#include "track/TrFollow.h"
#include "track/TrShotImpl.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point t) {
    return std::chrono::duration<double>(Clock::now() - t).count();
}

bool contains(const Orvane::GenRect<int>& r, const Orvane::GenPoint<float>& p) {
    return p.x >= r.x && p.x < r.x + r.w && p.y >= r.y && p.y < r.y + r.h;
}

} // namespace

const char* statusName(TrStepStatus status) {
    switch (status) {
    case TrStepStatus::Tracked:
        return "tracked";
    case TrStepStatus::Coasted:
        return "coasted";
    case TrStepStatus::Lost:
        return "lost";
    }
    return "lost";
}

int placeTrack(TrShotImpl& shot, const TrTrackSpec& s) {
    const int k = shot.getTrackCount();
    shot.addTrack(s.x, s.y);
    shot.setPatternRect(k, Orvane::GenRect<double>(-s.patternWidth / 2.0, -s.patternHeight / 2.0,
                                                   s.patternWidth, s.patternHeight));
    shot.setSearchRect(k, Orvane::GenRect<double>(-s.searchWidth / 2.0, -s.searchHeight / 2.0,
                                                  s.searchWidth, s.searchHeight));
    // A string of its own: shots on other threads must never share one.
    shot.setColorMode(k, dstring(s.colorMode));
    return k;
}

// The frames of a pass in pass order, one copy per tracking thread: from a
// reader decoding ahead, or read on the caller's thread through the
// sequence (and its image cache).
class TrTrackRun::Feed {
public:
    Feed(TrSequence* sequence, const TrRunThreads& threads, int copies, int from, int to)
        : sequence(sequence), copies(copies), decoders(threads.decoders) {
        auto* disk = dynamic_cast<TrDiskSequence*>(sequence);
        if (disk && threads.decoders > 0)
            reader.reset(new TrFrameReader(*disk, from, to, copies,
                                           threads.decoders * std::max(1, threads.aheadPerDecoder),
                                           threads.decoders));
    }

    int getDecoders() const { return reader ? decoders : 0; }

    // Frame `frame`'s copies; a frame that cannot be read throws.
    void next(int frame, std::vector<Orvane::Image>& out) {
        if (reader) {
            TrReadFrame read;
            if (!reader->next(read) || read.frame != frame)
                throw IllegalArgumentException(
                    dstring("frame " + std::to_string(frame) + " was not read"));
            if (!read.ok())
                throw IllegalArgumentException(dstring(read.error));
            out = std::move(read.copies);
            return;
        }
        const Clock::time_point t0 = Clock::now();
        out.assign(size_t(copies), Orvane::Image());
        // The caller's thread tracks on the cached image itself; the others
        // need pixels of their own.
        out[0] = sequence->getFrame(float(frame));
        for (size_t c = 1; c < out.size(); ++c)
            out[c] = Orvane::copy(out[0]);
        readSeconds += secondsSince(t0);
    }

    double decodeSeconds() const { return reader ? reader->getDecodeSeconds() : readSeconds; }
    // Read on the caller's thread, every second of reading was waited for.
    double waitSeconds() const { return reader ? reader->getWaitSeconds() : readSeconds; }

private:
    TrSequence* sequence;
    int copies;
    int decoders;
    std::unique_ptr<TrFrameReader> reader;
    double readSeconds = 0;
};

TrTrackRun::TrTrackRun(TrSequence* sequence, const std::vector<TrTrackSpec>& specs,
                       const TrRunSettings& settings, const TrRunThreads& threadsArg)
    : sequence(sequence), threads(threadsArg) {
    for (const TrTrackSpec& s : specs) {
        TrTrackResult r;
        r.spec = s;
        results.push_back(r);
    }
    const int count = int(specs.size());
    const int jobs = std::max(1, threads.jobs);
    const int workers = std::max(jobs, (count + groupSize - 1) / groupSize);
    pool.reset(new TrWorkerPool(workers, count, sequence->getFirstFrame(), sequence->getLastFrame(),
                                8, jobs));
    for (int i = 0; i < count; ++i)
        placeTrack(pool->shotOf(i), specs[size_t(i)]);
    for (int w = 0; w < pool->getWorkerCount(); ++w) {
        TrWorker& worker = pool->getWorker(w);
        if (worker.tracks.empty())
            continue;
        // Tolerance, behaviour and the switches are the shot's, whatever the
        // track index; each shot gets strings of its own.
        worker.shot.setFailureTolerance(0, settings.tolerance);
        worker.shot.setFailureBehavior(0, dstring(settings.behavior));
        worker.shot.setUseRotate(0, settings.rotate);
        worker.shot.setUseScale(0, settings.scale);
        worker.shot.setUseStretch(0, settings.stretch);
        worker.follow.setPreciseSums(settings.preciseSums);
        worker.follow.setRobust(settings.robust);
    }
}

TrTrackRun::~TrTrackRun() = default;

int TrTrackRun::getLostCount() const {
    int n = 0;
    for (const TrTrackResult& r : results)
        n += r.lost ? 1 : 0;
    return n;
}

void TrTrackRun::start(int from, int to) {
    direction = to >= from ? 1 : -1;
    beginFrame = from;
    lanes.assign(results.size(), Lane());
    alive.assign(results.size(), false);
    for (int w = 0; w < pool->getWorkerCount(); ++w)
        pool->getWorker(w).sequence->clear();
    nextFrame = from;
    anyDone = false;
    times = TrRunTimes();
    for (TrTrackResult& r : results) {
        r.samples.clear();
        r.lost = false;
        r.lostAt = 0;
        r.reason.clear();
    }
    for (TrRunSink* sink : sinks)
        sink->begin(results, from, to);
}

// Steps every living track into the frame on the workers, then takes their
// answers into the lanes in track order.
void TrTrackRun::step(int frame, std::vector<Orvane::Image>& copies,
                      const Orvane::GenRect<int>& bounds) {
    for (size_t i = 0; i < lanes.size(); ++i)
        alive[i] = lanes[i].alive;
    pool->step(frame, direction, copies, alive, stepped);
    for (size_t i = 0; i < lanes.size(); ++i) {
        const TrStepResult& r = stepped[i];
        if (!r.ran)
            continue;
        ++times.steps;
        Lane& lane = lanes[i];
        bool ok = r.ok;
        std::string reason = r.error;
        // The workers are idle: the driver's stop reason can be read here.
        const char* stopped = pool->followOf(int(i)).getStopReason(pool->localIndex(int(i)));
        if (!ok && reason.empty() && stopped != nullptr)
            reason = stopped;
        const TrTrackInfo& info = pool->getInfo(int(i));
        // The driver follows a pattern that is partly outside the frame as
        // long as some of its search area is inside; a point outside the
        // frame is no longer a result.
        if (ok && !contains(bounds, info.position)) {
            ok = false;
            reason = "left the frame";
        }
        if (!ok) {
            lane.alive = false;
            lane.justLost = true;
            lane.lostAt = frame;
            lane.reason = reason;
            continue;
        }
        TrSample s;
        s.frame = frame;
        s.x = info.position.x;
        s.y = info.position.y;
        s.score = info.score;
        s.transform = info.transform;
        // The pattern is cut from the begin frame: it is tracked there by
        // definition, whatever its match scored.
        s.status = frame == beginFrame
                       ? TrStepStatus::Tracked
                       : pool->followOf(int(i)).getStepStatus(pool->localIndex(int(i)));
        lane.pending.push_back(s);
    }
}

// The tracks lost in the last frame, in track order, after all workers have
// stepped.
void TrTrackRun::reportLosses() {
    for (size_t i = 0; i < lanes.size(); ++i) {
        Lane& lane = lanes[i];
        if (!lane.justLost)
            continue;
        lane.justLost = false;
        TrTrackResult& r = results[i];
        r.lost = true;
        r.lostAt = lane.lostAt;
        r.reason = lane.reason;
        if (!notices)
            continue;
        if (progress)
            progress->clear();
        std::fprintf(notices, "tavrix-track: track \"%s\" lost at frame %d%s%s\n",
                     r.spec.name.c_str(), r.lostAt, r.reason.empty() ? "" : ": ", r.reason.c_str());
    }
}

bool TrTrackRun::isFinal(int i, int frame, bool passOver) const {
    if (passOver || !lanes[size_t(i)].alive)
        return true;
    // The driver's lagged refinement re-solves its pattern frame and the
    // frames after it; everything before is settled.
    return (pool->getInfo(i).patternFrame - frame) * direction > 0;
}

// Keyed frames are read back from the curve, which holds the refined values;
// the rest keep the estimate taken at the step.
TrSample TrTrackRun::finalSample(int i, const TrSample& estimate) {
    TrShotImpl& shot = pool->shotOf(i);
    const int k = pool->localIndex(i);
    const float t = float(estimate.frame);
    TrSample s = estimate;
    s.keyed = shot.isPositionKeyed(k, t);
    if (s.keyed) {
        const Orvane::GenPoint<double> p = shot.getPosition(k, t);
        s.x = p.x;
        s.y = p.y;
        if (shot.isQualityKeyed(k, t))
            s.score = shot.getQuality(k, t);
        s.transform = shot.getTransform(k, t);
    }
    return s;
}

void TrTrackRun::emit(int upTo, bool passOver) {
    const int count = int(results.size());
    while (anyDone && (upTo - nextFrame) * direction >= 0) {
        for (int i = 0; i < count; ++i)
            if (!isFinal(i, nextFrame, passOver))
                return;
        for (int i = 0; i < count; ++i) {
            std::deque<TrSample>& queue = lanes[size_t(i)].pending;
            if (queue.empty() || queue.front().frame != nextFrame)
                continue;
            results[size_t(i)].samples.push_back(finalSample(i, queue.front()));
            queue.pop_front();
        }
        // The frame counts as delivered before the sinks see it: one that
        // fails must not make the others see the frame twice.
        const int frame = nextFrame;
        nextFrame += direction;
        for (TrRunSink* sink : sinks)
            sink->frame(frame, results);
    }
}

void TrTrackRun::finishSinks(bool complete, const std::string& error) {
    for (TrRunSink* sink : sinks)
        sink->finish(results, complete, error);
}

void TrTrackRun::stepFrame(Feed& feed, int frame, Clock::time_point begun, int total) {
    std::vector<Orvane::Image> copies;
    feed.next(frame, copies);
    const Orvane::GenRect<int> bounds = copies[0].getBounds();

    const auto t0 = Clock::now();
    step(frame, copies, bounds);
    times.track += secondsSince(t0);
    reportLosses();
    lastDone = frame;
    anyDone = true;
    ++times.frames;

    const auto t1 = Clock::now();
    emit(lastDone, false);
    times.output += secondsSince(t1);

    if (progress) {
        int living = 0;
        for (const Lane& lane : lanes)
            living += lane.alive ? 1 : 0;
        progress->update(frame, times.frames, total, living, int(lanes.size()),
                         secondsSince(begun));
    }
}

void TrTrackRun::run(int from, int to) {
    start(from, to);
    const Clock::time_point begun = Clock::now();
    const double cpuBefore = pool->getCpuSeconds();
    const int total = (to - from) * direction + 1;
    std::unique_ptr<Feed> feed;
    // What the threads did counts whether or not the pass got through.
    auto account = [&] {
        times.trackCpu = pool->getCpuSeconds() - cpuBefore;
        times.jobs = pool->getThreadCount();
        times.decoders = feed ? feed->getDecoders() : 0;
        times.decode = feed ? feed->decodeSeconds() : 0;
        times.wait = feed ? feed->waitSeconds() : 0;
        times.wall = secondsSince(begun);
    };
    int f = from;
    try {
        feed.reset(new Feed(sequence, threads, pool->getThreadCount(), from, to));
        pool->begin(from, 1);
        for (; f != to + direction; f += direction)
            stepFrame(*feed, f, begun, total);
        pool->end(to);
        const auto t0 = Clock::now();
        emit(lastDone, true);
        times.output += secondsSince(t0);
    } catch (...) {
        failedFrame = f;
        const std::string what =
            "frame " + std::to_string(f) + ": " + errorText(std::current_exception());
        if (progress)
            progress->finish();
        // Whatever was tracked before the failure is still delivered, as a
        // pass that ended on the frame before it.
        try {
            if (f != from)
                pool->end(f - direction);
            reportLosses();
            emit(lastDone, true);
        } catch (...) {
        }
        try {
            finishSinks(false, what);
        } catch (...) {
        }
        account();
        throw;
    }
    if (progress)
        progress->finish();
    const auto t0 = Clock::now();
    finishSinks(true, "");
    times.output += secondsSince(t0);
    account();
}
