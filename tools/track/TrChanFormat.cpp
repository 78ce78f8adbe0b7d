#include "tools/track/TrChanFormat.h"

#include "base/Exception.h"

#include <algorithm>

namespace {

const std::string kExtension = ".chan";

bool endsWith(const std::string& s, const std::string& tail) {
    return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

} // namespace

std::string TrChanWriter::pathFor(const std::string& path, const std::string& name) {
    std::string safe = name;
    std::replace(safe.begin(), safe.end(), '/', '_');
    if (endsWith(path, kExtension))
        return path.substr(0, path.size() - kExtension.size()) + "." + safe + kExtension;
    return path + (endsWith(path, "/") ? "" : "/") + safe + kExtension;
}

std::vector<TrExportFile> TrChanWriter::render(const std::vector<TrTrackResult>& tracks) const {
    using TrFormatText::fixed;
    std::vector<TrExportFile> files;
    for (const TrTrackResult& r : tracks) {
        std::string text;
        for (const TrSample& s : TrFormatText::keyedSamples(r))
            text += std::to_string(s.frame) + " " + fixed(s.x, 6) + " " +
                    fixed(setup.size.height - s.y, 6) + "\n";
        files.push_back({pathFor(setup.path, r.spec.name), text});
    }
    return files;
}

std::vector<TrImportedTrack> parseChanTracks(const std::string& text, const std::string& source,
                                             const TrFrameSize& size) {
    TrImportedTrack t;
    t.name = source.substr(source.find_last_of('/') + 1);
    if (endsWith(t.name, kExtension))
        t.name.resize(t.name.size() - kExtension.size());
    t.name = t.name.substr(t.name.find_last_of('.') + 1);
    if (t.name.empty())
        throw IllegalArgumentException(dstring(source + ": the file name gives the track no name"));
    TrFormatText::Lines lines(text, source);
    std::string line;
    while (lines.nextFilled(line)) {
        const std::vector<std::string> w = TrFormatText::words(line);
        if (w.size() != 3)
            lines.fail("a line holds frame, x and y, got \"" + line + "\"");
        TrTrackPoint p;
        p.frame = lines.whole(w[0], "the frame");
        p.x = lines.number(w[1], "x");
        p.y = size.height - lines.number(w[2], "y");
        t.points.push_back(p);
    }
    return {t};
}
