#include "tools/track/TrDemo.h"

#include "tools/track/TrCommandOptions.h"
#include "track/Sequence/TrTestSequence.h"

#include <algorithm>
#include <cmath>

namespace TrDemo {

namespace {

const double kDegree = 0.017453292519943295;
// Close enough to the centre that a 21-pixel pattern holds the crossing of
// the saddle's edges: a pattern on one straight edge could slide along it.
const double kOffset = 6;

Orvane::GenPoint<double> firstOffset(const TrTrackSpec& spec, TrTestSequence& seq) {
    const Orvane::GenPoint<double> c = saddleCentre(seq, seq.getFirstFrame());
    return {spec.x - c.x, spec.y - c.y};
}

} // namespace

Orvane::GenPoint<double> saddleCentre(TrTestSequence& seq, int n) {
    Orvane::GenPoint<double> c(seq.getWidth() * 0.5, seq.getHeight() * 0.5);
    for (int i = 0; i < n - seq.getFirstFrame(); ++i) {
        const double phi = i * seq.getDTh() * kDegree;
        c.x += std::cos(phi) * seq.getDX() - std::sin(phi) * seq.getDY();
        c.y += std::cos(phi) * seq.getDY() + std::sin(phi) * seq.getDX();
    }
    return c;
}

Orvane::GenPoint<double> saddlePoint(TrTestSequence& seq, int n,
                                     const Orvane::GenPoint<double>& offset) {
    // The saddle at frame n is the first frame's turned by (n - first) * da
    // about the centre (the sequence's angle has the opposite sign).
    const double a = (n - seq.getFirstFrame()) * seq.getDA() * kDegree;
    const Orvane::GenPoint<double> c = saddleCentre(seq, n);
    return {c.x + std::cos(a) * offset.x - std::sin(a) * offset.y,
            c.y + std::sin(a) * offset.x + std::cos(a) * offset.y};
}

std::vector<TrTrackSpec> tracks(TrTestSequence& seq, const TrCommandOptions& o) {
    const Orvane::GenPoint<double> c = saddleCentre(seq, seq.getFirstFrame());
    const char* names[] = {"centre", "upper-left", "upper-right", "lower-left", "lower-right"};
    const double dx[] = {0, -kOffset, kOffset, -kOffset, kOffset};
    const double dy[] = {0, -kOffset, -kOffset, kOffset, kOffset};
    std::vector<TrTrackSpec> specs;
    for (int i = 0; i < 5; ++i) {
        TrTrackSpec s;
        s.name = names[i];
        s.x = c.x + dx[i];
        s.y = c.y + dy[i];
        // The saddle's centre lies on a pixel corner, so an even-sized
        // pattern is centred on it; an odd one would be half a pixel off and
        // bias the refinement whenever the shape is re-solved.
        s.patternWidth = o.patternGiven ? o.patternWidth : 20;
        s.patternHeight = o.patternGiven ? o.patternHeight : 20;
        s.searchWidth = o.searchGiven ? o.searchWidth : 40;
        s.searchHeight = o.searchGiven ? o.searchHeight : 40;
        s.colorMode = o.colorMode;
        specs.push_back(s);
    }
    return specs;
}

double report(std::FILE* out, TrTestSequence& seq, const std::vector<TrTrackResult>& results) {
    double centreWorst = -1;
    for (size_t t = 0; t < results.size(); ++t) {
        const TrTrackResult& r = results[t];
        const Orvane::GenPoint<double> offset = firstOffset(r.spec, seq);
        if (t == 0)
            std::fprintf(out,
                         "track \"%s\": tracked path against the known one\n"
                         "frame   known x  known y  tracked x tracked y   error  score\n",
                         r.spec.name.c_str());
        double worst = 0;
        for (const TrSample& s : r.samples) {
            const Orvane::GenPoint<double> truth = saddlePoint(seq, s.frame, offset);
            const double e = std::hypot(s.x - truth.x, s.y - truth.y);
            worst = std::max(worst, e);
            if (t == 0)
                std::fprintf(out, "%5d %8.3f %8.3f %9.3f %9.3f %7.4f %6.4f%s\n", s.frame, truth.x,
                             truth.y, s.x, s.y, e, s.score, s.keyed ? "" : "  predicted");
        }
        if (t == 0) {
            std::fprintf(out, "\n");
            centreWorst = r.lost ? -1 : worst;
        }
        std::fprintf(out, "track %-12s max error %.4f px over %zu frames%s\n",
                     ("\"" + r.spec.name + "\"").c_str(), worst, r.samples.size(),
                     r.lost ? (", lost at frame " + std::to_string(r.lostAt)).c_str() : "");
    }
    return centreWorst;
}

} // namespace TrDemo
