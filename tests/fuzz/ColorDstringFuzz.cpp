// The colour-string parser and the string-to-number conversions of the
// string class. The first byte picks the base for toLong; the rest is the
// text. A full "#rrggbb" must read as its three bytes, and any number that
// toDouble reads must survive formatDouble and a second read.

#include "base/Exception.h"
#include "base/dstring.h"
#include "image/Color.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

int hexDigit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// The exact form, read digit by digit; -1 when `text` is not in it.
int exactComponent(const std::string& text, int k) {
    if (text.size() != 7 || text[0] != '#')
        return -1;
    for (size_t i = 1; i < 7; ++i)
        if (hexDigit(text[i]) < 0)
            return -1;
    return hexDigit(text[1 + 2 * k]) * 16 + hexDigit(text[2 + 2 * k]);
}

void checkColor(const std::string& text) {
    try {
        const Orvane::Color c{dstring(text), 7};
        if (c.alpha != 7 || (c.str().length() == 0))
            std::abort();
        if (exactComponent(text, 0) >= 0 &&
            (c.red != exactComponent(text, 0) || c.green != exactComponent(text, 1) ||
             c.blue != exactComponent(text, 2)))
            std::abort();
    } catch (const char* message) {
        if (std::string(message) != "unrecognized color")
            std::abort();
    }
}

void checkNumbers(const std::string& text, int base) {
    const dstring s(text);
    try {
        (void)s.toLong(base);
    } catch (const IllegalArgumentException&) {
    }
    try {
        const double v = s.toDouble();
        if (std::isfinite(v) && dstring::formatDouble(v).toDouble() != v)
            std::abort();
    } catch (const IllegalArgumentException&) {
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    // 0 lets strtol take the base from the prefix; 37 and up are invalid.
    const int base = data[0] % 40;
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    checkColor(text);
    checkNumbers(text, base);
    return 0;
}
