#include "tools/track/TrTrackFile.h"

#include "base/Exception.h"
#include "tools/track/TrJson.h"
#include "track/TrModes.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>

namespace {

[[noreturn]] void failAt(const std::string& source, const TrJsonValue& v, const std::string& what) {
    throw IllegalArgumentException(dstring(source + ": line " + std::to_string(v.line) +
                                           ", column " + std::to_string(v.column) + ": " + what));
}

void requireKind(const std::string& source, const TrJsonValue& v, TrJsonValue::Kind kind,
                 const std::string& what) {
    if (v.kind != kind)
        failAt(source, v,
               what + " must be " + TrJsonValue::kindName(kind) + ", not " +
                   TrJsonValue::kindName(v.kind));
}

// A pair of numbers: [x, y] or [width, height].
const TrJsonValue& pairAt(const std::string& source, const TrJsonValue& v, const std::string& what,
                          int index) {
    requireKind(source, v, TrJsonValue::Array, what);
    if (v.items.size() != 2)
        failAt(source, v, what + " must hold two numbers");
    const TrJsonValue& item = v.items[size_t(index)];
    requireKind(source, item, TrJsonValue::Number, what);
    return item;
}

void readSize(const std::string& source, const TrJsonValue& v, const std::string& what, int& w,
              int& h) {
    int* out[2] = {&w, &h};
    for (int i = 0; i < 2; ++i) {
        const TrJsonValue& item = pairAt(source, v, what, i);
        if (item.number < 1 || item.number > 1e6 || std::floor(item.number) != item.number)
            failAt(source, item, what + " must hold two positive whole numbers");
        *out[i] = static_cast<int>(item.number);
    }
}

} // namespace

bool isColorMode(const std::string& mode) {
    return TrModes::findColorMode(mode.c_str()) != nullptr;
}

std::string colorModeList() {
    return TrModes::colorModeList();
}

std::vector<TrTrackSpec> parseTrackFile(const std::string& text, const std::string& source,
                                        int firstNumber) {
    TrJsonValue root;
    try {
        root = parseJson(text);
    } catch (const Exception& e) {
        throw IllegalArgumentException(dstring(source + ": " + e.getMessage().str()));
    }
    requireKind(source, root, TrJsonValue::Object, "the file");
    const TrJsonValue* list = nullptr;
    for (const auto& m : root.members) {
        if (m.first != "tracks")
            failAt(source, m.second,
                   "unknown key " + jsonQuote(m.first) + " (expected \"tracks\")");
        list = &m.second;
    }
    if (!list)
        failAt(source, root, "missing key \"tracks\"");
    requireKind(source, *list, TrJsonValue::Array, "\"tracks\"");
    if (list->items.empty())
        failAt(source, *list, "\"tracks\" holds no track");

    std::vector<TrTrackSpec> specs;
    for (const TrJsonValue& t : list->items) {
        requireKind(source, t, TrJsonValue::Object, "a track");
        TrTrackSpec spec;
        spec.name = std::to_string(firstNumber + int(specs.size()));
        bool hasPosition = false;
        for (const auto& m : t.members) {
            const std::string& key = m.first;
            const TrJsonValue& v = m.second;
            if (key == "name") {
                requireKind(source, v, TrJsonValue::String, "\"name\"");
                if (v.text.empty())
                    failAt(source, v, "\"name\" is empty");
                for (char c : v.text)
                    if (static_cast<unsigned char>(c) < 0x20)
                        failAt(source, v, "\"name\" holds a control character");
                spec.name = v.text;
            } else if (key == "position") {
                spec.x = pairAt(source, v, "\"position\"", 0).number;
                spec.y = pairAt(source, v, "\"position\"", 1).number;
                hasPosition = true;
            } else if (key == "pattern") {
                readSize(source, v, "\"pattern\"", spec.patternWidth, spec.patternHeight);
            } else if (key == "search") {
                readSize(source, v, "\"search\"", spec.searchWidth, spec.searchHeight);
            } else if (key == "colorMode") {
                requireKind(source, v, TrJsonValue::String, "\"colorMode\"");
                if (!isColorMode(v.text))
                    failAt(source, v,
                           "unknown colour mode " + jsonQuote(v.text) + " (expected one of " +
                               colorModeList() + ")");
                spec.colorMode = v.text;
            } else {
                failAt(source, v,
                       "unknown key " + jsonQuote(key) +
                           " (expected name, position, pattern, search, colorMode)");
            }
        }
        if (!hasPosition)
            failAt(source, t, "track without \"position\"");
        for (const TrTrackSpec& s : specs)
            if (s.name == spec.name)
                failAt(source, t, "a second track named " + jsonQuote(spec.name));
        specs.push_back(spec);
    }
    return specs;
}

std::string readTrackText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw IllegalArgumentException(dstring(path + ": " + std::strerror(errno)));
    // Read in blocks against the limit, since the size of a pipe or a device
    // is not known before the end.
    std::string text;
    char block[1 << 16];
    while (in.read(block, sizeof block) || in.gcount() > 0) {
        text.append(block, size_t(in.gcount()));
        if (text.size() > trackTextLimit)
            throw IllegalArgumentException(
                dstring(path + ": larger than 256 MiB, too large for a track file"));
    }
    if (in.bad())
        throw IllegalArgumentException(dstring(path + ": cannot be read"));
    return text;
}

std::vector<TrTrackSpec> readTrackFile(const std::string& path, int firstNumber) {
    return parseTrackFile(readTrackText(path), path, firstNumber);
}

std::string formatTrackFile(const std::vector<TrTrackSpec>& tracks) {
    std::string text = "{\"tracks\": [";
    for (size_t i = 0; i < tracks.size(); ++i) {
        const TrTrackSpec& s = tracks[i];
        text += std::string(i ? ",\n  " : "\n  ") + "{\"name\": " + jsonQuote(s.name) +
                ", \"position\": [" + jsonNumber(s.x) + ", " + jsonNumber(s.y) +
                "], \"pattern\": [" + std::to_string(s.patternWidth) + ", " +
                std::to_string(s.patternHeight) + "], \"search\": [" +
                std::to_string(s.searchWidth) + ", " + std::to_string(s.searchHeight) +
                "], \"colorMode\": " + jsonQuote(s.colorMode) + "}";
    }
    return text + "]}\n";
}

void writeTrackFile(const std::string& path, const std::vector<TrTrackSpec>& tracks) {
    std::ofstream out(path, std::ios::out | std::ios::trunc | std::ios::binary);
    out << formatTrackFile(tracks);
    out.flush();
    if (!out)
        throw IllegalArgumentException(dstring("cannot write \"" + path + "\""));
}
