#pragma once

#include "base/SafeObject.h"
#include "image/Format.h"
#include "image/GenRect.h"
#include "image/Image.h"
#include "krovel/AffineTransform.h"
#include "krovel/KrMatrixError.h"
#include "track/TrShot.h"

#include <cmath>
#include <functional>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <utility>
#include <vector>

// A shot for the driver's tests: grey RGB frames rendered from a function of
// position and frame, per-track settings in plain fields, keys in maps with
// linear interpolation between them, and a record of every fetched region
// and every key written.
namespace recordingshot {

using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::Image;

// A band-limited texture: a sum of sinusoids evaluated exactly at any
// position, so a sub-pixel shift renders without an interpolator.
struct Texture {
    struct Wave {
        double kx, ky, phase;
    };
    std::vector<Wave> waves;

    explicit Texture(unsigned seed) {
        std::mt19937 rng(seed);
        std::uniform_real_distribution<double> angle(0.0, 2.0 * M_PI);
        std::uniform_real_distribution<double> wavelength(7.0, 16.0);
        for (int i = 0; i < 8; ++i) {
            const double a = angle(rng);
            const double k = 2.0 * M_PI / wavelength(rng);
            waves.push_back({k * std::cos(a), k * std::sin(a), angle(rng)});
        }
    }

    double operator()(double x, double y) const {
        double v = 0.5;
        for (const Wave& w : waves)
            v += 0.045 * std::sin(w.kx * x + w.ky * y + w.phase);
        return v;
    }
};

struct Write {
    char kind; // 'p' position, 't' transform, 'q' quality
    int track;
    int frame;
    GenPoint<double> position;
    AffineTransform transform;
    double quality;
};

struct TrackSettings {
    GenPoint<double> base;
    GenRect<double> pattern{-8, -8, 16, 16};
    GenRect<double> search{-14, -14, 28, 28};
    dstring colorMode = "luminance";
    double tolerance = 0.5;
    dstring behavior = "stop";
    bool useRotate = false;
    bool useScale = false;
    bool useStretch = false;
    std::map<int, GenPoint<double>> positions;
    std::map<int, AffineTransform> transforms;
    std::map<int, double> qualities;
};

inline GenPoint<double> mix(const GenPoint<double>& a, const GenPoint<double>& b, double s) {
    return GenPoint<double>(a.x + (b.x - a.x) * s, a.y + (b.y - a.y) * s);
}
inline AffineTransform mix(const AffineTransform& a, const AffineTransform& b, double s) {
    return a + (b - a) * float(s);
}

// The keyed value at `f`, linear between keys, held beyond the ends.
template <class T> T curveAt(const std::map<int, T>& keys, int f, const T& unkeyed) {
    if (keys.empty())
        return unkeyed;
    auto after = keys.lower_bound(f);
    if (after == keys.end())
        return std::prev(after)->second;
    if (after->first == f || after == keys.begin())
        return after->second;
    auto before = std::prev(after);
    const double s = double(f - before->first) / double(after->first - before->first);
    return mix(before->second, after->second, s);
}

class RecordingShot : public TrShot, public Orvane::SafeObject {
public:
    // Value in 0..1 at continuous position (x, y) of frame f.
    using Render = std::function<double(double x, double y, int f)>;

    RecordingShot(int width, int height, Render render)
        : width(width), height(height), render(std::move(render)) {}

    int addTrack(double x, double y) {
        tracks.emplace_back();
        tracks.back().base = GenPoint<double>(x, y);
        return int(tracks.size()) - 1;
    }
    TrackSettings& at(int i) { return tracks.at(std::size_t(i)); }

    static int frameOf(float t) { return int(std::lround(t)); }

    void getTrackRange(bool& hasFirst, float& first, bool& hasLast, float& last) override {
        hasFirst = hasLast = true;
        first = rangeFirst;
        last = rangeLast;
    }

