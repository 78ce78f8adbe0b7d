#pragma once

#include "image/GenRect.h"

#include <array>

/// The recent motion of one track, kept as the misses of its predictions:
/// how far each accepted match lay from where the velocity put it. A match
/// that misses far beyond their spread is something else crossing the
/// feature (an occluder, a passing edge, the next copy of a repeated
/// texture), not the feature.
class TrMotionCheck {
public:
    /// Forgets every miss, as at the begin frame of a pass.
    void reset();
    /// Adds the miss of an accepted match, dropping the oldest beyond eight.
    void learn(const Orvane::GenPoint<double>& miss);
    /// Root mean square length of the misses kept; 0 when none is.
    double spread() const;
    /// Whether `miss` lies within `spreads` times the spread, or within
    /// `floor` pixels, that reach grown by `widen` (1 after an accepted
    /// frame, more while the track coasts and its prediction ages). True
    /// until three misses are kept: the velocity is not yet worth judging by.
    bool agrees(const Orvane::GenPoint<double>& miss, double spreads, double floor,
                double widen) const;

private:
    static constexpr int kHistory = 8;
    std::array<double, kHistory> squares{};
    int count = 0;
    int next = 0;
};
