#pragma once

#include "base/dstring.h"

#include <iosfwd>

namespace Orvane {

/// An 8-bit RGBA colour value, used to fill images, build pixels of a format
/// and draw debug graphics. Alpha 255 is opaque.
///
/// Text form: "#" followed by hexadecimal digits, split evenly into red,
/// green and blue; "#rrggbb" is the exact form. Anything not starting with
/// "#" throws the bare string "unrecognized color".
class Color {
public:
    unsigned char red = 0;
    unsigned char green = 0;
    unsigned char blue = 0;
    unsigned char alpha = 255;

    /// Opaque black.
    Color() = default;
    Color(const Color& c) = default;
    Color(const Color& c, unsigned char a) : red(c.red), green(c.green), blue(c.blue), alpha(a) {}
    explicit Color(unsigned char grey) : red(grey), green(grey), blue(grey) {}
    Color(unsigned char grey, unsigned char a) : red(grey), green(grey), blue(grey), alpha(a) {}
    Color(unsigned char r, unsigned char g, unsigned char b) : red(r), green(g), blue(b) {}
    Color(unsigned char r, unsigned char g, unsigned char b, unsigned char a)
        : red(r), green(g), blue(b), alpha(a) {}
    /// Parses `s` (see the class comment); alpha is 255.
    explicit Color(const dstring& s);
    /// Parses `s`; alpha is `a`.
    Color(const dstring& s, unsigned char a);

    Color& operator=(const Color& c) = default;
    /// Parses `s` into red, green and blue; alpha keeps its value. On a parse
    /// failure the colour is unchanged.
    Color& operator=(const dstring& s);

    bool operator==(const Color& c) const {
        return red == c.red && green == c.green && blue == c.blue && alpha == c.alpha;
    }
    bool operator!=(const Color& c) const { return !(*this == c); }

    /// Luminance on 0..255: (54 r + 183 g + 19 b) >> 8.
    unsigned char lightness() const;
    /// Red, green and blue scaled by `f`, keeping only the low 8 bits of each
    /// truncated product (no clamping: 200 * 2 gives 144). Alpha is kept.
    Color brighten(double f) const;
    /// This colour with alpha 255.
    Color opaque() const { return Color(*this, 255); }

    /// "Color[r,g,b,a]" in decimal.
    dstring str() const;

    /// `v` limited to 0..255.
    static unsigned char clamp(int v);
    /// `a` for t <= 0, `b` for t >= 1, else b t + a (1 - t) per component,
    /// truncated. A t that is not a number gives `a`.
    static Color mix(const Color& a, const Color& b, double t);
    /// Euclidean distance over all four components.
    static double difference(const Color& a, const Color& b);

    static const Color& getBlack();
    static const Color& getWhite();
    static const Color& getRed();
    static const Color& getGreen();
    static const Color& getBlue();
    static const Color& getMagenta();
    static const Color& getYellow();
    static const Color& getCyan();

private:
    void parse(const dstring& s);
};

static_assert(sizeof(Color) == 4, "a colour is four bytes");

/// All four components, alpha included, scaled by `f`; low 8 bits of each
/// truncated product, no clamping.
Color operator*(const Color& c, double f);
/// Component-wise sum of all four components, saturating at 255.
Color operator+(const Color& a, const Color& b);
/// Component-wise difference of all four components, floored at 0.
Color operator-(const Color& a, const Color& b);

std::ostream& operator<<(std::ostream& os, const Color& c);

} // namespace Orvane
