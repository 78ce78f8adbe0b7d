#include "tools/track/TrJson.h"

#include "base/Exception.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Deep enough for any schema of ours, shallow enough to keep the recursion
// far from the stack's limit on hostile input.
const int kMaxDepth = 64;

class JsonParser {
public:
    explicit JsonParser(const std::string& text) : text(text) {}

    TrJsonValue parseDocument() {
        skipBlanks();
        TrJsonValue v = parseValue(0);
        skipBlanks();
        if (pos < text.size())
            fail("unexpected text after the value");
        return v;
    }

private:
    [[noreturn]] void fail(const std::string& what) const { failAt(line, column, what); }
    [[noreturn]] static void failAt(int l, int c, const std::string& what) {
        throw IllegalArgumentException(
            dstring("line " + std::to_string(l) + ", column " + std::to_string(c) + ": " + what));
    }

    bool atEnd() const { return pos >= text.size(); }
    char peek() const { return atEnd() ? '\0' : text[pos]; }

    void advance() {
        if (text[pos] == '\n') {
            ++line;
            column = 1;
        } else {
            ++column;
        }
        ++pos;
    }

    void skipBlanks() {
        while (!atEnd() && (peek() == ' ' || peek() == '\t' || peek() == '\n' || peek() == '\r'))
            advance();
    }

    void expect(char c) {
        if (peek() != c)
            fail(std::string("expected '") + c + "'" + found());
        advance();
    }

    std::string found() const {
        if (atEnd())
            return ", found the end of the text";
        const unsigned char c = static_cast<unsigned char>(peek());
        if (c < 0x20 || c >= 0x7f) {
            char buf[32];
            std::snprintf(buf, sizeof buf, ", found byte 0x%02x", c);
            return buf;
        }
        return std::string(", found '") + peek() + "'";
    }

    TrJsonValue parseValue(int depth) {
        if (depth > kMaxDepth)
            fail("nesting deeper than " + std::to_string(kMaxDepth) + " levels");
        TrJsonValue v;
        v.line = line;
        v.column = column;
        const char c = peek();
        if (c == '{') {
            v.kind = TrJsonValue::Object;
            parseObject(v, depth);
        } else if (c == '[') {
            v.kind = TrJsonValue::Array;
            parseArray(v, depth);
        } else if (c == '"') {
            v.kind = TrJsonValue::String;
            v.text = parseString();
        } else if (c == '-' || (c >= '0' && c <= '9')) {
            v.kind = TrJsonValue::Number;
            v.number = parseNumber();
        } else if (word("true")) {
            v.kind = TrJsonValue::Bool;
            v.boolean = true;
        } else if (word("false")) {
            v.kind = TrJsonValue::Bool;
        } else if (word("null")) {
            v.kind = TrJsonValue::Null;
        } else {
            fail("expected a value" + found());
        }
        return v;
    }

    bool word(const char* w) {
        const size_t n = std::strlen(w);
        if (text.compare(pos, n, w) != 0)
            return false;
        for (size_t i = 0; i < n; ++i)
            advance();
        return true;
    }

    void parseObject(TrJsonValue& v, int depth) {
        advance();
        skipBlanks();
        if (peek() == '}') {
            advance();
            return;
        }
        for (;;) {
            skipBlanks();
            const int keyLine = line, keyColumn = column;
            if (peek() != '"')
                fail("expected a key in double quotes" + found());
            std::string key = parseString();
            for (const auto& m : v.members)
                if (m.first == key)
                    failAt(keyLine, keyColumn, "repeated key " + jsonQuote(key));
            skipBlanks();
            expect(':');
            skipBlanks();
            v.members.emplace_back(std::move(key), parseValue(depth + 1));
            skipBlanks();
            if (peek() == ',') {
                advance();
                continue;
            }
            if (peek() == '}') {
                advance();
                return;
            }
            fail("expected ',' or '}'" + found());
        }
    }

    void parseArray(TrJsonValue& v, int depth) {
        advance();
        skipBlanks();
        if (peek() == ']') {
            advance();
            return;
        }
        for (;;) {
            skipBlanks();
            v.items.push_back(parseValue(depth + 1));
            skipBlanks();
            if (peek() == ',') {
                advance();
                continue;
            }
            if (peek() == ']') {
                advance();
                return;
            }
            fail("expected ',' or ']'" + found());
        }
    }

