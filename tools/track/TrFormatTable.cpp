#include "tools/track/TrFormatTable.h"

#include "base/Exception.h"
#include "tools/track/TrAfterEffectsFormat.h"
#include "tools/track/TrChanFormat.h"
#include "tools/track/TrEqualizerFormat.h"
#include "tools/track/TrNukeFormat.h"
#include "tools/track/TrPFTrackFormat.h"
#include "tools/track/TrSynthEyesFormat.h"

namespace {

template <class Writer> std::unique_ptr<TrExportWriter> make(const TrExportSetup& setup) {
    return std::unique_ptr<TrExportWriter>(new Writer(setup));
}

bool endsWith(const std::string& s, const std::string& tail) {
    return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

// The formats whose extension ends `path`.
std::vector<const TrTrackFormat*> byExtension(const std::string& path) {
    std::vector<const TrTrackFormat*> list;
    for (const TrTrackFormat& f : TrFormatTable::formats())
        if (endsWith(path, f.extension))
            list.push_back(&f);
    return list;
}

std::string namesOf(const std::vector<const TrTrackFormat*>& list) {
    std::string text;
    for (const TrTrackFormat* f : list)
        text += (text.empty() ? "" : ", ") + std::string(f->name);
    return text;
}

} // namespace

namespace TrFormatTable {

const std::vector<TrTrackFormat>& formats() {
    static const std::vector<TrTrackFormat> table = {
        {"nuke", ".nk", false,
         "a compositing script with a Tracker4 node (and a CornerPin2D with "
         "--homography)",
         make<TrNukeWriter>, parseNukeTracks, nullptr},
        {"ae", ".txt", false, "After Effects 8.0 keyframe data, a block per track",
         make<TrAfterEffectsWriter>, parseAfterEffectsTracks, looksLikeAfterEffects},
        {"3de", ".txt", false, "3DEqualizer v4 2-D points", make<TrEqualizerWriter>,
         parseEqualizerTracks, looksLikeEqualizer},
        {"pftrack", ".txt", false, "PFTrack 2-D tracks", make<TrPFTrackWriter>, parsePFTrackTracks,
         looksLikePFTrack},
        {"syntheyes", ".txt", false, "SynthEyes 2-D tracker paths, -1 to 1 from the centre, y up",
         make<TrSynthEyesWriter>, parseSynthEyesTracks, looksLikeSynthEyes},
        {"chan", ".chan", true,
         "a channel file per track: PATH.chan gives PATH.NAME.chan, a directory "
         "DIR/NAME.chan",
         make<TrChanWriter>, parseChanTracks, nullptr},
    };
    return table;
}

const TrTrackFormat* find(const std::string& name) {
    for (const TrTrackFormat& f : formats())
        if (name == f.name)
            return &f;
    return nullptr;
}

std::string names() {
    std::vector<const TrTrackFormat*> all;
    for (const TrTrackFormat& f : formats())
        all.push_back(&f);
    return namesOf(all);
}

const TrTrackFormat& forExport(const std::string& name, const std::string& path) {
    if (!name.empty()) {
        if (const TrTrackFormat* f = find(name))
            return *f;
        throw IllegalArgumentException(
            dstring("unknown format \"" + name + "\" (expected one of " + names() + ")"));
    }
    const std::vector<const TrTrackFormat*> fit = byExtension(path);
    if (fit.size() == 1)
        return *fit[0];
    if (fit.empty())
        throw IllegalArgumentException(
            dstring("--export: no format has the extension of \"" + path + "\"; give --format"));
    throw IllegalArgumentException(
        dstring("--export: \"" + path + "\" may be any of " + namesOf(fit) + "; give --format"));
}

const TrTrackFormat* forImport(const std::string& path, const std::string& text) {
    // Our JSON keeps being read whatever the file is called.
    const size_t first = text.find_first_not_of(" \t\r\n");
    if (endsWith(path, ".json") || (first != std::string::npos && text[first] == '{'))
        return nullptr;
    std::vector<const TrTrackFormat*> fit = byExtension(path);
    if (fit.size() == 1)
        return fit[0];
    if (fit.empty())
        for (const TrTrackFormat& f : formats())
            fit.push_back(&f);
    for (const TrTrackFormat* f : fit)
        if (f->looksLike && f->looksLike(text))
            return f;
    throw IllegalArgumentException(
        dstring(path + ": not a track file of a known format (.json, " + names() + ")"));
}

std::vector<TrTrackSpec> startsOf(const std::vector<TrImportedTrack>& tracks,
                                  const std::string& source, bool atFrame, int frame) {
    std::vector<TrTrackSpec> specs;
    for (const TrImportedTrack& t : tracks) {
        const TrTrackPoint* start = nullptr;
        for (const TrTrackPoint& p : t.points)
            if (!start && (!atFrame || p.frame == frame))
                start = &p;
        if (!start)
            throw IllegalArgumentException(
                dstring(source + ": track \"" + t.name + "\" has no position" +
                        (atFrame ? " at frame " + std::to_string(frame) : std::string("s"))));
        if (t.name.empty())
            throw IllegalArgumentException(dstring(source + ": a track without a name"));
        for (char c : t.name)
            if (static_cast<unsigned char>(c) < 0x20)
                throw IllegalArgumentException(
                    dstring(source + ": a track's name holds a control character"));
        for (const TrTrackSpec& s : specs)
            if (s.name == t.name)
                throw IllegalArgumentException(
                    dstring(source + ": a second track named \"" + t.name + "\""));
        TrTrackSpec spec;
        spec.name = t.name;
        spec.x = start->x;
        spec.y = start->y;
        specs.push_back(spec);
    }
    return specs;
}

} // namespace TrFormatTable
