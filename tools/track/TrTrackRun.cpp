#include "tools/track/TrTrackRun.h"

#include "base/Exception.h"
#include "image/GenRect.h"
#include "image/Image.h"
#include "tools/track/TrProgress.h"
#include "track/Sequence/TrSequence.h"
#include "track/TrFollow.h"
#include "track/TrShotImpl.h"

#include <chrono>
#include <exception>

namespace {

double secondsSince(std::chrono::steady_clock::time_point t) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t).count();
}

} // namespace

TrTrackRun::TrTrackRun(TrShotImpl& shot, TrFollow& follow, const std::vector<TrTrackSpec>& specs)
    : shot(shot), follow(follow) {
    for (const TrTrackSpec& s : specs) {
        TrTrackResult r;
        r.spec = s;
        results.push_back(r);
    }
}

int TrTrackRun::getLostCount() const {
    int n = 0;
    for (const TrTrackResult& r : results)
        n += r.lost ? 1 : 0;
    return n;
}

void TrTrackRun::loseTrack(int i, int frame, const std::string& reason) {
    alive[size_t(i)] = false;
    TrTrackResult& r = results[size_t(i)];
    r.lost = true;
    r.lostAt = frame;
    r.reason = reason;
    if (notices) {
        if (progress)
            progress->clear();
        std::fprintf(notices, "tavrix-track: track \"%s\" lost at frame %d%s%s\n",
                     r.spec.name.c_str(), frame, reason.empty() ? "" : ": ", reason.c_str());
    }
}

bool TrTrackRun::isFinal(int i, int frame, bool passOver) const {
    if (passOver || !alive[size_t(i)])
        return true;
    // The driver's lagged refinement re-solves its pattern frame and the
    // frames after it; everything before is settled.
    return (follow.getInfo(i).patternFrame - frame) * direction > 0;
}

void TrTrackRun::emit(int upTo, bool passOver) {
    const int count = int(results.size());
    while (anyDone && (upTo - nextFrame) * direction >= 0) {
        for (int i = 0; i < count; ++i)
            if (!isFinal(i, nextFrame, passOver))
                return;
        const float t = float(nextFrame);
        for (int i = 0; i < count; ++i) {
            std::deque<Capture>& queue = pending[size_t(i)];
            if (queue.empty() || queue.front().frame != nextFrame)
                continue;
            TrSample s = queue.front().sample;
            queue.pop_front();
            // Keyed frames are read back from the curve, which holds the
            // refined values; the rest keep the estimate taken at the step.
            s.keyed = shot.isPositionKeyed(i, t);
            if (s.keyed) {
                const Orvane::GenPoint<double> p = shot.getPosition(i, t);
                s.x = p.x;
                s.y = p.y;
                if (shot.isQualityKeyed(i, t))
                    s.score = shot.getQuality(i, t);
                s.transform = shot.getTransform(i, t);
            }
            results[size_t(i)].samples.push_back(s);
        }
        for (TrRunSink* sink : sinks)
            sink->frame(nextFrame, results);
        nextFrame += direction;
    }
}

void TrTrackRun::finishSinks(bool complete, const std::string& error) {
    for (TrRunSink* sink : sinks)
        sink->finish(results, complete, error);
}

void TrTrackRun::run(int from, int to) {
    direction = to >= from ? 1 : -1;
    const int count = int(results.size());
    const int total = (to - from) * direction + 1;
    pending.assign(size_t(count), {});
    alive.assign(size_t(count), true);
    nextFrame = from;
    anyDone = false;
    times = TrRunTimes();
    for (TrTrackResult& r : results) {
        r.samples.clear();
        r.lost = false;
    }
    for (TrRunSink* sink : sinks)
        sink->begin(results, from, to);

    const auto start = std::chrono::steady_clock::now();
    int f = from;
    try {
        follow.begin(from, 1);
        for (; f != to + direction; f += direction) {
            // Reading the frame up front keeps decoding apart from tracking:
            // the tracker then finds it in the image cache.
            auto t0 = std::chrono::steady_clock::now();
            const Orvane::GenRect<int> bounds = shot.getSequence()->getFrame(float(f)).getBounds();
            times.decode += secondsSince(t0);

            t0 = std::chrono::steady_clock::now();
            for (int i = 0; i < count; ++i) {
                if (!alive[size_t(i)])
                    continue;
                bool ok = false;
                try {
                    ok = follow.track(i, f, direction);
                } catch (const Exception& e) {
                    loseTrack(i, f, e.getMessage().str());
                    continue;
                }
                if (!ok) {
                    loseTrack(i, f, "");
                    continue;
                }
                const TrTrackInfo& info = follow.getInfo(i);
                // The driver follows a pattern that is partly outside the
                // frame as long as some of its search area is inside; a point
                // outside the frame is no longer a result.
                if (!(info.position.x >= bounds.x && info.position.x < bounds.x + bounds.w &&
                      info.position.y >= bounds.y && info.position.y < bounds.y + bounds.h)) {
                    loseTrack(i, f, "left the frame");
                    continue;
                }
                TrSample s;
                s.frame = f;
                s.x = info.position.x;
                s.y = info.position.y;
                s.score = info.score;
                s.transform = info.transform;
                pending[size_t(i)].push_back({f, s});
            }
            times.track += secondsSince(t0);
            lastDone = f;
            anyDone = true;
            ++times.frames;

            t0 = std::chrono::steady_clock::now();
            emit(lastDone, false);
            times.output += secondsSince(t0);

            if (progress) {
                int living = 0;
                for (bool a : alive)
                    living += a ? 1 : 0;
                progress->update(f, times.frames, total, living, count, secondsSince(start));
            }
        }
        follow.end(to);
        const auto t0 = std::chrono::steady_clock::now();
        emit(lastDone, true);
        times.output += secondsSince(t0);
    } catch (const std::exception& e) {
        failedFrame = f;
        if (progress)
            progress->finish();
        // Whatever was tracked before the failure is still delivered.
        try {
            emit(lastDone, true);
        } catch (const std::exception&) {
        }
        const std::string what = "frame " + std::to_string(f) + ": " + e.what();
        try {
            finishSinks(false, what);
        } catch (const std::exception&) {
        }
        throw;
    }
    if (progress)
        progress->finish();
    const auto t0 = std::chrono::steady_clock::now();
    finishSinks(true, "");
    times.output += secondsSince(t0);
}
