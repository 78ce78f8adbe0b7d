#pragma once

#include "track/RecordingShot.h"
#include "track/TrFollow.h"
#include "track/TrackImages.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// Scenes that take tracks from the driver, each with the known motion of its
// features: a block crossing them, fast blurred motion, a block carrying a
// copy of the feature. A pass records what every step reported.
namespace robustscenes {

using trackimages::GenPoint;
using trackimages::GenRect;
using trackimages::Texture;

const int kWidth = 240;
const int kHeight = 160;

struct Scene {
    const char* name;
    RecordingShot::Render render;
    // The features' positions at frame 1; each then moves by `velocity(f)`
    // summed over the frames before f.
    std::vector<GenPoint<double>> starts;
    std::function<GenPoint<double>(int)> velocity;
    int frames;
    // Frames from which nothing covers or imitates any feature again.
    int clearFrom;

    GenPoint<double> truth(int k, int f) const {
        GenPoint<double> p = starts[size_t(k)];
        for (int g = 1; g < f; ++g) {
            const GenPoint<double> v = velocity(g);
            p = GenPoint<double>(p.x + v.x, p.y + v.y);
        }
        return p;
    }
    // The background moved so that its frame-1 point `p` lies at the truth.
    GenPoint<double> shift(int f) const {
        GenPoint<double> d(0, 0);
        for (int g = 1; g < f; ++g)
            d = GenPoint<double>(d.x + velocity(g).x, d.y + velocity(g).y);
        return d;
    }
};

inline GenPoint<double> constant(double x, double y) {
    return GenPoint<double>(x, y);
}

// A textured background moving by (1, 0.5) a frame; a band 40 pixels wide,
// flat or of another texture, crosses it leftward at 3 pixels a frame and
// hides each feature wholly for six frames.
inline Scene occluder(bool textured) {
    const auto tex = std::make_shared<Texture>(11);
    const auto other = std::make_shared<Texture>(29);
    Scene s{textured ? "textured occluder" : "flat occluder",
            nullptr,
            {{100, 40}, {100, 80}, {100, 120}},
            [](int) { return constant(1, 0.5); },
            36,
            26};
    s.render = [tex, other, textured](double x, double y, int f) {
        const double left = 150 - 3.0 * (f - 1);
        if (x >= left && x < left + 40)
            return textured ? (*other)(x, y) : 0.5;
        return (*tex)(x - (f - 1), y - 0.5 * (f - 1));
    };
    return s;
}

// The texture moves 5 to 8 pixels a frame, changing pace, and every frame
// is box-blurred along its own motion, so the pattern's blur differs from
// the frame's.
inline Scene blurred() {
    const auto tex = std::make_shared<Texture>(7);
    Scene s{"fast blurred motion",
            nullptr,
            {{40, 40}, {40, 80}, {40, 120}, {70, 60}, {70, 100}, {55, 80}},
            [](int f) { return constant(5 + 1.5 * (1 + std::sin(0.9 * f)), 0.8); },
            20,
            1};
    const auto shifts = std::make_shared<std::vector<GenPoint<double>>>();
    for (int f = 1; f <= 60; ++f)
        shifts->push_back(s.shift(f));
    const auto velocity = s.velocity;
    s.render = [tex, shifts, velocity](double x, double y, int f) {
        const GenPoint<double> d = (*shifts)[size_t(f - 1)];
        const GenPoint<double> v = velocity(std::max(f - 1, 1));
        double sum = 0;
        const int taps = 9;
        for (int k = 0; k < taps; ++k) {
            const double u = (k + 0.5) / taps - 0.5;
            sum += (*tex)(x - d.x - u * v.x, y - d.y - u * v.y);
        }
        return sum / taps;
    };
    return s;
}

// A 40 x 40 block that carries a perfect copy of the feature's neighbourhood
// crosses it at 4 pixels a frame against its motion: the copy scores as
// well as the feature itself.
inline Scene decoy(double dy) {
    const auto tex = std::make_shared<Texture>(17);
    Scene s{dy == 0  ? "decoy across"
            : dy > 0 ? "decoy below"
                     : "decoy above",
            nullptr,
            {{100, 80}},
            [](int) { return constant(1, 0.5); },
            36,
            26};
    const GenPoint<double> p0 = s.starts[0];
    s.render = [tex, p0, dy](double x, double y, int f) {
        const GenPoint<double> c(165 - 3.0 * (f - 1), p0.y + dy + 0.5 * (f - 1));
        if (std::abs(x - c.x) < 20 && std::abs(y - c.y) < 20)
            return (*tex)(x - c.x + p0.x, y - c.y + p0.y);
        return (*tex)(x - (f - 1), y - 0.5 * (f - 1));
    };
    return s;
}

// One pass over a scene with every track in it, as a host runs it.
struct Pass {
    Pass(const Scene& scene, const std::function<void(TrFollow&)>& configure,
         const char* behavior = "default", double tolerance = 0.8)
        : scene(scene), shot(kWidth, kHeight, scene.render) {
        for (const GenPoint<double>& p : scene.starts)
            shot.add(p.x, p.y);
        shot.setFailureBehavior(0, behavior);
        shot.setFailureTolerance(0, tolerance);
        follow.setShot(&shot);
        configure(follow);
        const size_t n = scene.starts.size();
        status.assign(n, std::vector<TrStepStatus>(size_t(scene.frames + 1), TrStepStatus::Lost));
        stoppedAt.assign(n, 0);
        reasons.assign(n, "");
        follow.begin(1, 1);
        for (int f = 1; f <= scene.frames; ++f)
            for (size_t k = 0; k < n; ++k) {
                if (stoppedAt[k] != 0)
                    continue;
                if (!follow.track(int(k), f, 1)) {
                    stoppedAt[k] = f;
                    reasons[k] = follow.getStopReason(int(k)) ? follow.getStopReason(int(k)) : "";
                }
                status[k][size_t(f)] = follow.getStepStatus(int(k));
            }
    }
    double error(int k, int f) {
        const GenPoint<double> p = shot.getPosition(k, float(f));
        const GenPoint<double> t = scene.truth(k, f);
        return std::hypot(p.x - t.x, p.y - t.y);
    }
    bool tracked(int k, int f) const {
        return status[size_t(k)][size_t(f)] == TrStepStatus::Tracked;
    }