    double parseNumber() {
        const int startLine = line, startColumn = column;
        const size_t start = pos;
        if (peek() == '-')
            advance();
        if (peek() == '0') {
            advance();
        } else if (peek() >= '1' && peek() <= '9') {
            while (peek() >= '0' && peek() <= '9')
                advance();
        } else {
            fail("expected a digit" + found());
        }
        if (peek() == '.') {
            advance();
            if (!(peek() >= '0' && peek() <= '9'))
                fail("expected a digit after '.'" + found());
            while (peek() >= '0' && peek() <= '9')
                advance();
        }
        if (peek() == 'e' || peek() == 'E') {
            advance();
            if (peek() == '+' || peek() == '-')
                advance();
            if (!(peek() >= '0' && peek() <= '9'))
                fail("expected a digit in the exponent" + found());
            while (peek() >= '0' && peek() <= '9')
                advance();
        }
        const std::string digits = text.substr(start, pos - start);
        const double v = std::strtod(digits.c_str(), nullptr);
        if (!std::isfinite(v))
            failAt(startLine, startColumn, "number out of range " + digits);
        return v;
    }

    unsigned hex4() {
        unsigned u = 0;
        for (int i = 0; i < 4; ++i) {
            const char c = peek();
            int d;
            if (c >= '0' && c <= '9')
                d = c - '0';
            else if (c >= 'a' && c <= 'f')
                d = c - 'a' + 10;
            else if (c >= 'A' && c <= 'F')
                d = c - 'A' + 10;
            else
                fail("expected four hexadecimal digits after \\u" + found());
            u = u * 16 + static_cast<unsigned>(d);
            advance();
        }
        return u;
    }

    static void appendUtf8(std::string& out, unsigned cp) {
        if (cp < 0x80) {
            out += static_cast<char>(cp);
        } else if (cp < 0x800) {
            out += static_cast<char>(0xc0 | (cp >> 6));
            out += static_cast<char>(0x80 | (cp & 0x3f));
        } else if (cp < 0x10000) {
            out += static_cast<char>(0xe0 | (cp >> 12));
            out += static_cast<char>(0x80 | ((cp >> 6) & 0x3f));
            out += static_cast<char>(0x80 | (cp & 0x3f));
        } else {
            out += static_cast<char>(0xf0 | (cp >> 18));
            out += static_cast<char>(0x80 | ((cp >> 12) & 0x3f));
            out += static_cast<char>(0x80 | ((cp >> 6) & 0x3f));
            out += static_cast<char>(0x80 | (cp & 0x3f));
        }
    }

    std::string parseString() {
        advance();
        std::string out;
        for (;;) {
            if (atEnd())
                fail("unterminated string");
            const char c = peek();
            if (c == '"') {
                advance();
                return out;
            }
            if (static_cast<unsigned char>(c) < 0x20)
                fail("control character in a string" + found());
            if (c != '\\') {
                out += c;
                advance();
                continue;
            }
            advance();
            const char e = peek();
            switch (e) {
            case '"':
                out += '"';
                break;
            case '\\':
                out += '\\';
                break;
            case '/':
                out += '/';
                break;
            case 'b':
                out += '\b';
                break;
            case 'f':
                out += '\f';
                break;
            case 'n':
                out += '\n';
                break;
            case 'r':
                out += '\r';
                break;
            case 't':
                out += '\t';
                break;
            case 'u': {
                advance();
                unsigned cp = hex4();
                if (cp >= 0xd800 && cp < 0xdc00) {
                    if (peek() != '\\' || text.compare(pos, 2, "\\u") != 0)
                        fail("unpaired surrogate in \\u escape");
                    advance();
                    advance();
                    const unsigned low = hex4();
                    if (low < 0xdc00 || low >= 0xe000)
                        fail("unpaired surrogate in \\u escape");
                    cp = 0x10000 + ((cp - 0xd800) << 10) + (low - 0xdc00);
                } else if (cp >= 0xdc00 && cp < 0xe000) {
                    fail("unpaired surrogate in \\u escape");
                }
                appendUtf8(out, cp);
                continue;
            }
            default:
                fail("unknown escape in a string" + found());
            }
            advance();
        }
    }

    const std::string& text;
    size_t pos = 0;
    int line = 1;
    int column = 1;
};

} // namespace

const char* TrJsonValue::kindName(Kind kind) {
    switch (kind) {
    case Null:
        return "null";
    case Bool:
        return "true or false";
    case Number:
        return "a number";
    case String:
        return "a string";
    case Array:
        return "an array";
    case Object:
        return "an object";
    }
    return "a value";
}

TrJsonValue parseJson(const std::string& text) {
    return JsonParser(text).parseDocument();
}

std::string jsonQuote(const std::string& text) {
    std::string out = "\"";
    for (char c : text) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                char buf[8];
                std::snprintf(buf, sizeof buf, "\\u%04x", c);
                out += buf;
            } else {
                out += c;
            }
        }
    }
    return out + "\"";
}

std::string jsonNumber(double v) {
    if (!std::isfinite(v))
        return "null";
    char buf[32];
    // The shortest of %.15g and %.17g that reads back as the same double.
    std::snprintf(buf, sizeof buf, "%.15g", v);
    if (std::strtod(buf, nullptr) != v)
        std::snprintf(buf, sizeof buf, "%.17g", v);
    return buf;
}
