#include "tools/accuracy/TrAccuracyScenes.h"

#include "tools/accuracy/TrSpotPicker.h"

#include <algorithm>
#include <cmath>
#include <random>

using Orvane::GenPoint;
using Orvane::GenRect;

namespace {

constexpr double pi = 3.14159265358979323846;

// Each frame seen through one camera, with no blur.
std::vector<std::vector<TrWarp>> _unblurred(const std::vector<TrWarp>& cameras) {
    std::vector<std::vector<TrWarp>> paths(cameras.size());
    for (std::size_t f = 0; f < cameras.size(); ++f)
        paths[f] = {cameras[f]};
    return paths;
}

// A camera on the photograph's centre drifting by (vx, vy) a frame.
std::vector<TrWarp> _drift(const TrPhoto& photo, int frames, double vx, double vy) {
    std::vector<TrWarp> cameras;
    for (int f = 0; f < frames; ++f) {
        TrWarp w;
        w.x = photo.getWidth() * 0.5 + vx * f;
        w.y = photo.getHeight() * 0.5 + vy * f;
        cameras.push_back(w);
    }
    return cameras;
}

bool _overlaps(const GenRect<double>& a, const GenRect<double>& b) {
    return a.x < b.x + b.w && b.x < a.x + a.w && a.y < b.y + b.h && b.y < a.y + a.h;
}

} // namespace

bool TrAccuracyScenes::insideMargin(const GenPoint<double>& p) const {
    return p.x >= size.margin && p.y >= size.margin && p.x <= size.width - size.margin &&
           p.y <= size.height - size.margin;
}

void TrAccuracyScenes::placeTracks(const std::vector<std::vector<TrWarp>>& paths,
                                   TrAccuracyClip& clip) const {
    const int w = size.width;
    const int h = size.height;
    // The photograph point under a frame point, and where it is in frame f:
    // where the blurred image's weight lies, the mean over the shutter.
    auto photoPoint = [&](const GenPoint<double>& p) {
        return paths[0][paths[0].size() / 2].toPhoto(p, w, h);
    };
    auto seen = [&](const GenPoint<double>& q, std::size_t f) {
        GenPoint<double> sum(0, 0);
        for (const TrWarp& c : paths[f]) {
            const GenPoint<double> p = c.toFrame(q, w, h);
            sum.x += p.x / double(paths[f].size());
            sum.y += p.y / double(paths[f].size());
        }
        return sum;
    };
    auto staysInside = [&](const GenPoint<double>& p) {
        const GenPoint<double> q = photoPoint(p);
        for (std::size_t f = 0; f < paths.size(); ++f)
            if (!insideMargin(seen(q, f)))
                return false;
        return true;
    };
    const TrSpotPicker picker(size.pattern);
    for (const GenPoint<double>& spot :
         picker.pick(clip.frames[0], size.tracks, size.pattern, staysInside)) {
        const GenPoint<double> q = photoPoint(spot);
        std::vector<GenPoint<double>> truth;
        for (std::size_t f = 0; f < paths.size(); ++f)
            truth.push_back(seen(q, f));
        clip.truth.push_back(truth);
    }
}

TrAccuracyClip TrAccuracyScenes::translation(const TrPhoto& photo) const {
    const std::vector<TrWarp> cameras = _drift(photo, size.frames, 0.373, -0.241);
    const TrRenderer renderer(photo, size.width, size.height, size.supersample);
    TrAccuracyClip clip;
    clip.category = "translation";
    for (const TrWarp& c : cameras)
        clip.frames.push_back(TrRenderer::toImage(renderer.render(c)));
    placeTracks(_unblurred(cameras), clip);
    return clip;
}

TrAccuracyClip TrAccuracyScenes::rotationZoom(const TrPhoto& photo, double degrees,
                                              double zoom) const {
    std::vector<TrWarp> cameras = _drift(photo, size.frames, 0.21, -0.13);
    const double last = std::max(size.frames - 1, 1);
    for (int f = 0; f < size.frames; ++f) {
        cameras[std::size_t(f)].angle = degrees * pi / 180 * f / last;
        cameras[std::size_t(f)].zoom = std::pow(zoom, f / last);
    }
    const TrRenderer renderer(photo, size.width, size.height, size.supersample);
    TrAccuracyClip clip;
    clip.category = "rotation+zoom";
    for (const TrWarp& c : cameras)
        clip.frames.push_back(TrRenderer::toImage(renderer.render(c)));
    placeTracks(_unblurred(cameras), clip);
    return clip;
}

