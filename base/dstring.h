#pragma once

#include <cstdarg>
#include <cstdint>
#include <iosfwd>
#include <string>

/// A reference-counted string whose empty state is a null pointer.
///
/// The characters live in one malloc'd block behind a 12-byte header
/// (count, length, capacity). Copies share the block; nothing is copied on
/// write, so a string's characters must not be changed while it is shared.
class dstring {
public:
    dstring() = default;
    dstring(const char* text);
    dstring(const char* text, int n);
    dstring(const std::string& text);
    dstring(const dstring& other);
    dstring(dstring&& other) noexcept : chars(other.chars) { other.chars = nullptr; }
    ~dstring() { dec(); }

    dstring& operator=(const dstring& other);
    dstring& operator=(dstring&& other) noexcept;
    dstring& operator=(const char* text);

    /// Releases this handle's reference; the string becomes empty.
    void dec();

    bool operator==(const dstring& other) const;
    bool operator!=(const dstring& other) const { return !(*this == other); }

    bool empty() const { return chars == nullptr; }
    int length() const { return chars ? header()->length : 0; }
    /// Never null: the empty string reads as "".
    const char* c_str() const { return chars ? chars : ""; }
    /// The shared character pointer; null for the empty string.
    const char* data() const { return chars; }
    std::string str() const { return std::string(c_str(), length()); }

    /// Out-of-range reads and writes land on one static scratch character.
    char operator[](int i) const { return (i >= 0 && i < length()) ? chars[i] : getInvalidChar(); }
    char& operator[](int i) { return (i >= 0 && i < length()) ? chars[i] : getInvalidChar(); }
    static char& getInvalidChar();

    dstring substr(int start, int n) const;
    dstring from(int start) const;
    dstring to(int last) const;

    dstring operator+(const dstring& other) const;

    static dstring format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
    static dstring vformat(const char* fmt, va_list args);
    static dstring format(short value);
    static dstring format(int value);
    static dstring format(long value);
    static dstring format(float value);
    static dstring format(double value);
    /// Shortest text that reads back as the same double ("%.17g" at most).
    static dstring formatDouble(double value);

    long toLong(int base = 10) const;
    double toDouble() const;

    /// Count of the shared block; 0 for the empty string.
    uint32_t refCount() const { return chars ? header()->count : 0; }

private:
    struct Header {
        uint32_t count;
        int32_t length;
        int32_t capacity;
    };
    static_assert(sizeof(Header) == 12, "the block header is 12 bytes");

    Header* header() const { return reinterpret_cast<Header*>(chars - sizeof(Header)); }
    void adopt(const char* text, int n);

    char* chars = nullptr;
};

std::ostream& operator<<(std::ostream& os, const dstring& s);
