#include "tools/track/TrEqualizerFormat.h"

#include <algorithm>

std::vector<TrExportFile>
TrEqualizerWriter::render(const std::vector<TrTrackResult>& tracks) const {
    using TrFormatText::fixed;
    std::string text = std::to_string(tracks.size()) + "\n";
    for (const TrTrackResult& r : tracks) {
        const std::vector<TrSample> keyed = TrFormatText::keyedSamples(r);
        text += r.spec.name + "\n0\n" + std::to_string(keyed.size()) + "\n";
        for (const TrSample& s : keyed)
            text += std::to_string(s.frame) + " " + fixed(s.x, 6) + " " +
                    fixed(setup.size.height - s.y, 6) + "\n";
    }
    return {{"", text}};
}

bool looksLikeEqualizer(const std::string& text) {
    TrFormatText::Lines lines(text, "");
    std::string line;
    if (!lines.nextFilled(line))
        return false;
    const std::vector<std::string> w = TrFormatText::words(line);
    return w.size() == 1 && w[0].find_first_not_of("0123456789") == std::string::npos;
}

std::vector<TrImportedTrack>
parseEqualizerTracks(const std::string& text, const std::string& source, const TrFrameSize& size) {
    TrFormatText::Lines lines(text, source);
    const int count = lines.whole(lines.require("the number of points"), "the number of points");
    if (count < 0)
        lines.fail("the number of points is negative");
    std::vector<TrImportedTrack> tracks;
    for (int i = 0; i < count; ++i) {
        TrImportedTrack t;
        t.name = lines.require("a point's name");
        lines.whole(lines.require("the colour of \"" + t.name + "\""), "the colour");
        const int frames = lines.whole(lines.require("the number of frames of \"" + t.name + "\""),
                                       "the number of frames");
        if (frames < 0)
            lines.fail("the number of frames is negative");
        for (int k = 0; k < frames; ++k) {
            const std::string line = lines.require("a frame of \"" + t.name + "\"");
            const std::vector<std::string> w = TrFormatText::words(line);
            if (w.size() != 3)
                lines.fail("a frame line holds frame, x and y, got \"" + line + "\"");
            TrTrackPoint p;
            p.frame = lines.whole(w[0], "the frame");
            p.x = lines.number(w[1], "x");
            p.y = size.height - lines.number(w[2], "y");
            t.points.push_back(p);
        }
        tracks.push_back(t);
    }
    std::string rest;
    if (lines.nextFilled(rest))
        lines.fail("more lines than the " + std::to_string(count) + " points announced");
    return tracks;
}
