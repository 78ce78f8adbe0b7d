#include "tools/track/TrSynthEyesFormat.h"

#include <algorithm>
#include <string>
#include <unordered_map>
#include <vector>

std::vector<TrExportFile>
TrSynthEyesWriter::render(const std::vector<TrTrackResult>& tracks) const {
    using TrFormatText::fixed;
    const double w = setup.size.width, h = setup.size.height;
    std::string text;
    for (const TrTrackResult& r : tracks) {
        std::string name = r.spec.name;
        std::replace(name.begin(), name.end(), ' ', '_');
        // Ten decimals keep a 1e-6 pixel round trip on frames wider than
        // 10000 pixels.
        for (const TrSample& s : TrFormatText::keyedSamples(r))
            text += name + " " + std::to_string(s.frame) + " " + fixed(2 * s.x / w - 1, 10) + " " +
                    fixed(1 - 2 * s.y / h, 10) + "\n";
    }
    return {{"", text}};
}

bool looksLikeSynthEyes(const std::string& text) {
    TrFormatText::Lines lines(text, "");
    std::string line;
    if (!lines.nextFilled(line))
        return false;
    const std::vector<std::string> w = TrFormatText::words(line);
    return (w.size() == 4 || w.size() == 5) && TrFormatText::isNumber(w[1]) &&
           TrFormatText::isNumber(w[2]) && TrFormatText::isNumber(w[3]);
}

std::vector<TrImportedTrack>
parseSynthEyesTracks(const std::string& text, const std::string& source, const TrFrameSize& size) {
    TrFormatText::Lines lines(text, source);
    std::vector<TrImportedTrack> tracks;
    // Lines of one tracker need not be together: each name finds its track.
    std::unordered_map<std::string, size_t> byName;
    std::string line;
    while (lines.nextFilled(line)) {
        const std::vector<std::string> w = TrFormatText::words(line);
        if (w.size() != 4 && w.size() != 5)
            lines.fail("a line holds name, frame, u and v, got \"" + line + "\"");
        TrTrackPoint p;
        p.frame = lines.whole(w[1], "the frame");
        p.x = (lines.number(w[2], "u") + 1) * 0.5 * size.width;
        p.y = (1 - lines.number(w[3], "v")) * 0.5 * size.height;
        const auto found = byName.emplace(w[0], tracks.size());
        if (found.second)
            tracks.push_back(TrImportedTrack{w[0], {}});
        tracks[found.first->second].points.push_back(p);
    }
    return tracks;
}