    Scene scene;
    RecordingShot shot;
    TrFollow follow;
    std::vector<std::vector<TrStepStatus>> status;
    std::vector<int> stoppedAt;
    std::vector<std::string> reasons;
};

// What a pass made of its scene: the errors of the frames it reported
// tracked, after the begin frame, and how many tracks ended tracked within
// one pixel of the truth.
struct Figures {
    std::vector<double> errors;
    double worst = 0;
    int back = 0;
    int tracks = 0;

    double median() const {
        if (errors.empty())
            return NAN;
        std::vector<double> e = errors;
        std::nth_element(e.begin(), e.begin() + long(e.size() / 2), e.end());
        return e[e.size() / 2];
    }
    double within(double px) const {
        return errors.empty() ? 0
                              : double(std::count_if(errors.begin(), errors.end(),
                                                     [px](double e) { return e < px; })) /
                                    double(errors.size());
    }
};

inline Figures measure(Pass& pass, const char* label) {
    Figures m;
    const int last = pass.scene.frames;
    m.tracks = int(pass.scene.starts.size());
    for (int k = 0; k < m.tracks; ++k) {
        for (int f = 2; f <= last; ++f)
            if (pass.tracked(k, f)) {
                m.errors.push_back(pass.error(k, f));
                m.worst = std::max(m.worst, m.errors.back());
            }
        if (pass.tracked(k, last) && pass.error(k, last) < 1)
            ++m.back;
    }
    std::printf("%-20s %-8s tracked frames %3zu, median error %.4f px, worst %.3f px, "
                "within 1 px %.0f %%, %d of %d tracks end within 1 px\n",
                pass.scene.name, label, m.errors.size(), m.median(), m.worst, 100 * m.within(1),
                m.back, m.tracks);
    return m;
}

} // namespace robustscenes
