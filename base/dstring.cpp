#include "base/dstring.h"

#include "base/Exception.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <ostream>

dstring::dstring(const char* text) {
    if (text && *text)
        adopt(text, static_cast<int>(std::strlen(text)));
}

dstring::dstring(const char* text, int n) {
    if (text && n >= 1)
        adopt(text, n);
}

dstring::dstring(const std::string& text) {
    if (!text.empty())
        adopt(text.data(), static_cast<int>(text.size()));
}

dstring::dstring(const dstring& other) : chars(other.chars) {
    if (chars)
        ++header()->count;
}

void dstring::adopt(const char* text, int n) {
    void* block = std::malloc(sizeof(Header) + n + 1);
    if (!block)
        throw std::bad_alloc();
    Header* h = static_cast<Header*>(block);
    h->count = 1;
    h->length = n;
    h->capacity = n + 1;
    chars = static_cast<char*>(block) + sizeof(Header);
    std::memcpy(chars, text, n);
    chars[n] = 0;
}

void dstring::dec() {
    if (!chars)
        return;
    Header* h = header();
    if (--h->count == 0) {
        chars[0] = 0;
        std::free(h);
    }
    chars = nullptr;
}

dstring& dstring::operator=(const dstring& other) {
    if (other.chars == chars)
        return *this;
    if (other.chars)
        ++other.header()->count;
    dec();
    chars = other.chars;
    return *this;
}

dstring& dstring::operator=(dstring&& other) noexcept {
    if (this != &other) {
        dec();
        chars = other.chars;
        other.chars = nullptr;
    }
    return *this;
}

dstring& dstring::operator=(const char* text) {
    if (text == chars)
        return *this;
    int n = text ? static_cast<int>(std::strlen(text)) : 0;
    if (n == 0) {
        dec();
        return *this;
    }
    if (chars && header()->count == 1 && n < header()->capacity) {
        // The text may lie inside our own block, hence memmove.
        std::memmove(chars, text, n);
        chars[n] = 0;
        header()->length = n;
        return *this;
    }
    char* old = chars;
    chars = nullptr;
    adopt(text, n);
    dstring release;
    release.chars = old;
    return *this;
}

bool dstring::operator==(const dstring& other) const {
    if (chars == other.chars)
        return true;
    if (!chars || !other.chars)
        return false;
    if (header()->length != other.header()->length)
        return false;
    return std::memcmp(chars, other.chars, header()->length) == 0;
}

char& dstring::getInvalidChar() {
    static char invalid = 0;
    return invalid;
}

dstring dstring::substr(int start, int n) const {
    if (!chars)
        return dstring();
    if (length() > start + n)
        return dstring(chars + start, n);
    if (start == 0)
        return *this;
    return from(start);
}

dstring dstring::from(int start) const {
    if (length() > start)
        return dstring(chars + start, length() - start);
    return dstring();
}

dstring dstring::to(int last) const {
    if (!chars)
        return dstring();
    if (length() <= last)
        return *this;
    if (last >= 0)
        return dstring(chars, last + 1);
    return dstring();
}

dstring dstring::operator+(const dstring& other) const {
    if (!other.chars)
        return *this;
    if (!chars)
        return other;
    std::string joined(c_str(), length());
    joined.append(other.c_str(), other.length());
    return dstring(joined);
}

dstring dstring::vformat(const char* fmt, va_list args) {
    char buffer[2048];
    std::vsnprintf(buffer, sizeof buffer, fmt, args);
    return dstring(buffer);
}

dstring dstring::format(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    dstring result = vformat(fmt, args);
    va_end(args);
    return result;
}

dstring dstring::format(short value) {
    return format("%d", value);
}
dstring dstring::format(int value) {
    return format("%d", value);
}
dstring dstring::format(long value) {
    return format("%ld", value);
}
dstring dstring::format(float value) {
    return format("%g", static_cast<double>(value));
}
dstring dstring::format(double value) {
    return format("%lg", value);
}

dstring dstring::formatDouble(double value) {
    char buffer[64];
    for (int precision = 6; precision < 17; ++precision) {
        std::snprintf(buffer, sizeof buffer, "%.*g", precision, value);
        if (std::strtod(buffer, nullptr) == value)
            return dstring(buffer);
    }
    std::snprintf(buffer, sizeof buffer, "%.17g", value);
    return dstring(buffer);
}

long dstring::toLong(int base) const {
    if (length() == 0)
        throw IllegalArgumentException("dstring.toLong: length zero");
    char* end = nullptr;
    long value = std::strtol(chars, &end, base);
    if (end == chars)
        throw IllegalArgumentException("dstring.toLong: failed");
    return value;
}

double dstring::toDouble() const {
    if (length() == 0)
        throw IllegalArgumentException("dstring.toDouble: length zero");
    char* end = nullptr;
    double value = std::strtod(chars, &end);
    if (end == chars)
        throw IllegalArgumentException("dstring.toDouble: failed");
    return value;
}

std::ostream& operator<<(std::ostream& os, const dstring& s) {
    return os.write(s.c_str(), s.length());
}
