#include "tools/python/TrPyTracker.h"

#include "base/Exception.h"
#include "tools/track/TrCommandOptions.h"
#include "tools/track/TrNumbers.h"
#include "track/TrFollow.h"
#include "track/TrModes.h"
#include "track/TrShotImpl.h"

#include <algorithm>
#include <climits>
#include <utility>

namespace {

[[noreturn]] void refuse(const std::string& what) {
    throw IllegalArgumentException(dstring(what));
}

std::string sizeText(int w, int h) {
    return std::to_string(w) + "x" + std::to_string(h);
}

bool contains(const Orvane::GenRect<int>& r, double x, double y) {
    return x >= r.x && x < r.x + r.w && y >= r.y && y < r.y + r.h;
}

void checkSpec(const TrTrackSpec& s, int width, int height) {
    if (!contains(Orvane::GenRect<int>(0, 0, width, height), s.x, s.y))
        refuse("track \"" + s.name + "\" at " + TrNumbers::text(s.x) + "," + TrNumbers::text(s.y) +
               " lies outside the frame (0, 0, " + std::to_string(width) + ", " +
               std::to_string(height) + ")");
    if (s.patternWidth <= 0 || s.patternHeight <= 0 || s.searchWidth <= 0 || s.searchHeight <= 0)
        refuse("track \"" + s.name + "\": sizes must be positive, got pattern " +
               sizeText(s.patternWidth, s.patternHeight) + " and search " +
               sizeText(s.searchWidth, s.searchHeight));
    if (s.searchWidth <= s.patternWidth || s.searchHeight <= s.patternHeight)
        refuse("track \"" + s.name + "\": the search area " +
               sizeText(s.searchWidth, s.searchHeight) + " must be larger than the pattern " +
               sizeText(s.patternWidth, s.patternHeight));
    if (!isColorMode(s.colorMode))
        refuse("unknown color mode \"" + s.colorMode + "\" (expected one of " + colorModeList() +
               ")");
}

} // namespace

/// One shot and its driver, following the tracker's tracks first … first +
/// count - 1 as the shot's tracks 0 … count - 1.
struct TrPyTracker::Group {
    TrShotImpl shot;
    TrFollow follow;
    int first = 0;
    int count = 0;
};

TrPyTracker::TrPyTracker(int width, int height, const TrRunSettings& settings)
    : width(width), height(height), settings(settings) {
    if (width <= 0 || height <= 0)
        refuse("the frame size must be positive, got " + sizeText(width, height));
    if (!(settings.tolerance >= -1 && settings.tolerance <= 1))
        refuse("tolerance: must lie between -1 and 1, got " + TrNumbers::text(settings.tolerance));
    if (!isFailureBehavior(settings.behavior))
        refuse("unknown failure behavior \"" + settings.behavior + "\" (expected one of " +
               TrModes::behaviorList() + ")");
}

TrPyTracker::~TrPyTracker() = default;

void TrPyTracker::checkClosed(const char* what) const {
    if (open)
        refuse(std::string(what) + " while a pass is open: finish it first");
}

int TrPyTracker::addTrack(TrTrackSpec spec) {
    checkClosed("cannot add a track");
    if (spec.name.empty())
        spec.name = std::to_string(specs.size() + 1);
    for (const TrTrackSpec& s : specs)
        if (s.name == spec.name)
            refuse("the track name \"" + spec.name + "\" is already taken");
    checkSpec(spec, width, height);
    specs.push_back(spec);
    return int(specs.size()) - 1;
}

// Fresh shots and drivers for every pass, so that a pass starts from the
// placed positions whatever the last one keyed.
void TrPyTracker::start(int first, int dir) {
    checkClosed("cannot start a pass");
    if (specs.empty())
        refuse("no tracks: add a track before tracking");
    from = first;
    direction = dir < 0 ? -1 : 1;
    // The pass's end is not known while stepping; the driver reads the range
    // but tracks by the frames it is handed.
    sequence = new TrHandedSequence(INT_MIN, INT_MAX);
    groups.clear();
    const int count = int(specs.size());
    for (int at = 0; at < count; at += TrTrackRun::groupSize) {
        auto g = std::make_unique<Group>();
        g->first = at;
        g->count = std::min(TrTrackRun::groupSize, count - at);
        g->shot.setSequence(sequence.get());
        for (int k = 0; k < g->count; ++k)
            placeTrack(g->shot, specs[size_t(at) + size_t(k)]);
        // Shot-wide settings, whatever the track index.
        g->shot.setFailureTolerance(0, settings.tolerance);
        g->shot.setFailureBehavior(0, dstring(settings.behavior));
        g->shot.setUseRotate(0, settings.rotate);
        g->shot.setUseScale(0, settings.scale);
        g->shot.setUseStretch(0, settings.stretch);
        g->follow.setShot(&g->shot);
        g->follow.setPreciseSums(settings.preciseSums);
        g->follow.setRobust(settings.robust);
        groups.push_back(std::move(g));
    }
    lanes.assign(specs.size(), Lane());
    results.assign(specs.size(), TrTrackResult());
    for (size_t i = 0; i < specs.size(); ++i)
        results[i].spec = specs[i];
    steps = 0;
    finalCount = 0;
    open = true;
}

