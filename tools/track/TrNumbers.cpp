#include "tools/track/TrNumbers.h"

#include "base/Exception.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace TrNumbers {

namespace {

[[noreturn]] void fail(const std::string& what, const char* reason, const std::string& text) {
    throw IllegalArgumentException(dstring(what + ": " + reason + " \"" + text + "\""));
}

// strtod accepts blanks in front, "inf", "nan" and hexadecimal; a user's
// number is none of these.
bool plainDecimal(const std::string& text) {
    if (text.empty())
        return false;
    for (char c : text)
        if (!std::isdigit(static_cast<unsigned char>(c)) && c != '.' && c != '-' && c != '+' &&
            c != 'e' && c != 'E')
            return false;
    return true;
}

} // namespace

double parseDouble(const std::string& text, const std::string& what) {
    if (!plainDecimal(text))
        fail(what, "malformed number", text);
    errno = 0;
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (end != text.c_str() + text.size())
        fail(what, "malformed number", text);
    if (errno == ERANGE || !std::isfinite(v))
        fail(what, "number out of range", text);
    return v;
}

int parseInt(const std::string& text, const std::string& what) {
    const size_t start = !text.empty() && (text[0] == '-' || text[0] == '+') ? 1 : 0;
    if (text.size() == start)
        fail(what, "malformed whole number", text);
    for (size_t i = start; i < text.size(); ++i)
        if (!std::isdigit(static_cast<unsigned char>(text[i])))
            fail(what, "malformed whole number", text);
    errno = 0;
    const long v = std::strtol(text.c_str(), nullptr, 10);
    if (errno == ERANGE || v < INT_MIN || v > INT_MAX)
        fail(what, "whole number out of range", text);
    return static_cast<int>(v);
}

Point parsePoint(const std::string& text, const std::string& what) {
    const size_t comma = text.find(',');
    if (comma == std::string::npos || text.find(',', comma + 1) != std::string::npos)
        fail(what, "expected X,Y, got", text);
    return {parseDouble(text.substr(0, comma), what), parseDouble(text.substr(comma + 1), what)};
}

Size parseSize(const std::string& text, const std::string& what) {
    const size_t x = text.find('x');
    if (x == std::string::npos || text.find('x', x + 1) != std::string::npos)
        fail(what, "expected WxH, got", text);
    const Size s{parseInt(text.substr(0, x), what), parseInt(text.substr(x + 1), what)};
    if (s.width < 1 || s.height < 1)
        fail(what, "sizes must be positive, got", text);
    return s;
}

std::string text(double v) {
    char buf[32];
    // Fewer than %g's six digits would turn 250 into 2.5e+02.
    for (int digits = 6; digits <= 17; ++digits) {
        std::snprintf(buf, sizeof buf, "%.*g", digits, v);
        if (std::strtod(buf, nullptr) == v)
            break;
    }
    return buf;
}

} // namespace TrNumbers