TrAccuracyClip TrAccuracyScenes::noiseDrift(const TrPhoto& photo) const {
    const std::vector<TrWarp> cameras = _drift(photo, size.frames, -0.291, 0.317);
    const TrRenderer renderer(photo, size.width, size.height, size.supersample);
    TrAccuracyClip clip;
    clip.category = "noise+drift";
    // The contrast falls by 30 % and the level rises by 12 % of the range
    // over the clip, under noise of 1.5 % (about 4 of 255 levels).
    std::mt19937 rng(20261125);
    const double last = std::max(size.frames - 1, 1);
    for (int f = 0; f < size.frames; ++f) {
        const float t = float(f / last);
        clip.frames.push_back(TrRenderer::toImage(renderer.render(cameras[std::size_t(f)]),
                                                  1.0f - 0.3f * t, 0.12f * t, 0.015f, &rng));
    }
    placeTracks(_unblurred(cameras), clip);
    return clip;
}

TrAccuracyClip TrAccuracyScenes::fastBlur(const TrPhoto& photo) const {
    // A hand-held shake: up to 12.6 pixels a frame across and 8.4 down,
    // changing by up to 7 pixels a frame from one frame to the next.
    auto camera = [&](double t) {
        TrWarp w;
        w.x = photo.getWidth() * 0.5 + 24 * std::sin(2 * pi * t / 12);
        w.y = photo.getHeight() * 0.5 + 12 * std::sin(2 * pi * t / 9 + 1);
        return w;
    };
    // Each of the shutter's renders takes at most 2 x 2 samples a pixel: the
    // blur averages far more than that already.
    const TrRenderer renderer(photo, size.width, size.height, std::min(size.supersample, 2));
    const int n = std::max(size.blurSamples, 1);
    TrAccuracyClip clip;
    clip.category = "fast+blur";
    std::vector<std::vector<TrWarp>> paths(std::size_t(size.frames),
                                           std::vector<TrWarp>(std::size_t(n)));
    for (int f = 0; f < size.frames; ++f) {
        // The shutter is open for the middle half of the frame's time.
        std::vector<TrWarp>& shutter = paths[std::size_t(f)];
        for (int k = 0; k < n; ++k)
            shutter[std::size_t(k)] = camera(f - 0.25 + 0.5 * (k + 0.5) / n);
        clip.frames.push_back(TrRenderer::toImage(renderer.renderBlurred(shutter)));
    }
    placeTracks(paths, clip);
    return clip;
}

TrAccuracyClip TrAccuracyScenes::occluder(const TrPhoto& photo, const TrPhoto& texture) const {
    const std::vector<TrWarp> cameras = _drift(photo, size.frames, 0.193, 0.109);
    const TrRenderer renderer(photo, size.width, size.height, size.supersample);
    std::vector<TrFloatFrame> frames;
    frames.reserve(cameras.size());
    for (const TrWarp& c : cameras)
        frames.push_back(renderer.render(c));
    TrAccuracyClip clip;
    clip.category = "occluder";
    clip.frames.push_back(TrRenderer::toImage(frames[0]));
    placeTracks(_unblurred(cameras), clip);

    // The block covers the band of rows holding the most tracks.
    const int bw = 48;
    const int bh = 64;
    double bandTop = size.height * 0.5 - bh * 0.5;
    int most = -1;
    for (const auto& t : clip.truth) {
        const auto inBand = [&](const auto& u) { return std::abs(u[0].y - t[0].y) < bh * 0.5; };
        const int n = int(std::count_if(clip.truth.begin(), clip.truth.end(), inBand));
        if (n > most) {
            most = n;
            bandTop = t[0].y - bh * 0.5;
        }
    }
    const TrFloatFrame block =
        TrRenderer::cut(texture, GenRect<int>(texture.getWidth() / 2 - bw / 2,
                                              texture.getHeight() / 2 - bh / 2, bw, bh));
    // It enters at the second frame and has left by 70 % of the clip.
    const int gone = std::max(int(std::lround(0.7 * (size.frames - 1))), 2);
    clip.covered.assign(clip.truth.size(), std::vector<bool>(std::size_t(size.frames), false));
    for (int f = 1; f < size.frames; ++f) {
        const int x = -bw + int(std::lround(double(size.width + bw) * (f - 1) / (gone - 1)));
        const int y = int(std::lround(bandTop));
        TrRenderer::paste(frames[std::size_t(f)], block, x, y);
        clip.frames.push_back(TrRenderer::toImage(frames[std::size_t(f)]));
        const GenRect<double> blockRect(x, y, bw, bh);
        const double half = size.pattern * 0.5;
        for (std::size_t k = 0; k < clip.truth.size(); ++k) {
            const GenPoint<double>& p = clip.truth[k][std::size_t(f)];
            clip.covered[k][std::size_t(f)] = _overlaps(
                blockRect, GenRect<double>(p.x - half, p.y - half, size.pattern, size.pattern));
        }
    }
    return clip;
}
