#include "tools/track/TrHomography.h"

#include "base/Exception.h"
#include "krovel/KrMatchmove.h"
#include "tools/track/TrJson.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

std::vector<TrHomographyFrame> solveHomographies(const std::vector<TrTrackResult>& tracks, int from,
                                                 int to, const Orvane::GenRect<int>& frameBounds) {
    if (tracks.size() < 4)
        throw IllegalArgumentException(dstring("--homography needs at least four tracks, got " +
                                               std::to_string(tracks.size())));
    const int direction = to >= from ? 1 : -1;
    const int count = (to - from) * direction + 1;
    const double cx = frameBounds.x + frameBounds.w * 0.5;
    const double cy = frameBounds.y + frameBounds.h * 0.5;
    const double s = 2.0 / std::max(1, std::max(frameBounds.w, frameBounds.h));

    std::vector<int> present(size_t(count), 0);
    KrMatchmove mm;
    for (const TrTrackResult& r : tracks) {
        KrGenMatrix<float> positions(count, 2);
        KrGenVector<float> weights(count, 0.0f);
        positions = 0.0f;
        for (const TrSample& sample : r.samples) {
            const int k = (sample.frame - from) * direction;
            if (k < 0 || k >= count || !sample.keyed || !(sample.score > 0))
                continue;
            positions(k, 0) = float((sample.x - cx) * s);
            positions(k, 1) = float((sample.y - cy) * s);
            weights(k) = float(sample.score);
        }
        mm.addTrack(KrMatchmoveTrack(positions, weights));
        for (int k = 0; k < count; ++k)
            present[size_t(k)] += weights(k) > 0 && weights(0) > 0 ? 1 : 0;
    }
    mm.setBaseFrame(0);
    mm.solve();

    std::vector<bool> failed(size_t(count), false);
    for (int i = 0; i < mm.getFailedFrames().getCount(); ++i)
        failed[size_t(mm.getFailedFrames()[i])] = true;

    std::vector<TrHomographyFrame> frames(static_cast<size_t>(count));
    for (int k = 0; k < count; ++k) {
        TrHomographyFrame& out = frames[size_t(k)];
        out.frame = from + k * direction;
        out.tracks = present[size_t(k)];
        out.solved = out.tracks >= 4 && !failed[size_t(k)];
        // Back to pixels: H = T⁻¹ · Hn · T with T = scale s about (cx, cy).
        const KrGenMatrix<float>& hn = mm.getHomography(k);
        const double t[9] = {s, 0, -s * cx, 0, s, -s * cy, 0, 0, 1};
        const double ti[9] = {1 / s, 0, cx, 0, 1 / s, cy, 0, 0, 1};
        double a[9], h[9];
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c) {
                a[3 * r + c] = 0;
                for (int j = 0; j < 3; ++j)
                    a[3 * r + c] += double(hn(r, j)) * t[3 * j + c];
            }
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c) {
                h[3 * r + c] = 0;
                for (int j = 0; j < 3; ++j)
                    h[3 * r + c] += ti[3 * r + j] * a[3 * j + c];
            }
        for (int i = 0; i < 9; ++i)
            out.h[i] = h[i] / h[8];
    }
    return frames;
}

void writeHomographies(const std::string& path, int baseFrame,
                       const std::vector<TrHomographyFrame>& frames) {
    std::ofstream out(path);
    if (!out)
        throw IllegalArgumentException(
            dstring("cannot write \"" + path + "\": " + std::strerror(errno)));
    out << "{\"baseFrame\": " << baseFrame << ",\n \"frames\": [";
    for (size_t i = 0; i < frames.size(); ++i) {
        const TrHomographyFrame& f = frames[i];
        out << (i ? ",\n  " : "\n  ") << "{\"frame\": " << f.frame << ", \"tracks\": " << f.tracks
            << ", \"solved\": " << (f.solved ? "true" : "false") << ", \"matrix\": [";
        for (int r = 0; r < 3; ++r)
            out << (r ? ", [" : "[") << jsonNumber(f.h[3 * r]) << ", " << jsonNumber(f.h[3 * r + 1])
                << ", " << jsonNumber(f.h[3 * r + 2]) << "]";
        out << "]}";
    }
    out << "]}\n";
    out.close();
    if (!out)
        throw IllegalArgumentException(dstring("cannot write \"" + path + "\""));
}
