#include "image/Color.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <ostream>
#include <string>

namespace Orvane {

namespace {

// The low 8 bits of trunc(x), as two's complement would keep them. fmod is
// exact, so this also holds for products far outside the range of int.
unsigned char lowByte(double x) {
    if (std::isnan(x))
        return 0;
    double m = std::fmod(std::trunc(x), 256.0);
    if (m < 0)
        m += 256.0;
    return static_cast<unsigned char>(m);
}

// One component of the text form: up to k characters from `start`, read as
// hexadecimal. The shift keeps the top byte of a k-digit value; shorter forms
// follow the same rule and so lose everything ("#fff" is black).
unsigned char parsePiece(const char* digits, int length, int start, int k) {
    std::string piece;
    if (start < length)
        piece.assign(digits + start, static_cast<size_t>(std::min(k, length - start)));
    long value = std::strtol(piece.c_str(), nullptr, 16);
    return static_cast<unsigned char>((value >> ((k - 2) & 31)) & 0xff);
}

} // namespace

Color::Color(const dstring& s) {
    parse(s);
}

Color::Color(const dstring& s, unsigned char a) : alpha(a) {
    parse(s);
}

Color& Color::operator=(const dstring& s) {
    parse(s);
    return *this;
}

void Color::parse(const dstring& s) {
    if (s.length() == 0 || s[0] != '#')
        throw "unrecognized color";
    const char* digits = s.c_str() + 1;
    int length = s.length() - 1;
    int k = (length + 2) / 3;
    red = parsePiece(digits, length, 0, k);
    green = parsePiece(digits, length, k, k);
    blue = parsePiece(digits, length, 2 * k, k);
}

unsigned char Color::lightness() const {
    unsigned int sum = 54u * red + 183u * green + 19u * blue;
    return static_cast<unsigned char>(sum >> 8);
}

Color Color::brighten(double f) const {
    return Color(lowByte(red * f), lowByte(green * f), lowByte(blue * f), alpha);
}

dstring Color::str() const {
    return dstring::format("Color[%d,%d,%d,%d]", red, green, blue, alpha);
}

unsigned char Color::clamp(int v) {
    if (v < 0)
        return 0;
    return v < 256 ? static_cast<unsigned char>(v) : 255;
}

Color Color::mix(const Color& a, const Color& b, double t) {
    if (std::isnan(t) || t <= 0)
        return a;
    if (t >= 1)
        return b;
    auto blend = [t](unsigned char x, unsigned char y) {
        return static_cast<unsigned char>(y * t + x * (1 - t));
    };
    return Color(blend(a.red, b.red), blend(a.green, b.green), blend(a.blue, b.blue),
                 blend(a.alpha, b.alpha));
}

double Color::difference(const Color& a, const Color& b) {
    int dr = a.red - b.red;
    int dg = a.green - b.green;
    int db = a.blue - b.blue;
    int da = a.alpha - b.alpha;
    return std::sqrt(static_cast<double>(dr * dr + dg * dg + db * db + da * da));
}

const Color& Color::getBlack() {
    static const Color c(0, 0, 0, 255);
    return c;
}

const Color& Color::getWhite() {
    static const Color c(255, 255, 255, 255);
    return c;
}

const Color& Color::getRed() {
    static const Color c(255, 0, 0, 255);
    return c;
}

const Color& Color::getGreen() {
    static const Color c(0, 255, 0, 255);
    return c;
}

const Color& Color::getBlue() {
    static const Color c(0, 0, 255, 255);
    return c;
}

const Color& Color::getMagenta() {
    static const Color c(255, 0, 255, 255);
    return c;
}

const Color& Color::getYellow() {
    static const Color c(255, 255, 0, 255);
    return c;
}

const Color& Color::getCyan() {
    static const Color c(0, 255, 255, 255);
    return c;
}

Color operator*(const Color& c, double f) {
    return Color(lowByte(c.red * f), lowByte(c.green * f), lowByte(c.blue * f),
                 lowByte(c.alpha * f));
}

Color operator+(const Color& a, const Color& b) {
    return Color(Color::clamp(a.red + b.red), Color::clamp(a.green + b.green),
                 Color::clamp(a.blue + b.blue), Color::clamp(a.alpha + b.alpha));
}

Color operator-(const Color& a, const Color& b) {
    return Color(Color::clamp(a.red - b.red), Color::clamp(a.green - b.green),
                 Color::clamp(a.blue - b.blue), Color::clamp(a.alpha - b.alpha));
}

std::ostream& operator<<(std::ostream& os, const Color& c) {
    return os << c.str();
}

} // namespace Orvane
