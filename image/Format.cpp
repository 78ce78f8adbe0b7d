#include "image/Format.h"

#include "base/Array.h"
#include "base/Exception.h"
#include "image/Color.h"
#include "image/DatatypeSwitch.h"

#include <cstdlib>
#include <cstring>
#include <ostream>
#include <string>

namespace Orvane {

namespace {

const char* const datatypeNames[] = {"unknown", "ub1", "ub2", "ub4", "float", "double"};

// GL_UNSIGNED_BYTE, GL_UNSIGNED_SHORT, GL_UNSIGNED_INT, GL_FLOAT, GL_DOUBLE,
// indexed by datatype; written as numbers so no GL header is needed here.
const unsigned int glTypes[] = {0, 0x1401, 0x1403, 0x1405, 0x1406, 0x140A};

struct GlFormat {
    const char* order;
    unsigned int format;
};

const GlFormat glFormats[] = {
    {"L", 0x1909}, {"LA", 0x190A},  {"R", 0x1903},    {"G", 0x1904},   {"B", 0x1905},
    {"A", 0x1906}, {"RGB", 0x1907}, {"RGBA", 0x1908}, {"BGR", 0x80E0}, {"BGRA", 0x80E1},
};

bool knownDatatype(int datatype) {
    return datatype >= UB1 && datatype <= DOUBLE;
}

} // namespace

dstring datatypeString(int datatype) {
    return datatypeNames[knownDatatype(datatype) ? datatype : UNKNOWN];
}

Format::Format(const char* channels, int datatype, bool premultiplied)
    : datatype(static_cast<uint8_t>(datatype)), flags(premultiplied ? 1 : 0) {
    if (!channels)
        return;
    uint8_t p = 0;
    for (const char* c = channels; *c; ++c) {
        switch (*c) {
        case 'R':
        case 'r':
            red = static_cast<int8_t>(p);
            break;
        case 'G':
        case 'g':
            green = static_cast<int8_t>(p);
            break;
        case 'B':
        case 'b':
            blue = static_cast<int8_t>(p);
            break;
        case 'A':
        case 'a':
            alpha = static_cast<int8_t>(p);
            break;
        case 'L':
        case 'l':
            lum = static_cast<int8_t>(p);
            break;
        case 'X':
        case 'x':
            break;
        default:
            throw IllegalArgumentException(channels);
        }
        nc = ++p;
    }
}

Format Format::withDatatype(int datatype) const {
    Format f = *this;
    f.datatype = static_cast<uint8_t>(datatype);
    return f;
}

unsigned int Format::getChannelBytes() const {
    return switchDatatype(datatype, "datatype", [](auto s) {
        return static_cast<unsigned int>(sizeof(typename decltype(s)::type));
    });
}

bool Format::isPremult() const {
    if (alpha < 0)
        return true;
    if (lum < 0 && red < 0 && green < 0 && blue < 0)
        return true;
    return (flags & 1) != 0;
}

void Format::setPremult(bool premultiplied) {
    flags = premultiplied ? (flags | 1) : (flags & ~1);
}

int Format::getChannel(char c) const {
    switch (c) {
    case 'R':
    case 'r':
        return red;
    case 'G':
    case 'g':
        return green;
    case 'B':
    case 'b':
        return blue;
    case 'A':
    case 'a':
        return alpha;
    case 'L':
    case 'l':
        return lum;
    }
    throw IllegalArgumentException(dstring::format("no such channel \"%c\"", c));
}

int Format::getIndex(char c) const {
    switch (c) {
    case 'r':
        return red;
    case 'g':
        return green;
    case 'b':
        return blue;
    case 'a':
        return alpha;
    case 'l':
        return lum;
    }
    return -1;
}

char Format::identifyChannel(char position) const {
    // Signed whatever the platform's char, so that -1 meets the absent
    // channels' -1 before the sign test.
    int8_t p = static_cast<int8_t>(position);
    if (red == p)
        return 'r';
    if (green == p)
        return 'g';
    if (blue == p)
        return 'b';
    if (alpha == p)
        return 'a';
    if (lum == p)
        return 'l';
    if (p < 0)
        return 0;
    return p < nc ? 'x' : 0;
}

uint32_t Format::mask(int8_t index) const {
    unsigned int bits = getChannelBytes() * 8;
    uint32_t run = bits >= 32 ? 0xFFFFFFFFu : (1u << bits) - 1;
    if (index < 0)
        return 0;
    unsigned int shift = static_cast<unsigned int>(index) * bits;
    return shift >= 32 ? 0 : run << shift;
}

bool Format::operator==(const Format& f) const {
    return nc == f.nc && datatype == f.datatype && lum == f.lum && red == f.red &&
           green == f.green && blue == f.blue && alpha == f.alpha && flags == f.flags;
}

dstring Format::getChannelOrder() const {
    Array<Channel> channels;
    const struct {
        char letter;
        int8_t position;
    } named[] = {{'L', lum}, {'R', red}, {'G', green}, {'B', blue}, {'A', alpha}};
    for (const auto& n : named) {
        if (n.position >= 0) {
            Channel c;
            c.letter = n.letter;
            c.position = n.position;
            channels.append(c);
        }
    }
    if (channels.getCount() == 0)
        return dstring();
    std::qsort(channels.begin(), channels.getCount(), sizeof(Channel), Array<Channel>::less_than);
    std::string order;
    for (const Channel& c : channels)
        order += c.letter;
    return dstring(order);
}

unsigned char* Format::getPixel(const Color& c) const {
    unsigned int size = nc * getChannelBytes();
    if (datatype != UB1)
        throw IllegalArgumentException("only UB1 supported yet");
    unsigned char* pixel = new unsigned char[size]();
    auto put = [&](int8_t position, unsigned char value) {
        if (position >= 0 && position < nc)
            pixel[position] = value;
    };
    put(lum, c.lightness());
    put(red, c.red);
    put(green, c.green);
    put(blue, c.blue);
    put(alpha, c.alpha);
    return pixel;
}

dstring Format::str() const {
    return dstring::format("Format(%s, %s, %s)", getChannelOrder().c_str(),
                           datatypeString(datatype).c_str(), isPremult() ? "true" : "false");
}

dstring Format::datatypeDescription(int datatype) {
    return datatypeString(datatype);
}

unsigned int Format::glGetFormat() const {
    dstring order = getChannelOrder();
    for (const GlFormat& g : glFormats) {
        if (std::strcmp(order.c_str(), g.order) == 0)
            return g.format;
    }
    throw "GL format representation not available";
}

unsigned int Format::glGetType() const {
    if (!knownDatatype(datatype))
        throw "GL type representation not available";
    return glTypes[datatype];
}

Format Format::mono(int datatype) {
    return Format("L", datatype, true);
}

const Format& Format::getRGBA() {
    static const Format f("rgba", UB1, false);
    return f;
}

const Format& Format::getrgba() {
    static const Format f("rgba", UB1, true);
    return f;
}

const Format& Format::getRGB() {
    static const Format f("rgb", UB1, false);
    return f;
}

const Format& Format::getBGRA() {
    static const Format f("bgra", UB1, false);
    return f;
}

const Format& Format::getbgra() {
    static const Format f("bgra", UB1, true);
    return f;
}

const Format& Format::getBGR() {
    static const Format f("bgr", UB1, false);
    return f;
}

const Format& Format::getLA() {
    static const Format f("la", UB1, false);
    return f;
}

const Format& Format::getla() {
    static const Format f("la", UB1, true);
    return f;
}

const Format& Format::getL() {
    static const Format f("l", UB1, false);
    return f;
}

const Format& Format::getA() {
    static const Format f("a", UB1, false);
    return f;
}

std::ostream& operator<<(std::ostream& os, const Format& f) {
    return os << f.str();
}

} // namespace Orvane
