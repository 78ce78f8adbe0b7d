#pragma once

#include "base/dstring.h"

#include <cstdint>
#include <iosfwd>

namespace Orvane {

class Color;

/// Sample datatype codes. The values are stored in one byte and switched on
/// throughout the image library; they never change.
enum Datatype : unsigned char {
    UNKNOWN = 0,
    UB1 = 1,    ///< unsigned 8-bit
    UB2 = 2,    ///< unsigned 16-bit
    UB4 = 3,    ///< unsigned 32-bit
    FLOAT = 4,  ///< IEEE single
    DOUBLE = 5, ///< IEEE double
};

/// The name of a datatype ("ub1", "float", ...); "unknown" outside 1..5.
dstring datatypeString(int datatype);

/// A named channel and its position within the pixel, for sorting channels
/// into pixel order. Ordered by position only.
struct Channel {
    char letter = 0;
    int32_t position = 0;

    bool operator<(const Channel& other) const { return position < other.position; }
};

/// The layout of one interleaved pixel: channel count, sample datatype, the
/// position of each named channel (-1 when absent) and the premultiplied
/// flag. A small value type, compared field by field.
///
/// Channel strings name one channel per character, in pixel order: r g b a l
/// for red, green, blue, alpha and luminance, x for padding, in either case.
class Format {
public:
    /// No channels, datatype UNKNOWN.
    Format() = default;
    /// Parses `channels` (null reads as empty). The datatype is stored
    /// unchecked. Throws IllegalArgumentException with the whole string when
    /// a character is not a channel letter. A repeated letter keeps its last
    /// position, and every character counts toward the channel count.
    Format(const char* channels, int datatype, bool premultiplied);

    /// This format with only the datatype replaced.
    Format withDatatype(int datatype) const;

    int getNumChannels() const { return nc; }
    int getDatatype() const { return datatype; }
    /// Bytes per channel sample; IllegalArgumentException "datatype" for a
    /// datatype outside 1..5.
    unsigned int getChannelBytes() const;
    /// Channel count times bytes per sample.
    unsigned int getBytesPerPixel() const { return nc * getChannelBytes(); }

    /// False only for FLOAT and DOUBLE (UNKNOWN counts as fixed).
    bool isFixed() const { return !isFloating(); }
    bool isFloating() const { return datatype == FLOAT || datatype == DOUBLE; }

    /// True without alpha and for alpha alone, where premultiplication makes
    /// no difference; otherwise the stored flag.
    bool isPremult() const;
    void setPremult(bool premultiplied);

    /// The position of channel r g b a or l, in either case; -1 when absent.
    /// Any other letter throws IllegalArgumentException "no such channel \"c\"".
    int getChannel(char c) const;
    /// The position of channel r g b a or l, lower case only; every other
    /// character, upper case included, gives -1 without throwing.
    int getIndex(char c) const;
    /// The lower-case letter of the channel at `position`, 'x' for a padding
    /// channel, 0 outside the pixel. The stored positions are compared before
    /// the sign is tested, so -1 names the first absent channel in the order
    /// r g b a l.
    char identifyChannel(char position) const;

    /// The bits of each channel within a 32-bit pixel word; 0 for an absent
    /// channel and for a channel that lies past bit 31. A sample wider than
    /// 32 bits gives a full word.
    uint32_t getRMask() const { return mask(red); }
    uint32_t getGMask() const { return mask(green); }
    uint32_t getBMask() const { return mask(blue); }
    uint32_t getAMask() const { return mask(alpha); }
    uint32_t getLMask() const { return mask(lum); }

    /// Red before green before blue.
    bool RGBorder() const { return red < green && green < blue; }
    /// Blue before green before red.
    bool BGRorder() const { return blue < green && green < red; }

    /// All eight fields equal, the stored premultiplied flag included.
    bool operator==(const Format& f) const;
    bool operator!=(const Format& f) const { return !(*this == f); }

    /// The upper-case letters of the named channels in pixel order ("BGRA");
    /// padding channels are left out. Empty when no channel is named.
    dstring getChannelOrder() const;

    /// One UB1 pixel of this format holding `c`: luminance gets the colour's
    /// lightness, padding channels 0. The caller owns the array and frees it
    /// with delete[]. Other datatypes throw IllegalArgumentException
    /// "only UB1 supported yet".
    unsigned char* getPixel(const Color& c) const;

    /// "Format(<channel order>, <datatype name>, <isPremult()>)".
    dstring str() const;

    /// The name of a datatype, as datatypeString().
    static dstring datatypeDescription(int datatype);

    /// The OpenGL pixel format of the channel order; a bare const char*
    /// "GL format representation not available" when there is none.
    unsigned int glGetFormat() const;
    /// The OpenGL type of the datatype; a bare const char*
    /// "GL type representation not available" outside 1..5.
    unsigned int glGetType() const;

    /// One luminance channel of `datatype`, premultiplied flag set (unlike
    /// getL()).
    static Format mono(int datatype);

    /// Predefined UB1 formats, built once. Upper-case names are straight,
    /// lower-case names premultiplied.
    static const Format& getRGBA();
    static const Format& getrgba();
    static const Format& getRGB();
    static const Format& getBGRA();
    static const Format& getbgra();
    static const Format& getBGR();
    static const Format& getLA();
    static const Format& getla();
    static const Format& getL();
    static const Format& getA();

private:
    uint32_t mask(int8_t index) const;

    uint8_t nc = 0;
    uint8_t datatype = UNKNOWN;
    int8_t red = -1;
    int8_t green = -1;
    int8_t blue = -1;
    int8_t alpha = -1;
    int8_t lum = -1;
    uint8_t flags = 0;
};

std::ostream& operator<<(std::ostream& os, const Format& f);

} // namespace Orvane
