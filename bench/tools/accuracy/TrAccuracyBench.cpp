// The accuracy suite in full: every category of rendered motion and the
// round trips on real footage, tracked in every mode, then the targets the
// robust mode is to meet. A plain program; it takes a few minutes on one core.
//
//   bench_tools_accuracy_TrAccuracyBench [--quick] [--mode NAME] [--data DIR]
//
// --quick runs the test's small clips; --mode runs one mode only (the
// targets then need both); --data names the folder of the sample data.

#include "base/Exception.h"
#include "tools/accuracy/TrAccuracyMode.h"
#include "tools/accuracy/TrAccuracySuite.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace {

using Table = std::map<std::string, std::map<std::string, TrAccuracyStats>>;

void printRow(const std::string& category, const std::string& mode, const TrAccuracyStats& s) {
    const bool occluder = category == "occluder";
    std::printf(
        "%-14s %-7s %8.4f %8.4f %8.4f %6.1f%% %6.1f%% %6.1f%% %6.1f%% %5s %3d %7.0f\n",
        category.c_str(), mode.c_str(), s.median(), s.rms(), s.quantile(0.95), 100 * s.within(0.1),
        100 * s.within(1), 100 * s.kept(), 100 * s.held(),
        occluder
            ? (std::to_string(s.getRecovered()) + "/" + std::to_string(s.getOccluded())).c_str()
            : "-",
        s.getFollowing(), s.microsPerStep());
}

// The target counts every placed round trip; a user trusts those reported
// tracked to the end, which is the other share.
void printRoundTrips(const std::string& mode, const TrAccuracyStats& s) {
    const int placed = s.getTracks();
    const int tracked = s.getTrackedToEnd();
    const int held = int(std::lround(s.within(1) * s.getExpected()));
    std::printf("  %s round trips within 1 px: %d of %d placed (%.1f%%, the target's count), "
                "%d of %d reported tracked to the end (%.1f%%)\n",
                mode.c_str(), held, placed, placed ? 100.0 * held / placed : 0.0,
                s.getTrackedHeld(), tracked, tracked ? 100.0 * s.getTrackedHeld() / tracked : 0.0);
}

void printHeader() {
    std::printf("%-14s %-7s %8s %8s %8s %7s %7s %7s %7s %5s %3s %7s\n", "category", "mode",
                "median", "rms", "p95", "<=0.1", "<=1", "kept", "held", "recov", "fol", "us/step");
}

struct Target {
    const char* text;
    bool pass;
};

// The robust mode's targets, judged against the robust and design rows.
std::vector<Target> targets(const Table& t) {
    const auto& r = t.at("robust");
    const auto& d = t.at("design");
    const TrAccuracyStats& occ = r.at("occluder");
    double robustTime = 0, designTime = 0;
    for (const auto& [name, s] : r)
        robustTime += s.microsPerStep();
    for (const auto& [name, s] : d)
        designTime += s.microsPerStep();
    return {
        {"translation: median <= 0.02 px, 100 % within 0.1 px",
         r.at("translation").median() <= 0.02 && r.at("translation").within(0.1) >= 1},
        {"rotation+zoom: median <= 0.03 px, 100 % within 1 px",
         r.at("rotation+zoom").median() <= 0.03 && r.at("rotation+zoom").within(1) >= 1},
        {"noise+drift: 100 % within 1 px, median no worse than design",
         r.at("noise+drift").within(1) >= 1 &&
             r.at("noise+drift").median() <= d.at("noise+drift").median()},
        {"fast+blur: >= 90 % of tracks kept within 1 px", r.at("fast+blur").held() >= 0.9},
        {"occluder: >= 80 % recovered within 1 px, none following the occluder",
         occ.getOccluded() > 0 && occ.getRecovered() >= 0.8 * occ.getOccluded() &&
             occ.getFollowing() == 0},
        {"video: >= 95 % of round trips within 1 px, none Tracked on something else",
         r.at("video").within(1) >= 0.95 && r.at("video").getFollowing() == 0},
        {"time: robust <= 1.3 x design per track and frame", robustTime <= 1.3 * designTime},
    };
}

TrSuiteSettings parse(int argc, char** argv, std::string& onlyMode) {
    TrSuiteSettings settings;
    for (int a = 1; a < argc; ++a) {
        const bool hasValue = a + 1 < argc;
        if (std::strcmp(argv[a], "--quick") == 0) {
            settings.size.width = 224;
            settings.size.height = 176;
            settings.size.frames = 12;
            settings.size.tracks = 4;
            settings.size.supersample = 2;
            settings.size.blurSamples = 6;
            settings.clipsPerCategory = 1;
            settings.videoFrames = 8;
            settings.videoTracks = 6;
        } else if (std::strcmp(argv[a], "--mode") == 0 && hasValue) {
            onlyMode = argv[++a];
        } else if (std::strcmp(argv[a], "--data") == 0 && hasValue) {
            settings.dataDir = argv[++a];
        } else {
            std::fprintf(stderr, "usage: %s [--quick] [--mode NAME] [--data DIR]\n", argv[0]);
            std::exit(2);
        }
    }
    return settings;
}

} // namespace

int main(int argc, char** argv) {
    std::string onlyMode;
    const TrSuiteSettings settings = parse(argc, argv, onlyMode);
    try {
        const TrAccuracySuite suite(settings);
        std::printf("%dx%d frames, %d frames a clip, %zu clips, %zu round trips over %d frames\n",
                    settings.size.width, settings.size.height, settings.size.frames,
                    suite.getClips().size(), suite.getVideoStarts().size(), settings.videoFrames);
        Table table;
        printHeader();
        for (const TrAccuracyMode& mode : TrAccuracyMode::all()) {
            if (!onlyMode.empty() && mode.name != onlyMode)
                continue;
            for (auto& [category, stats] : suite.run(mode)) {
                printRow(category, mode.name, stats);
                table[mode.name][category] = stats;
            }
            printRoundTrips(mode.name, table[mode.name]["video"]);
        }
        if (table.count("design") && table.count("robust")) {
            std::printf("\nrobust targets:\n");
            for (const Target& t : targets(table))
                std::printf("  %-4s %s\n", t.pass ? "pass" : "FAIL", t.text);
        }
    } catch (const Exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 1;
    }
    return 0;
}
