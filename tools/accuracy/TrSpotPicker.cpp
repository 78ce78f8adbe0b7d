#include "tools/accuracy/TrSpotPicker.h"

#include "base/Exception.h"
#include "image/Format.h"
#include "image/ImageRows.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

using Orvane::GenPoint;

namespace {

// Rec. 601 luminance in 0..1 of an 8-bit rgb or l frame, row-major.
std::vector<double> _luminance(const Orvane::Image& frame) {
    const Orvane::Format& f = frame.getFormat();
    if (f.getDatatype() != Orvane::UB1)
        throw IllegalArgumentException("TrSpotPicker: 8-bit frames only");
    const bool grey = f.getIndex('r') < 0;
    const int r = grey ? f.getIndex('l') : f.getIndex('r');
    const int g = grey ? r : f.getIndex('g');
    const int b = grey ? r : f.getIndex('b');
    if (r < 0 || g < 0 || b < 0)
        throw IllegalArgumentException("TrSpotPicker: 8-bit frames only");
    const Orvane::ImageRows<const unsigned char> rows(frame);
    const int step = f.getNumChannels();
    std::vector<double> lum(std::size_t(rows.width()) * rows.height());
    for (int y = 0; y < rows.height(); ++y) {
        const unsigned char* p = rows.row(y);
        for (int x = 0; x < rows.width(); ++x, p += step)
            lum[std::size_t(y) * rows.width() + x] =
                (0.299 * p[r] + 0.587 * p[g] + 0.114 * p[b]) / 255.0;
    }
    return lum;
}

// Smaller eigenvalue of [[a, c], [c, b]].
double _minEigen(double a, double b, double c) {
    return 0.5 * (a + b - std::sqrt((a - b) * (a - b) + 4 * c * c));
}

// The structure tensor's smaller eigenvalue over the window of pixels within
// `half` of (x, y), gradients by central differences.
double _windowScore(const std::vector<double>& lum, int w, int h, int x, int y, int half) {
    double a = 0, b = 0, c = 0;
    for (int j = std::max(y - half, 1); j <= std::min(y + half, h - 2); ++j)
        for (int i = std::max(x - half, 1); i <= std::min(x + half, w - 2); ++i) {
            const std::size_t k = std::size_t(j) * w + i;
            const double gx = 0.5 * (lum[k + 1] - lum[k - 1]);
            const double gy = 0.5 * (lum[k + w] - lum[k - w]);
            a += gx * gx;
            b += gy * gy;
            c += gx * gy;
        }
    return _minEigen(a, b, c);
}

} // namespace

double TrSpotPicker::score(const Orvane::Image& frame, int x, int y) const {
    return _windowScore(_luminance(frame), frame.getBounds().w, frame.getBounds().h, x, y,
                        window / 2);
}

std::vector<GenPoint<double>>
TrSpotPicker::pick(const Orvane::Image& frame, int count, int spacing,
                   const std::function<bool(const GenPoint<double>&)>& allowed) const {
    const int w = frame.getBounds().w;
    const int h = frame.getBounds().h;
    const int half = window / 2;
    struct Candidate {
        double score;
        int x;
        int y;
    };
    const std::vector<double> lum = _luminance(frame);
    std::vector<Candidate> candidates;
    for (int y = half + 1; y < h - half - 1; y += step)
        for (int x = half + 1; x < w - half - 1; x += step)
            if (allowed(GenPoint<double>(x + 0.5, y + 0.5)))
                candidates.push_back({_windowScore(lum, w, h, x, y, half), x, y});
    std::sort(candidates.begin(), candidates.end(),
              [](const Candidate& p, const Candidate& q) { return p.score > q.score; });

    std::vector<GenPoint<double>> spots;
    for (const Candidate& c : candidates) {
        if (int(spots.size()) >= count || c.score <= 0)
            break;
        const bool apart = std::all_of(spots.begin(), spots.end(), [&](const GenPoint<double>& s) {
            return std::abs(s.x - (c.x + 0.5)) >= spacing || std::abs(s.y - (c.y + 0.5)) >= spacing;
        });
        if (apart)
            spots.emplace_back(c.x + 0.5, c.y + 0.5);
    }
    return spots;
}