    // The part of the frame inside `rect`, rendered at pixel centres.
    Image getImage(float time, const GenRect<int>& rect, bool) override {
        const int f = frameOf(time);
        fetches.push_back({f, rect});
        const GenRect<int> b = rect & GenRect<int>(0, 0, width, height);
        Image img(GenRect<int>(b.x, b.y, b.w > 0 ? b.w : 0, b.h > 0 ? b.h : 0),
                  Orvane::Format::getRGB());
        for (int y = 0; y < b.h; ++y) {
            unsigned char* row;
            img.getBuffer(row, GenPoint<int>(b.x, b.y + y));
            for (int x = 0; x < b.w; ++x) {
                const double v =
                    flatFrames.count(f) ? 0.5 : render(b.x + x + 0.5, b.y + y + 0.5, f);
                const auto byte = static_cast<unsigned char>(std::lround(255.0 * v));
                row[3 * x] = row[3 * x + 1] = row[3 * x + 2] = byte;
            }
        }
        return img;
    }

    bool getTracking() override { return false; }
    void setTracking(bool) override {}
    int getTrackCount() override { return int(tracks.size()); }

    GenRect<double> getPatternRect(int i, float) override { return at(i).pattern; }
    GenRect<double> getSearchRect(int i, float) override {
        if (searchRectError)
            KrMatrixError::err("shot failure %d", i);
        return at(i).search;
    }
    GenRect<double> getSearchedRect(int i, float) override { return at(i).search; }
    void setPatternRect(int i, const GenRect<double>& r) override { at(i).pattern = r; }
    void setSearchRect(int i, const GenRect<double>& r) override { at(i).search = r; }
    void setSearchedRect(int, float, const GenRect<double>&) override {}

    GenPoint<double> getPosition(int i, float t) override {
        return curveAt(at(i).positions, frameOf(t), at(i).base);
    }
    void setPosition(int i, float t, const GenPoint<double>& p) override {
        at(i).positions[frameOf(t)] = p;
        writes.push_back({'p', i, frameOf(t), p, AffineTransform(), 0});
    }
    bool isPositionKeyed(int i, float t) override { return at(i).positions.count(frameOf(t)); }
    bool isPositionKeyedByUser(int, float) override { return false; }
    void setQuality(int i, float t, double q) override {
        at(i).qualities[frameOf(t)] = q;
        writes.push_back({'q', i, frameOf(t), GenPoint<double>(), AffineTransform(), q});
    }
    double getQuality(int i, float t) override {
        auto k = at(i).qualities.find(frameOf(t));
        return k == at(i).qualities.end() ? 0.0 : k->second;
    }
    bool isQualityKeyed(int i, float t) override { return at(i).qualities.count(frameOf(t)); }
    AffineTransform getTransform(int i, float t) override {
        return curveAt(at(i).transforms, frameOf(t), AffineTransform());
    }
    void setTransform(int i, float t, const AffineTransform& x) override {
        at(i).transforms[frameOf(t)] = x;
        writes.push_back({'t', i, frameOf(t), GenPoint<double>(), x, 0});
    }

    dstring getColorMode(int i) override { return at(i).colorMode; }
    void setColorMode(int i, const dstring& m) override { at(i).colorMode = m; }
    double getFailureTolerance(int i) override { return at(i).tolerance; }
    void setFailureTolerance(int i, double v) override { at(i).tolerance = v; }
    dstring getFailureBehavior(int i) override { return at(i).behavior; }
    void setFailureBehavior(int i, const dstring& b) override { at(i).behavior = b; }
    bool getUseScale(int i) override { return at(i).useScale; }
    void setUseScale(int i, bool on) override { at(i).useScale = on; }
    bool getUseRotate(int i) override { return at(i).useRotate; }
    void setUseRotate(int i, bool on) override { at(i).useRotate = on; }
    bool getUseStretch(int i) override { return at(i).useStretch; }
    void setUseStretch(int i, bool on) override { at(i).useStretch = on; }

    // The writes made at or for `frame`.
    std::vector<Write> writesFor(int frame) const {
        std::vector<Write> out;
        for (const Write& w : writes)
            if (w.frame == frame)
                out.push_back(w);
        return out;
    }

    int width;
    int height;
    Render render;
    std::vector<TrackSettings> tracks;
    std::set<int> flatFrames;
    bool searchRectError = false;
    float rangeFirst = 1;
    float rangeLast = 50;

    struct Fetch {
        int frame;
        GenRect<int> rect;
    };
    std::vector<Fetch> fetches;
    std::vector<Write> writes;
};

} // namespace recordingshot
