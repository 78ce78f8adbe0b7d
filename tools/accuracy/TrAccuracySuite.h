#pragma once

#include "tools/accuracy/TrAccuracyMode.h"
#include "tools/accuracy/TrAccuracyScenes.h"
#include "tools/accuracy/TrAccuracyStats.h"

#include <string>
#include <utility>
#include <vector>

/// What the suite renders and reads.
struct TrSuiteSettings {
    TrSceneSize size;
    /// Clips per rendered category, each from other photographs (1 or 2).
    int clipsPerCategory = 2;
    /// The folder of the photographs and the movie: the OpenCV sample data
    /// that Debian's opencv-doc installs.
    std::string dataDir = "/usr/share/doc/opencv-doc/examples/data";
    /// The real footage (a fixed camera on a street with people walking):
    /// frames `videoFirst` on, `videoFrames` of them, `videoTracks` tracks.
    std::string video = "vtest.avi";
    int videoFirst = 100;
    int videoFrames = 20;
    int videoTracks = 24;
    /// The categories to prepare; empty for all of them.
    std::vector<std::string> only;
};

/// The accuracy suite: clips of real photographs under known motion in five
/// categories, plus forward-backward round trips on real footage, each run
/// through the tracker in any mode.
class TrAccuracySuite {
public:
    /// Renders the clips and reads the footage of the categories the
    /// settings name; a missing file throws IllegalArgumentException naming
    /// it. A category not prepared reports no tracks.
    explicit TrAccuracySuite(const TrSuiteSettings& settings);

    /// "translation", "rotation+zoom", "noise+drift", "fast+blur",
    /// "occluder", "video", in the order run() reports them.
    static const std::vector<std::string>& categories();
    /// Every category tracked in `mode`.
    std::vector<std::pair<std::string, TrAccuracyStats>> run(const TrAccuracyMode& mode) const;
    /// One category; an unknown name throws IllegalArgumentException
    /// "unknown accuracy category \"<name>\"".
    TrAccuracyStats runCategory(const std::string& category, const TrAccuracyMode& mode) const;

    const std::vector<TrAccuracyClip>& getClips() const { return clips; }
    const std::vector<Orvane::Image>& getVideoFrames() const { return videoFrames; }
    /// Where the round trips start, on the footage's first frame.
    const std::vector<Orvane::GenPoint<double>>& getVideoStarts() const { return videoStarts; }

private:
    bool prepares(const std::string& category) const;
    void renderClips();
    void readFootage();
    TrAccuracyStats roundTrips(const TrAccuracyMode& mode) const;

    TrSuiteSettings settings;
    std::vector<TrAccuracyClip> clips;
    std::vector<Orvane::Image> videoFrames;
    std::vector<Orvane::GenPoint<double>> videoStarts;
};
