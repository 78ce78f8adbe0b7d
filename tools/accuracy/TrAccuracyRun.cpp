#include "tools/accuracy/TrAccuracyRun.h"

#include "tools/accuracy/TrMemorySequence.h"
#include "track/TrShotImpl.h"

#include <ctime>

using Orvane::GenPoint;
using Orvane::GenRect;

namespace {

// The calling thread's CPU time: a machine busy with other work does not
// inflate it.
double _threadSeconds() {
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + 1e-9 * double(ts.tv_nsec);
}

void _addTracks(TrShotImpl& shot, const std::vector<GenPoint<double>>& starts,
                const TrAccuracyMode& mode) {
    const double p = mode.pattern;
    const double s = mode.search;
    for (std::size_t k = 0; k < starts.size(); ++k) {
        const int i = int(k);
        shot.addTrack(starts[k].x, starts[k].y);
        shot.setPatternRect(i, GenRect<double>(-p / 2, -p / 2, p, p));
        shot.setSearchRect(i, GenRect<double>(-s / 2, -s / 2, s, s));
    }
    if (starts.empty())
        return;
    // The stand-alone shot keeps one set of these for all its tracks.
    shot.setFailureTolerance(0, mode.tolerance);
    shot.setFailureBehavior(0, mode.behavior.c_str());
    shot.setUseRotate(0, mode.rotate);
    shot.setUseScale(0, mode.scale);
    shot.setUseStretch(0, mode.stretch);
}

} // namespace

TrPassResult runAccuracyPass(const std::vector<Orvane::Image>& frames,
                             const std::vector<GenPoint<double>>& starts,
                             const TrAccuracyMode& mode, bool backward) {
    const int n = int(frames.size());
    const int tracks = int(starts.size());
    TrShotImpl shot;
    shot.setSequence(new TrMemorySequence(frames));
    _addTracks(shot, starts, mode);
    TrFollow follow;
    follow.setShot(&shot);
    follow.setRobust(mode.robust);
    follow.setPreciseSums(mode.preciseSums);

    TrPassResult result;
    result.last.assign(std::size_t(tracks), TrStepStatus::Lost);
    // Frames are numbered from 1 in the sequence.
    const int direction = backward ? -1 : 1;
    const int begin = backward ? n : 1;
    const int end = backward ? 1 : n;
    std::vector<int> stoppedAt(std::size_t(tracks), end + direction);
    follow.begin(begin, 1);
    for (int f = begin; f != end + direction; f += direction)
        for (int k = 0; k < tracks; ++k) {
            if (stoppedAt[std::size_t(k)] != end + direction)
                continue;
            const double t0 = _threadSeconds();
            const bool going = follow.track(k, f, direction);
            result.cpuSeconds += _threadSeconds() - t0;
            ++result.steps;
            result.last[std::size_t(k)] = follow.getStepStatus(k);
            if (!going)
                stoppedAt[std::size_t(k)] = f;
        }
    // The robust driver settles the last frames at the end of the pass.
    const double t0 = _threadSeconds();
    follow.end(end);
    result.cpuSeconds += _threadSeconds() - t0;

    result.path.assign(std::size_t(tracks), std::vector<GenPoint<double>>(std::size_t(n)));
    result.alive.assign(std::size_t(tracks), std::vector<bool>(std::size_t(n), false));
    for (int k = 0; k < tracks; ++k)
        for (int f = begin; f != stoppedAt[std::size_t(k)]; f += direction) {
            result.path[std::size_t(k)][std::size_t(f - 1)] = shot.getPosition(k, float(f));
            result.alive[std::size_t(k)][std::size_t(f - 1)] = true;
        }
    return result;
}
