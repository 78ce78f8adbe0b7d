#pragma once

#include "image/Format.h"
#include "image/Image.h"
#include "krovel/AffineTransform.h"
#include "track/TrShotImpl.h"

#include <cmath>
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

// A shot for the driver's tests: grey 8-bit RGB frames rendered from a
// function of position and frame, the stand-alone shot's settings and keys,
// and a record of every region fetched and every key written.
class RecordingShot : public TrShotImpl {
public:
    // Value in 0..1 at continuous position (x, y) of frame f.
    using Render = std::function<double(double x, double y, int f)>;
    struct Fetch {
        int frame;
        Orvane::GenRect<int> rect;
    };
    RecordingShot(int width, int height, Render render)
        : width(width), height(height), render(std::move(render)) {}

    // A track with a 16 x 16 pattern and a search area 6 pixels wider on
    // each side, a tolerance of 0.5 and no rotation.
    using TrNode::add;
    int add(double x, double y) {
        addTrack(x, y);
        const int i = getTrackCount() - 1;
        setPatternRect(i, Orvane::GenRect<double>(-8, -8, 16, 16));
        setSearchRect(i, Orvane::GenRect<double>(-14, -14, 28, 28));
        setFailureTolerance(i, 0.5);
        setUseRotate(i, false);
        return i;
    }

    void getTrackRange(bool& hasFirst, float& first, bool& hasLast, float& last) override {
        hasFirst = hasLast = true;
        first = 1;
        last = 50;
    }

    // The part of the frame inside `rect`, rendered at pixel centres.
    Orvane::Image getImage(float time, const Orvane::GenRect<int>& rect, bool) override {
        const int f = intTime(time);
        fetches.push_back({f, rect});
        const Orvane::GenRect<int> b = rect & Orvane::GenRect<int>(0, 0, width, height);
        Orvane::Image img(Orvane::GenRect<int>(b.x, b.y, std::max(b.w, 0), std::max(b.h, 0)),
                          Orvane::Format::getRGB());
        for (int y = b.y; y < b.y + b.h; ++y)
            for (int x = b.x; x < b.x + b.w; ++x) {
                unsigned char* p;
                img.getBuffer(p, Orvane::GenPoint<int>(x, y));
                const double v = flatFrames.count(f) ? 0.5 : render(x + 0.5, y + 0.5, f);
                p[0] = p[1] = p[2] = static_cast<unsigned char>(std::lround(255.0 * v));
            }
        return img;
    }

    // Keys written, as kind and frame: "p3" is a position at frame 3, "t"
    // a transform, "q" a quality.
    void setPosition(int i, float t, const Orvane::GenPoint<double>& p) override {
        TrShotImpl::setPosition(i, t, p);
        writes.push_back("p" + std::to_string(intTime(t)));
    }
    void setQuality(int i, float t, double q) override {
        TrShotImpl::setQuality(i, t, q);
        writes.push_back("q" + std::to_string(intTime(t)));
    }
    void setTransform(int i, float t, const AffineTransform& x) override {
        TrShotImpl::setTransform(i, t, x);
        writes.push_back("t" + std::to_string(intTime(t)));
    }

    int width;
    int height;
    Render render;
    std::set<int> flatFrames;
    std::vector<Fetch> fetches;
    std::vector<std::string> writes;
};
