#pragma once

#include "image/GenRect.h"
#include "image/Image.h"

#include <functional>
#include <vector>

/// Picks the well-textured spots of a frame, where a tracker has something
/// to hold on to: windows whose gradients vary in every direction, scored by
/// the smaller eigenvalue of their structure tensor, best first.
class TrSpotPicker {
public:
    /// Windows of `window` x `window` pixels, candidates every `step` pixels.
    explicit TrSpotPicker(int window = 21, int step = 3) : window(window), step(step) {}

    /// Up to `count` pixel centres (x + 0.5, y + 0.5) on `frame` (8-bit rgb
    /// or l), each at least `spacing` pixels from the others along x or y,
    /// among those that `allowed` accepts; best scoring first. Spots with no
    /// texture at all are never picked.
    std::vector<Orvane::GenPoint<double>>
    pick(const Orvane::Image& frame, int count, int spacing,
         const std::function<bool(const Orvane::GenPoint<double>&)>& allowed) const;

    /// The smaller eigenvalue of the structure tensor of the window centred
    /// on pixel (x, y), with the frame's luminance in 0..1.
    double score(const Orvane::Image& frame, int x, int y) const;

private:
    int window;
    int step;
};
