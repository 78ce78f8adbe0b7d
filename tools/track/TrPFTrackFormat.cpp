#include "tools/track/TrPFTrackFormat.h"

#include <algorithm>

namespace {

// The next line that is neither blank nor a comment; false at the end.
bool nextContent(TrFormatText::Lines& lines, std::string& line) {
    while (lines.nextFilled(line))
        if (line[line.find_first_not_of(" \t")] != '#')
            return true;
    return false;
}

std::string requireContent(TrFormatText::Lines& lines, const std::string& expected) {
    std::string line;
    if (!nextContent(lines, line))
        lines.fail("the file ends where " + expected + " should follow");
    return line;
}

std::string quotedName(const TrFormatText::Lines& lines, const std::string& line) {
    const size_t first = line.find_first_not_of(" \t");
    const size_t last = line.find_last_not_of(" \t");
    if (line[first] != '"' || last == first || line[last] != '"')
        lines.fail("a track's name must be quoted, got \"" + line + "\"");
    return line.substr(first + 1, last - first - 1);
}

} // namespace

std::vector<TrExportFile> TrPFTrackWriter::render(const std::vector<TrTrackResult>& tracks) const {
    using TrFormatText::fixed;
    std::string text = "# \"Name\"\n# clipNumber\n# frameCount\n# frame, xpos, ypos, similarity\n";
    for (const TrTrackResult& r : tracks) {
        std::string name = r.spec.name;
        std::replace(name.begin(), name.end(), '"', '\'');
        text += "\n\"" + name + "\"\n1\n" + std::to_string(r.samples.size()) + "\n";
        for (const TrSample& s : r.samples)
            text += std::to_string(s.frame) + " " + fixed(s.x, 6) + " " +
                    fixed(setup.size.height - s.y, 6) + " " + fixed(s.score, 6) + "\n";
    }
    return {{"", text}};
}

bool looksLikePFTrack(const std::string& text) {
    TrFormatText::Lines lines(text, "");
    std::string line;
    return nextContent(lines, line) && line[line.find_first_not_of(" \t")] == '"';
}

std::vector<TrImportedTrack> parsePFTrackTracks(const std::string& text, const std::string& source,
                                                const TrFrameSize& size) {
    TrFormatText::Lines lines(text, source);
    std::vector<TrImportedTrack> tracks;
    std::string line;
    while (nextContent(lines, line)) {
        TrImportedTrack t;
        t.name = quotedName(lines, line);
        lines.whole(requireContent(lines, "the clip number of \"" + t.name + "\""),
                    "the clip number");
        const int frames =
            lines.whole(requireContent(lines, "the number of frames of \"" + t.name + "\""),
                        "the number of frames");
        if (frames < 0)
            lines.fail("the number of frames is negative");
        for (int k = 0; k < frames; ++k) {
            const std::string row = requireContent(lines, "a frame of \"" + t.name + "\"");
            const std::vector<std::string> w = TrFormatText::words(row);
            if (w.size() != 3 && w.size() != 4)
                lines.fail("a frame line holds frame, x, y and similarity, got \"" + row + "\"");
            TrTrackPoint p;
            p.frame = lines.whole(w[0], "the frame");
            p.x = lines.number(w[1], "x");
            p.y = size.height - lines.number(w[2], "y");
            if (w.size() == 4)
                lines.number(w[3], "the similarity");
            t.points.push_back(p);
        }
        tracks.push_back(t);
    }
    return tracks;
}
