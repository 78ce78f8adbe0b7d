#pragma once

#include "image/GenRect.h"
#include "image/Image.h"
#include "tools/accuracy/TrPhoto.h"

#include <random>
#include <vector>

/// Where the camera looks: the photograph's point (x, y) lands on the frame's
/// centre, the photograph turned by `angle` (radians, from +x toward +y) and
/// magnified by `zoom`. Frame and photograph both put pixel centres at +0.5.
struct TrWarp {
    double x = 0;
    double y = 0;
    double angle = 0;
    double zoom = 1;

    /// Where photograph point `q` lies in a frame of `width` x `height`.
    Orvane::GenPoint<double> toFrame(const Orvane::GenPoint<double>& q, int width,
                                     int height) const;
    /// The photograph point under frame point `p`.
    Orvane::GenPoint<double> toPhoto(const Orvane::GenPoint<double>& p, int width,
                                     int height) const;
};

/// A frame in red, green and blue floats, interleaved, row 0 at the top.
struct TrFloatFrame {
    int width = 0;
    int height = 0;
    std::vector<float> rgb;

    TrFloatFrame() = default;
    TrFloatFrame(int w, int h) : width(w), height(h), rgb(std::size_t(w) * h * 3, 0.0f) {}
    float* at(int x, int y) { return &rgb[(std::size_t(y) * width + x) * 3]; }
    const float* at(int x, int y) const { return &rgb[(std::size_t(y) * width + x) * 3]; }
};

/// Renders frames of a photograph under a known camera: each output pixel
/// averages `supersample` x `supersample` bicubic samples spread evenly over
/// its area, which is the photograph box-filtered onto the frame's grid.
class TrRenderer {
public:
    /// The photograph is referenced, not copied: it must outlive the renderer.
    TrRenderer(const TrPhoto& photo, int width, int height, int supersample);

    TrFloatFrame render(const TrWarp& camera) const;
    /// The frame a shutter records while the camera passes through `path`:
    /// the average of a render at each of its cameras, evenly spaced in time.
    TrFloatFrame renderBlurred(const std::vector<TrWarp>& path) const;

    /// Covers `frame` with `block` placed with its top-left pixel on (x, y);
    /// whatever falls outside the frame is dropped.
    static void paste(TrFloatFrame& frame, const TrFloatFrame& block, int x, int y);
    /// A block of the photograph's own pixels, its top-left pixel at (x, y).
    static TrFloatFrame cut(const TrPhoto& photo, const Orvane::GenRect<int>& r);
    /// The frame as 8-bit rgb, as footage arrives: each sample becomes
    /// gain * value + offset, plus Gaussian noise of `noise` (in the 0..1
    /// range) when `rng` is given, then rounded and limited to 0..255.
    static Orvane::Image toImage(const TrFloatFrame& frame, float gain = 1, float offset = 0,
                                 float noise = 0, std::mt19937* rng = nullptr);

private:
    void accumulate(const TrWarp& camera, float weight, TrFloatFrame& into) const;

    const TrPhoto& photo;
    int width;
    int height;
    int supersample;
};
