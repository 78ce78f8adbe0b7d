#include "tools/accuracy/TrAccuracySuite.h"

#include "base/Exception.h"
#include "tools/accuracy/TrMovieFrames.h"
#include "tools/accuracy/TrPhoto.h"
#include "tools/accuracy/TrSpotPicker.h"

#include <algorithm>

using Orvane::GenPoint;

TrAccuracySuite::TrAccuracySuite(const TrSuiteSettings& settings) : settings(settings) {
    renderClips();
    if (prepares("video"))
        readFootage();
}

bool TrAccuracySuite::prepares(const std::string& category) const {
    return settings.only.empty() ||
           std::find(settings.only.begin(), settings.only.end(), category) != settings.only.end();
}

void TrAccuracySuite::renderClips() {
    const std::string dir = settings.dataDir + "/";
    // A facade, a street, graffiti and an aerial view: regular, irregular,
    // high-contrast and fine texture.
    const TrPhoto building = TrPhoto::read((dir + "building.jpg").c_str());
    const TrPhoto street = TrPhoto::read((dir + "leuvenA.jpg").c_str());
    const TrPhoto graffiti = TrPhoto::read((dir + "graf1.png").c_str());
    const TrPhoto aerial = TrPhoto::read((dir + "aero1.jpg").c_str());

    const TrAccuracyScenes scenes(settings.size);
    const bool two = settings.clipsPerCategory > 1;
    if (prepares("translation")) {
        clips.push_back(scenes.translation(graffiti));
        if (two)
            clips.push_back(scenes.translation(building));
    }
    if (prepares("rotation+zoom")) {
        clips.push_back(scenes.rotationZoom(street, 25, 1.25));
        if (two)
            clips.push_back(scenes.rotationZoom(aerial, -25, 0.8));
    }
    if (prepares("noise+drift")) {
        clips.push_back(scenes.noiseDrift(building));
        if (two)
            clips.push_back(scenes.noiseDrift(street));
    }
    if (prepares("fast+blur")) {
        clips.push_back(scenes.fastBlur(aerial));
        if (two)
            clips.push_back(scenes.fastBlur(graffiti));
    }
    if (prepares("occluder")) {
        clips.push_back(scenes.occluder(street, graffiti));
        if (two)
            clips.push_back(scenes.occluder(building, aerial));
    }
}

void TrAccuracySuite::readFootage() {
    videoFrames = readMovieFrames(settings.dataDir + "/" + settings.video, settings.videoFirst,
                                  settings.videoFrames);
    const int margin = settings.size.margin;
    const int w = videoFrames[0].getBounds().w;
    const int h = videoFrames[0].getBounds().h;
    videoStarts = TrSpotPicker(settings.size.pattern)
                      .pick(videoFrames[0], settings.videoTracks, settings.size.pattern,
                            [&](const GenPoint<double>& p) {
                                return p.x >= margin && p.y >= margin && p.x <= w - margin &&
                                       p.y <= h - margin;
                            });
}

const std::vector<std::string>& TrAccuracySuite::categories() {
    static const std::vector<std::string> names = {"translation", "rotation+zoom", "noise+drift",
                                                   "fast+blur",   "occluder",      "video"};
    return names;
}

std::vector<std::pair<std::string, TrAccuracyStats>>
TrAccuracySuite::run(const TrAccuracyMode& mode) const {
    std::vector<std::pair<std::string, TrAccuracyStats>> table;
    for (const std::string& c : categories())
        table.emplace_back(c, runCategory(c, mode));
    return table;
}

TrAccuracyStats TrAccuracySuite::runCategory(const std::string& category,
                                             const TrAccuracyMode& mode) const {
    if (category == "video")
        return roundTrips(mode);
    if (std::find(categories().begin(), categories().end(), category) == categories().end())
        throw IllegalArgumentException(
            dstring(("unknown accuracy category \"" + category + "\"").c_str()));
    TrAccuracyStats stats;
    for (const TrAccuracyClip& clip : clips) {
        if (clip.category != category)
            continue;
        std::vector<GenPoint<double>> starts;
        for (const auto& truth : clip.truth)
            starts.push_back(truth[0]);
        stats.addClip(clip, runAccuracyPass(clip.frames, starts, mode));
    }
    return stats;
}

TrAccuracyStats TrAccuracySuite::roundTrips(const TrAccuracyMode& mode) const {
    TrAccuracyStats stats;
    if (videoFrames.empty())
        return stats;
    const std::size_t last = videoFrames.size() - 1;
    const TrPassResult forward = runAccuracyPass(videoFrames, videoStarts, mode);
    std::vector<GenPoint<double>> ends;
    std::vector<std::size_t> through;
    for (std::size_t k = 0; k < videoStarts.size(); ++k)
        if (forward.alive[k][last]) {
            ends.push_back(forward.path[k][last]);
            through.push_back(k);
        }
    const TrPassResult backward = runAccuracyPass(videoFrames, ends, mode, true);
    stats.addTime(forward.cpuSeconds + backward.cpuSeconds, forward.steps + backward.steps);
    std::size_t j = 0;
    for (std::size_t k = 0; k < videoStarts.size(); ++k) {
        if (j < through.size() && through[j] == k) {
            const bool kept = backward.alive[j][0];
            const bool tracked = forward.last[k] == TrStepStatus::Tracked &&
                                 backward.last[j] == TrStepStatus::Tracked;
            stats.addRoundTrip(videoStarts[k], kept ? backward.path[j][0] : videoStarts[k], kept,
                               tracked);
            ++j;
        } else {
            stats.addRoundTrip(videoStarts[k], videoStarts[k], false, false);
        }
    }
    return stats;
}
