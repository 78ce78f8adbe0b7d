#include "tools/accuracy/TrAccuracyStats.h"

#include <algorithm>
#include <cmath>
#include <limits>

using Orvane::GenPoint;

namespace {

double _distance(const GenPoint<double>& a, const GenPoint<double>& b) {
    return std::hypot(a.x - b.x, a.y - b.y);
}

} // namespace

void TrAccuracyStats::addEnd(bool isKept, double finalError, bool tracked) {
    ++tracks;
    if (!isKept)
        return;
    ++keptTracks;
    if (finalError <= 1)
        ++heldTracks;
    if (finalError > 3 && tracked)
        ++following;
    if (tracked) {
        ++trackedToEnd;
        if (finalError <= 1)
            ++trackedHeld;
    }
}

void TrAccuracyStats::addClip(const TrAccuracyClip& clip, const TrPassResult& pass) {
    for (std::size_t k = 0; k < clip.truth.size(); ++k) {
        const std::vector<GenPoint<double>>& truth = clip.truth[k];
        const std::size_t last = truth.size() - 1;
        for (std::size_t f = 1; f < truth.size(); ++f) {
            ++expected;
            if (pass.alive[k][f])
                errors.push_back(_distance(pass.path[k][f], truth[f]));
        }
        const bool isKept = pass.alive[k][last];
        const double finalError = isKept ? _distance(pass.path[k][last], truth[last])
                                         : std::numeric_limits<double>::infinity();
        addEnd(isKept, finalError, pass.last[k] == TrStepStatus::Tracked);
        if (!clip.covered.empty() && std::find(clip.covered[k].begin(), clip.covered[k].end(),
                                               true) != clip.covered[k].end()) {
            ++occluded;
            if (isKept && finalError <= 1)
                ++recovered;
        }
    }
    addTime(pass.cpuSeconds, pass.steps);
}

void TrAccuracyStats::addRoundTrip(const GenPoint<double>& start, const GenPoint<double>& back,
                                   bool isKept, bool tracked) {
    ++expected;
    const double error = _distance(start, back);
    if (isKept)
        errors.push_back(error);
    addEnd(isKept, error, tracked);
}

void TrAccuracyStats::addTime(double seconds, long stepCount) {
    cpuSeconds += seconds;
    steps += stepCount;
}

double TrAccuracyStats::quantile(double q) const {
    if (errors.empty())
        return std::numeric_limits<double>::quiet_NaN();
    std::vector<double> sorted = errors;
    std::sort(sorted.begin(), sorted.end());
    const double at = q * double(sorted.size() - 1);
    const std::size_t below = std::size_t(std::floor(at));
    const std::size_t above = std::min(below + 1, sorted.size() - 1);
    return sorted[below] + (sorted[above] - sorted[below]) * (at - double(below));
}

double TrAccuracyStats::rms() const {
    if (errors.empty())
        return std::numeric_limits<double>::quiet_NaN();
    double sum = 0;
    for (double e : errors)
        sum += e * e;
    return std::sqrt(sum / double(errors.size()));
}

double TrAccuracyStats::within(double pixels) const {
    if (expected == 0)
        return 0;
    const auto n =
        std::count_if(errors.begin(), errors.end(), [&](double e) { return e <= pixels; });
    return double(n) / expected;
}

double TrAccuracyStats::kept() const {
    return tracks ? double(keptTracks) / tracks : 0;
}

double TrAccuracyStats::held() const {
    return tracks ? double(heldTracks) / tracks : 0;
}

double TrAccuracyStats::microsPerStep() const {
    return steps ? 1e6 * cpuSeconds / double(steps) : 0;
}
