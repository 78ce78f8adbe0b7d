#include "track/Sequence/TrFramePattern.h"

#include "base/Exception.h"

#include <cctype>
#include <climits>
#include <vector>

namespace {

[[noreturn]] void refuse(const std::string& pattern, const std::string& problem) {
    throw IllegalArgumentException(dstring("the frame pattern \"" + pattern + "\" " + problem));
}

// A field of the file name: where it starts, how many characters it takes
// and the width it asks for.
struct Field {
    size_t at;
    size_t length;
    int width;
};

std::vector<Field> runsOf(const std::string& name, char marker) {
    std::vector<Field> runs;
    for (size_t i = name.find(marker); i != std::string::npos; i = name.find(marker, i)) {
        const size_t end = name.find_first_not_of(marker, i);
        const size_t length = (end == std::string::npos ? name.size() : end) - i;
        runs.push_back({i, length, static_cast<int>(length)});
        i += length;
    }
    return runs;
}

// The conversions of a printf name; "%%" is passed over and any other "%"
// that starts no "%d" or "%0Nd" refuses the pattern, quoting what it found.
std::vector<Field> printfFields(const std::string& pattern, const std::string& name) {
    std::vector<Field> fields;
    for (size_t i = name.find('%'); i != std::string::npos; i = name.find('%', i)) {
        if (i + 1 < name.size() && name[i + 1] == '%') {
            i += 2;
            continue;
        }
        const bool zero = i + 1 < name.size() && name[i + 1] == '0';
        size_t end = i + (zero ? 2 : 1);
        while (end < name.size() && std::isdigit(static_cast<unsigned char>(name[end])))
            ++end;
        const size_t digits = end - i - (zero ? 2 : 1);
        if (end >= name.size() || name[end] != 'd' || (digits > 0 && !zero))
            refuse(pattern, "has \"" + name.substr(i, end - i + 1) +
                                "\", which is not a frame number (use %d, %04d, or %% for a "
                                "plain '%')");
        const std::string width = name.substr(i + 2, digits);
        if (digits > 2 || (digits > 0 && std::stoi(width) > TrFramePattern::maxWidth))
            refuse(pattern, "has \"" + name.substr(i, end - i + 1) + "\", wider than " +
                                std::to_string(TrFramePattern::maxWidth) + " digits");
        fields.push_back({i, end + 1 - i, digits > 0 ? std::stoi(width) : 0});
        i = end + 1;
    }
    return fields;
}

std::string unescapePercent(const std::string& text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        out += text[i];
        if (text[i] == '%' && i + 1 < text.size() && text[i + 1] == '%')
            ++i;
    }
    return out;
}

std::string escapePercent(const std::string& text) {
    std::string out;
    for (const char c : text)
        out += c == '%' ? std::string("%%") : std::string(1, c);
    return out;
}

} // namespace

TrFramePattern TrFramePattern::parse(const std::string& pattern) {
    TrFramePattern p;
    const size_t slash = pattern.find_last_of('/');
    if (slash != std::string::npos)
        p.directory = pattern.substr(0, slash + 1);
    const std::string name = pattern.substr(p.directory.size());
    const auto has = [&](char c) { return name.find(c) != std::string::npos; };
    p.marker = has('#') ? '#' : has('%') ? '%' : '@';
    const std::vector<Field> fields =
        p.marker == '%' ? printfFields(pattern, name) : runsOf(name, p.marker);
    if (fields.empty())
        refuse(pattern, "has no '#' for the frame number");
    if (fields.size() > 1)
        refuse(pattern, "has more than one frame number: \"" +
                            name.substr(fields[0].at, fields[0].length) + "\" and \"" +
                            name.substr(fields[1].at, fields[1].length) + "\"");
    const Field& f = fields.front();
    p.width = f.width;
    p.prefix = name.substr(0, f.at);
    p.suffix = name.substr(f.at + f.length);
    if (p.marker == '%') {
        p.prefix = unescapePercent(p.prefix);
        p.suffix = unescapePercent(p.suffix);
    }
    return p;
}

std::string TrFramePattern::expand(int frame) const {
    std::string number = std::to_string(frame);
    if (static_cast<int>(number.size()) < width)
        number.insert(frame < 0 ? 1 : 0, width - number.size(), '0');
    return directory + prefix + number + suffix;
}

bool TrFramePattern::match(const std::string& name, int& frame, int& digits) const {
    if (name.size() <= prefix.size() + suffix.size() || name.compare(0, prefix.size(), prefix) ||
        name.compare(name.size() - suffix.size(), suffix.size(), suffix))
        return false;
    const std::string middle =
        name.substr(prefix.size(), name.size() - prefix.size() - suffix.size());
    if (middle.find_first_not_of("0123456789") != std::string::npos)
        return false;
    // Leading zeros are padding; what is left must fit an int.
    const size_t lead = middle.find_first_not_of('0');
    const std::string significant = lead == std::string::npos ? "0" : middle.substr(lead);
    if (significant.size() > 10 || std::stoll(significant) > INT_MAX)
        return false;
    const int number = static_cast<int>(std::stoll(significant));
    if (marker != '#' && expand(number) != directory + prefix + middle + suffix)
        return false;
    frame = number;
    digits = static_cast<int>(middle.size());
    return true;
}

std::string TrFramePattern::name() const {
    if (marker != '%')
        return prefix + std::string(width, marker) + suffix;
    const std::string field = width > 0 ? "%0" + std::to_string(width) + "d" : "%d";
    return escapePercent(prefix) + field + escapePercent(suffix);
}

std::string expandFramePattern(const std::string& pattern, int frame) {
    return TrFramePattern::parse(pattern).expand(frame);
}
