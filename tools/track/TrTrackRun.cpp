#include "tools/track/TrTrackRun.h"

#include "base/Exception.h"
#include "image/Image.h"
#include "tools/track/TrErrorText.h"
#include "tools/track/TrProgress.h"
#include "track/Sequence/TrSequence.h"
#include "track/TrFollow.h"
#include "track/TrShotImpl.h"

#include <algorithm>
#include <exception>

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point t) {
    return std::chrono::duration<double>(Clock::now() - t).count();
}

bool contains(const Orvane::GenRect<int>& r, const Orvane::GenPoint<float>& p) {
    return p.x >= r.x && p.x < r.x + r.w && p.y >= r.y && p.y < r.y + r.h;
}

} // namespace

/// One shot and its driver, following the run's tracks first … first + count
/// - 1 as the shot's tracks 0 … count - 1.
struct TrTrackRun::Group {
    TrShotImpl shot;
    TrFollow follow;
    int first = 0;
    int count = 0;

    Group(TrSequence* sequence, const TrTrackSpec* specs, int first, int count,
          const TrRunSettings& settings);
};

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

TrTrackRun::Group::Group(TrSequence* sequence, const TrTrackSpec* specs, int first, int count,
                         const TrRunSettings& settings)
    : first(first), count(count) {
    shot.setSequence(sequence);
    for (int k = 0; k < count; ++k)
        placeTrack(shot, specs[first + k]);
    // Tolerance, behaviour and the switches are the shot's, whatever the
    // track index.
    shot.setFailureTolerance(0, settings.tolerance);
    shot.setFailureBehavior(0, dstring(settings.behavior));
    shot.setUseRotate(0, settings.rotate);
    shot.setUseScale(0, settings.scale);
    shot.setUseStretch(0, settings.stretch);
    follow.setShot(&shot);
    follow.setPreciseSums(settings.preciseSums);
}

TrTrackRun::TrTrackRun(TrSequence* sequence, const std::vector<TrTrackSpec>& specs,
                       const TrRunSettings& settings)
    : sequence(sequence) {
    for (const TrTrackSpec& s : specs) {
        TrTrackResult r;
        r.spec = s;
        results.push_back(r);
    }
    const int count = int(specs.size());
    for (int first = 0; first < count; first += groupSize)
        groups.emplace_back(
            new Group(sequence, specs.data(), first, std::min(groupSize, count - first), settings));
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
    lanes.assign(results.size(), Lane());
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

// One frame of one group. It writes only its own tracks' lanes, so groups
// could step side by side.
void TrTrackRun::step(Group& g, int frame, const Orvane::GenRect<int>& bounds) {
    for (int k = 0; k < g.count; ++k) {
        Lane& lane = lanes[size_t(g.first) + size_t(k)];
        if (!lane.alive)
            continue;
        bool ok = false;
        std::string reason;
        try {
            ok = g.follow.track(k, frame, direction);
            if (!ok && g.follow.getStopReason(k))
                reason = g.follow.getStopReason(k);
        } catch (const Exception& e) {
            reason = e.getMessage().str();
        }
        const TrTrackInfo& info = g.follow.getInfo(k);
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
        lane.pending.push_back(s);
    }
}

// The tracks lost in the last frame, in track order, after all groups have
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
    const Group& g = *groups[size_t(i / groupSize)];
    return (g.follow.getInfo(i - g.first).patternFrame - frame) * direction > 0;
}

// Keyed frames are read back from the curve, which holds the refined values;
// the rest keep the estimate taken at the step.
TrSample TrTrackRun::finalSample(int i, const TrSample& estimate) {
    Group& g = *groups[size_t(i / groupSize)];
    const int k = i - g.first;
    const float t = float(estimate.frame);
    TrSample s = estimate;
    s.keyed = g.shot.isPositionKeyed(k, t);
    if (s.keyed) {
        const Orvane::GenPoint<double> p = g.shot.getPosition(k, t);
        s.x = p.x;
        s.y = p.y;
        if (g.shot.isQualityKeyed(k, t))
            s.score = g.shot.getQuality(k, t);
        s.transform = g.shot.getTransform(k, t);
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

void TrTrackRun::stepFrame(int frame, Clock::time_point begun, int total) {
    // Reading the frame up front keeps decoding apart from tracking: the
    // tracker then finds it in the image cache.
    auto t0 = Clock::now();
    const Orvane::GenRect<int> bounds = sequence->getFrame(float(frame)).getBounds();
    times.decode += secondsSince(t0);

    t0 = Clock::now();
    for (std::unique_ptr<Group>& g : groups)
        step(*g, frame, bounds);
    times.track += secondsSince(t0);
    reportLosses();
    lastDone = frame;
    anyDone = true;
    ++times.frames;

    t0 = Clock::now();
    emit(lastDone, false);
    times.output += secondsSince(t0);

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
    const int total = (to - from) * direction + 1;
    int f = from;
    try {
        for (std::unique_ptr<Group>& g : groups)
            g->follow.begin(from, 1);
        for (; f != to + direction; f += direction)
            stepFrame(f, begun, total);
        for (std::unique_ptr<Group>& g : groups)
            g->follow.end(to);
        const auto t0 = Clock::now();
        emit(lastDone, true);
        times.output += secondsSince(t0);
    } catch (...) {
        failedFrame = f;
        const std::string what =
            "frame " + std::to_string(f) + ": " + errorText(std::current_exception());
        if (progress)
            progress->finish();
        // Whatever was tracked before the failure is still delivered.
        try {
            reportLosses();
            emit(lastDone, true);
        } catch (...) {
        }
        try {
            finishSinks(false, what);
        } catch (...) {
        }
        throw;
    }
    if (progress)
        progress->finish();
    const auto t0 = Clock::now();
    finishSinks(true, "");
    times.output += secondsSince(t0);
}
