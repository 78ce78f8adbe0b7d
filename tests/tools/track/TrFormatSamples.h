#pragma once

#include "tools/track/TrFormatTable.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

// Known tracks on a 640x480 frame for the format tests: "a b" keyed at the
// top-left and bottom-right pixels' centres and the frame's centre, with a
// predicted frame 5 between; "b" keyed once at frame 3, then lost.
namespace formatsamples {

inline TrFrameSize frame() {
    return TrFrameSize{640, 480};
}

inline TrSample sample(int frame, double x, double y, double score, bool keyed) {
    TrSample s;
    s.frame = frame;
    s.x = x;
    s.y = y;
    s.score = score;
    s.keyed = keyed;
    return s;
}

inline std::vector<TrTrackResult> known() {
    std::vector<TrTrackResult> tracks(2);
    tracks[0].spec = {"a b", 0, 0, 21, 21, 61, 61, "luminance"};
    tracks[0].samples = {sample(3, 0.5, 0.5, 0.9875, true), sample(4, 639.5, 479.5, 0.5, true),
                         sample(5, 100.25, 200.75, 0.25, false), sample(6, 320, 240, 1, true)};
    tracks[1].spec = {"b", 0, 0, 20, 10, 40, 30, "luminance"};
    tracks[1].samples = {sample(3, 10, 20, 0.75, true)};
    tracks[1].lost = true;
    tracks[1].lostAt = 4;
    return tracks;
}

// The export of `tracks` over frames 3 to 6, as the run would drive it.
inline std::vector<TrExportFile> render(const TrTrackFormat& format,
                                        const std::vector<TrTrackResult>& tracks,
                                        const std::string& path = "out") {
    std::ostringstream out;
    TrExportSetup setup;
    setup.out = &out;
    setup.path = path;
    setup.size = frame();
    std::unique_ptr<TrExportWriter> writer = format.makeWriter(setup);
    writer->begin(tracks, 3, 6);
    return writer->render(tracks);
}

inline std::string renderOne(const char* name, const std::vector<TrTrackResult>& tracks = known()) {
    const std::vector<TrExportFile> files = render(*TrFormatTable::find(name), tracks);
    EXPECT_EQ(1u, files.size());
    return files.empty() ? "" : files[0].text;
}

} // namespace formatsamples
