// The readers of the other packages' track files on arbitrary text, the
// first byte choosing the format. Besides not crashing, what a reader
// accepts must be usable: named tracks at finite positions, and choosing
// their starts either places them or gives the one-line error.

#include "base/Exception.h"
#include "tools/track/TrFormatTable.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    const std::vector<TrTrackFormat>& formats = TrFormatTable::formats();
    const TrTrackFormat& format = formats[data[0] % formats.size()];
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    std::vector<TrImportedTrack> tracks;
    try {
        tracks = format.parse(text, "fuzz.track", TrFrameSize{640, 480});
    } catch (const IllegalArgumentException&) {
        return 0;
    }
    for (const TrImportedTrack& t : tracks)
        for (const TrTrackPoint& p : t.points)
            if (!std::isfinite(p.x) || !std::isfinite(p.y))
                std::abort();
    try {
        for (const TrTrackSpec& spec : TrFormatTable::startsOf(tracks, "fuzz.track", false, 0))
            if (spec.name.empty() || !std::isfinite(spec.x) || !std::isfinite(spec.y))
                std::abort();
    } catch (const IllegalArgumentException&) {
    }
    return 0;
}
