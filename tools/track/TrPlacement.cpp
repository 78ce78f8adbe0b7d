#include "tools/track/TrPlacement.h"

#include "image/Convert.h"
#include "image/ImageRows.h"
#include "track/TrFollow.h"
#include "track/TrTexture.h"

#include <algorithm>
#include <cmath>
#include <vector>

using Orvane::GenRect;
using Orvane::Image;

namespace {

// The pattern's rectangle about (x, y), each edge rounded as the tracker
// rounds it.
GenRect<int> patternRect(double x, double y, int w, int h) {
    const float fx = float(x), fy = float(y);
    const long x0 = std::lround(fx - w / 2.0), y0 = std::lround(fy - h / 2.0);
    const long x1 = std::lround(fx - w / 2.0 + w), y1 = std::lround(fy - h / 2.0 + h);
    return GenRect<int>(int(x0), int(y0), int(x1 - x0), int(y1 - y0));
}

// Running sums of gx², gx·gy and gy² over the frame, one row and column of
// zeros in front, so that any box of them costs four reads.
struct Integrals {
    int width = 0;
    std::vector<double> xx, xy, yy;

    double box(const std::vector<double>& s, int x0, int y0, int x1, int y1) const {
        const auto at = [&](int x, int y) { return s[size_t(y) * size_t(width + 1) + size_t(x)]; };
        return at(x1, y1) - at(x0, y1) - at(x1, y0) + at(x0, y0);
    }
};

// Central differences at the frame's inner pixels, as TrTexture takes them
// over a pattern: a box of these over a pattern's inner pixels is its tensor.
Integrals integrate(const Image& plane) {
    const Orvane::ImageRows<const float> rows(plane);
    const int w = rows.width(), h = rows.height();
    Integrals in;
    in.width = w;
    const size_t stride = size_t(w) + 1;
    in.xx.assign(stride * size_t(h + 1), 0);
    in.xy = in.yy = in.xx;
    for (int y = 0; y < h; ++y) {
        const float* here = rows.row(y);
        const float* above = y > 0 ? rows.row(y - 1) : here;
        const float* below = y + 1 < h ? rows.row(y + 1) : here;
        double sxx = 0, sxy = 0, syy = 0;
        for (int x = 0; x < w; ++x) {
            if (x > 0 && x + 1 < w && y > 0 && y + 1 < h) {
                const double gx = 0.5 * (double(here[x + 1]) - here[x - 1]);
                const double gy = 0.5 * (double(below[x]) - above[x]);
                sxx += gx * gx;
                sxy += gx * gy;
                syy += gy * gy;
            }
            const size_t k = size_t(y + 1) * stride + size_t(x + 1);
            in.xx[k] = in.xx[k - stride] + sxx;
            in.xy[k] = in.xy[k - stride] + sxy;
            in.yy[k] = in.yy[k - stride] + syy;
        }
    }
    return in;
}

struct Candidate {
    double score;
    int x;
    int y;
};

// The smaller eigenvalue of the mean tensor over the inner pixels of the
// pattern centred on pixel (x, y), as TrTexture::measure has it.
double scoreAt(const Integrals& in, int x, int y, int pw, int ph) {
    const GenRect<int> r = patternRect(x + 0.5, y + 0.5, pw, ph);
    const int x0 = r.x + 1, y0 = r.y + 1, x1 = r.x + r.w - 1, y1 = r.y + r.h - 1;
    const double n = double(x1 - x0) * double(y1 - y0);
    const double a = in.box(in.xx, x0, y0, x1, y1) / n;
    const double b = in.box(in.xy, x0, y0, x1, y1) / n;
    const double c = in.box(in.yy, x0, y0, x1, y1) / n;
    const double large = 0.5 * (a + c) + std::hypot(0.5 * (a - c), b);
    return large > 0 ? (a * c - b * b) / large : 0;
}

// Every pixel centre far enough in from the edges whose score reaches the
// minimum and is a maximum among its eight neighbours.
std::vector<Candidate> peaks(const Integrals& in, int w, int h, const TrTrackSpec& shape) {
    const int mx = std::max(shape.searchWidth, shape.patternWidth / 2 + 2);
    const int my = std::max(shape.searchHeight, shape.patternHeight / 2 + 2);
    const int cols = w - 2 * mx, rows = h - 2 * my;
    std::vector<Candidate> found;
    if (cols < 3 || rows < 3)
        return found;
    std::vector<double> score(size_t(cols) * size_t(rows));
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < cols; ++x)
            score[size_t(y) * size_t(cols) + size_t(x)] =
                scoreAt(in, mx + x, my + y, shape.patternWidth, shape.patternHeight);
    for (int y = 1; y + 1 < rows; ++y)
        for (int x = 1; x + 1 < cols; ++x) {
            const double s = score[size_t(y) * size_t(cols) + size_t(x)];
            // The floor is only the check's first half; `detect` applies
            // the whole of it to each pattern it keeps.
            bool top = s >= TrTexture::kFloor;
            for (int dy = -1; dy <= 1 && top; ++dy)
                for (int dx = -1; dx <= 1 && top; ++dx)
                    top = (dx == 0 && dy == 0) ||
                          score[size_t(y + dy) * size_t(cols) + size_t(x + dx)] < s ||
                          (score[size_t(y + dy) * size_t(cols) + size_t(x + dx)] == s &&
                           dy * cols + dx > 0);
            if (top)
                found.push_back({s, mx + x, my + y});
        }
    return found;
}

} // namespace

Image TrPlacement::patternOf(const Image& frame, const TrTrackSpec& spec) {
    const GenRect<int> r = patternRect(spec.x, spec.y, spec.patternWidth, spec.patternHeight);
    const Image cut = frame.clip(r);
    if (cut.getBounds().isEmpty())
        return Image();
    return TrFollow::reduce(cut, dstring(spec.colorMode));
}

double TrPlacement::textureOf(const Image& frame, const TrTrackSpec& spec) {
    const Image pattern = patternOf(frame, spec);
    return pattern.exists() ? TrTexture::measure(pattern) : 0;
}

bool TrPlacement::hasTexture(const Image& frame, const TrTrackSpec& spec) {
    const Image pattern = patternOf(frame, spec);
    return pattern.exists() && TrTexture::isEnough(pattern);
}

std::vector<TrTrackSpec> TrPlacement::detect(const Image& frame, int count,
                                             const TrTrackSpec& shape) {
    const Image plane =
        Orvane::convertToDatatype(TrFollow::reduce(frame, dstring(shape.colorMode)), Orvane::FLOAT);
    const GenRect<int> b = frame.getBounds();
    std::vector<Candidate> found = peaks(integrate(plane), b.w, b.h, shape);
    // Strongest first; ties in reading order, so the choice never depends on
    // the sort.
    std::sort(found.begin(), found.end(), [](const Candidate& p, const Candidate& q) {
        return p.score != q.score ? p.score > q.score : p.y != q.y ? p.y < q.y : p.x < q.x;
    });
    const double apart = std::max(shape.patternWidth, shape.patternHeight);
    std::vector<TrTrackSpec> placed;
    for (const Candidate& c : found) {
        if (int(placed.size()) >= count)
            break;
        TrTrackSpec s = shape;
        s.x = b.x + c.x + 0.5;
        s.y = b.y + c.y + 0.5;
        const bool near = std::any_of(placed.begin(), placed.end(), [&](const TrTrackSpec& t) {
            return std::hypot(t.x - s.x, t.y - s.y) < apart;
        });
        if (near || !hasTexture(frame, s))
            continue;
        s.name = std::to_string(placed.size() + 1);
        placed.push_back(s);
    }
    return placed;
}
