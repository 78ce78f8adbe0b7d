// The track-file reader on arbitrary text: the JSON reader below it, its
// numbers and strings, and the schema on top. Besides not crashing, every
// string and number the reader accepts must come back unchanged through the
// writer's quoting and number form, which the results files rely on.

#include "base/Exception.h"
#include "tools/track/TrJson.h"
#include "tools/track/TrTrackFile.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

void checkRoundTrips(const TrJsonValue& v) {
    switch (v.kind) {
    case TrJsonValue::String:
        if (parseJson(jsonQuote(v.text)).text != v.text)
            std::abort();
        break;
    case TrJsonValue::Number:
        if (parseJson(jsonNumber(v.number)).number != v.number)
            std::abort();
        break;
    case TrJsonValue::Array:
        for (const TrJsonValue& item : v.items)
            checkRoundTrips(item);
        break;
    case TrJsonValue::Object:
        for (const auto& m : v.members) {
            if (parseJson(jsonQuote(m.first)).text != m.first)
                std::abort();
            checkRoundTrips(m.second);
        }
        break;
    default:
        break;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    try {
        checkRoundTrips(parseJson(text));
    } catch (const IllegalArgumentException&) {
    }
    try {
        for (const TrTrackSpec& spec : parseTrackFile(text, "fuzz.json"))
            if (spec.name.empty() || spec.patternWidth < 0 || spec.searchWidth < 0)
                std::abort();
    } catch (const IllegalArgumentException&) {
    }
    return 0;
}
