#include "tools/track/TrAfterEffectsFormat.h"

#include <algorithm>

namespace {

const char* const kFirstLine = "Adobe After Effects 8.0 Keyframe Data";
const char* const kLastLine = "End of Keyframe Data";
const char* const kTrackProperty = "Feature Center";

// The fields of a tab-separated line, less the empty ones that its leading
// and trailing tabs make.
std::vector<std::string> fields(const std::string& line) {
    std::vector<std::string> list;
    size_t start = 0;
    for (;;) {
        const size_t tab = line.find('\t', start);
        list.push_back(line.substr(start, tab == std::string::npos ? tab : tab - start));
        if (tab == std::string::npos)
            break;
        start = tab + 1;
    }
    if (!list.empty() && list.front().empty())
        list.erase(list.begin());
    if (!list.empty() && list.back().empty())
        list.pop_back();
    return list;
}

// Reads the rows of one block up to the next line that does not start with a
// tab; returns that line, or "" at the end of the text.
std::string readRows(TrFormatText::Lines& lines, TrImportedTrack* track) {
    std::string line;
    while (lines.nextFilled(line)) {
        if (line[0] != '\t')
            return line;
        const std::vector<std::string> f = fields(line);
        if (!track || (!f.empty() && f[0] == "Frame"))
            continue;
        if (f.size() < 3)
            lines.fail("a key needs a frame, x and y, got \"" + line.substr(1) + "\"");
        TrTrackPoint p;
        p.frame = lines.whole(f[0], "the frame");
        p.x = lines.number(f[1], "x");
        p.y = lines.number(f[2], "y");
        track->points.push_back(p);
    }
    return "";
}

} // namespace

std::vector<TrExportFile>
TrAfterEffectsWriter::render(const std::vector<TrTrackResult>& tracks) const {
    using TrFormatText::fixed;
    std::string text = std::string(kFirstLine) + "\n\n\tUnits Per Second\t24\n\tSource Width\t" +
                       std::to_string(setup.size.width) + "\n\tSource Height\t" +
                       std::to_string(setup.size.height) +
                       "\n\tSource Pixel Aspect Ratio\t1\n\tComp Pixel Aspect Ratio\t1\n";
    for (const TrTrackResult& r : tracks) {
        std::string name = r.spec.name;
        std::replace(name.begin(), name.end(), '\t', ' ');
        text += "\nMotion Trackers\tTracker #1\t" + name + "\t" + kTrackProperty +
                "\n\tFrame\tX pixels\tY pixels\t\n";
        for (const TrSample& s : TrFormatText::keyedSamples(r))
            text += "\t" + std::to_string(s.frame) + "\t" + fixed(s.x, 6) + "\t" + fixed(s.y, 6) +
                    "\t\n";
    }
    text += std::string("\n") + kLastLine + "\n";
    return {{"", text}};
}

bool looksLikeAfterEffects(const std::string& text) {
    std::string line;
    TrFormatText::Lines lines(text, "");
    return lines.nextFilled(line) && line == kFirstLine;
}

std::vector<TrImportedTrack>
parseAfterEffectsTracks(const std::string& text, const std::string& source, const TrFrameSize&) {
    TrFormatText::Lines lines(text, source);
    if (lines.require("\"" + std::string(kFirstLine) + "\"") != kFirstLine)
        lines.fail(std::string("not keyframe data: the first line must be \"") + kFirstLine + "\"");
    std::vector<TrImportedTrack> tracks;
    std::string line = readRows(lines, nullptr);
    while (line != kLastLine) {
        if (line.empty())
            lines.fail(std::string("the file ends before \"") + kLastLine + "\"");
        const std::vector<std::string> f = fields(line);
        TrImportedTrack* track = nullptr;
        if (f.size() == 4 && f[0] == "Motion Trackers" && f[3] == kTrackProperty) {
            if (f[2].empty())
                lines.fail("a track point without a name");
            tracks.push_back({f[2], {}});
            track = &tracks.back();
        }
        line = readRows(lines, track);
    }
    return tracks;
}