void TrPyTracker::stepGroup(Group& g, int frame, const Orvane::GenRect<int>& bounds) {
    for (int k = 0; k < g.count; ++k) {
        const size_t i = size_t(g.first) + size_t(k);
        Lane& lane = lanes[i];
        if (!lane.alive)
            continue;
        bool ok = false;
        std::string reason;
        try {
            ok = g.follow.track(k, frame, direction);
        } catch (const Exception& e) {
            reason = e.getMessage().str();
        }
        // As in the tool: the driver's stop reason, when no error gave one.
        if (!ok && reason.empty() && g.follow.getStopReason(k) != nullptr)
            reason = g.follow.getStopReason(k);
        const TrTrackInfo& info = g.follow.getInfo(k);
        // As in the tool: a point outside the frame is no longer a result.
        if (ok && !contains(bounds, info.position.x, info.position.y)) {
            ok = false;
            reason = "left the frame";
        }
        if (!ok) {
            lane.alive = false;
            results[i].lost = true;
            results[i].lostAt = frame;
            results[i].reason = reason;
            continue;
        }
        TrSample s;
        s.frame = frame;
        s.x = info.position.x;
        s.y = info.position.y;
        s.score = info.score;
        s.transform = info.transform;
        s.status = frame == from ? TrStepStatus::Tracked : g.follow.getStepStatus(k);
        lane.pending.push_back(s);
    }
}

void TrPyTracker::step(Orvane::Image frame) {
    if (!open)
        refuse("no pass is open: start one before stepping");
    const Orvane::GenRect<int> bounds = frame.getBounds();
    if (bounds.x != 0 || bounds.y != 0 || bounds.w != width || bounds.h != height)
        refuse("frame " + std::to_string(from + direction * steps) + " is " +
               sizeText(bounds.w, bounds.h) + "; the tracker's frames are " +
               sizeText(width, height));
    const int number = from + direction * steps;
    try {
        sequence->hand(float(number), std::move(frame));
        if (steps == 0)
            for (auto& g : groups)
                g->follow.begin(from, 1);
        for (auto& g : groups)
            stepGroup(*g, number, bounds);
        ++steps;
        emit(false);
    } catch (...) {
        // What was tracked before stays, as the tool keeps it.
        open = false;
        emit(true);
        sequence->clear();
        throw;
    }
}

void TrPyTracker::finish() {
    if (!open)
        return;
    if (steps > 0)
        for (auto& g : groups)
            g->follow.end(from + direction * (steps - 1));
    open = false;
    emit(true);
    sequence->clear();
}

bool TrPyTracker::isFinal(int i, int frame, bool passOver) const {
    if (passOver || !lanes[size_t(i)].alive)
        return true;
    // The lagged refinement re-solves its pattern frame and the frames after
    // it; everything before is settled.
    const Group& g = *groups[size_t(i / TrTrackRun::groupSize)];
    return (g.follow.getInfo(i - g.first).patternFrame - frame) * direction > 0;
}

// Keyed frames are read back from the curve, which holds the refined values;
// the rest keep the estimate taken at the step.
TrSample TrPyTracker::finalSample(int i, const TrSample& estimate) const {
    Group& g = *groups[size_t(i / TrTrackRun::groupSize)];
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

void TrPyTracker::emit(bool passOver) {
    const int count = int(results.size());
    while (finalCount < steps) {
        const int frame = from + direction * finalCount;
        for (int i = 0; i < count; ++i)
            if (!isFinal(i, frame, passOver))
                return;
        for (int i = 0; i < count; ++i) {
            std::deque<TrSample>& queue = lanes[size_t(i)].pending;
            if (queue.empty() || queue.front().frame != frame)
                continue;
            results[size_t(i)].samples.push_back(finalSample(i, queue.front()));
            queue.pop_front();
        }
        ++finalCount;
    }
}
