#include "tools/track/TrTrackFormat.h"

#include "base/Exception.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>

void TrExportWriter::begin(const std::vector<TrTrackResult>&, int first, int last) {
    from = first;
    to = last;
}

void TrExportWriter::frame(int, const std::vector<TrTrackResult>&) {}

void TrExportWriter::finish(const std::vector<TrTrackResult>& tracks, bool, const std::string&) {
    for (const TrExportFile& f : render(tracks)) {
        if (f.path.empty()) {
            *setup.out << f.text;
            setup.out->flush();
            if (!*setup.out)
                throw IllegalArgumentException(
                    dstring("cannot write \"" + setup.path + "\": output failed"));
            continue;
        }
        std::ofstream file(f.path, std::ios::out | std::ios::trunc | std::ios::binary);
        file << f.text;
        file.close();
        if (!file)
            throw IllegalArgumentException(dstring("cannot write \"" + f.path + "\""));
    }
}

namespace TrFormatText {

std::string fixed(double v, int decimals) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.*f", decimals, v);
    return buf;
}

std::vector<TrSample> keyedSamples(const TrTrackResult& track) {
    std::vector<TrSample> keyed;
    for (const TrSample& s : track.samples)
        if (s.keyed)
            keyed.push_back(s);
    return keyed;
}

std::vector<std::string> words(const std::string& line) {
    std::vector<std::string> list;
    size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && (line[i] == ' ' || line[i] == '\t'))
            ++i;
        const size_t start = i;
        while (i < line.size() && line[i] != ' ' && line[i] != '\t')
            ++i;
        if (i > start)
            list.push_back(line.substr(start, i - start));
    }
    return list;
}

bool isNumber(const std::string& word) {
    if (word.empty() || word.find_first_not_of("0123456789+-.eE") != std::string::npos)
        return false;
    char* end = nullptr;
    errno = 0;
    const double v = std::strtod(word.c_str(), &end);
    return end == word.c_str() + word.size() && errno == 0 && std::isfinite(v);
}

bool Lines::next(std::string& out) {
    if (at >= text.size())
        return false;
    size_t end = text.find('\n', at);
    if (end == std::string::npos)
        end = text.size();
    out = text.substr(at, end - at);
    if (!out.empty() && out.back() == '\r')
        out.pop_back();
    at = end + 1;
    ++line;
    return true;
}

bool Lines::nextFilled(std::string& out) {
    while (next(out))
        if (out.find_first_not_of(" \t") != std::string::npos)
            return true;
    return false;
}

std::string Lines::require(const std::string& expected) {
    std::string out;
    if (!nextFilled(out))
        fail("the file ends where " + expected + " should follow");
    return out;
}

void Lines::fail(const std::string& what) const {
    throw IllegalArgumentException(
        dstring(source + ": line " + std::to_string(std::max(line, 1)) + ": " + what));
}

double Lines::number(const std::string& word, const std::string& what) const {
    if (!isNumber(word))
        fail(what + " is not a number: \"" + word + "\"");
    return std::strtod(word.c_str(), nullptr);
}

int Lines::whole(const std::string& word, const std::string& what) const {
    const bool digits =
        !word.empty() &&
        word.find_first_not_of("0123456789", word[0] == '-' ? 1 : 0) == std::string::npos &&
        word != "-";
    errno = 0;
    const long v = digits ? std::strtol(word.c_str(), nullptr, 10) : 0;
    if (!digits || errno != 0 || v < INT_MIN || v > INT_MAX)
        fail(what + " is not a whole number: \"" + word + "\"");
    return int(v);
}

} // namespace TrFormatText
