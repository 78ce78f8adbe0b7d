#include "image/ChannelOps.h"

#include "image/DatatypeSwitch.h"
#include "image/Format.h"

namespace Orvane {

void copyChannel(const Image& src, const Image& dst, int srcPos, int dstPos) {
    switchDatatype(src.getFormat().getDatatype(), "src datatype unknown", [&](auto s) {
        switchDatatype(dst.getFormat().getDatatype(), "dst datatype unknown", [&](auto d) {
            using S = typename decltype(s)::type;
            using D = typename decltype(d)::type;
            _copyChannelSrcDst<S, D>(src, dst, srcPos, dstPos);
        });
    });
}

Image extractChannel(const Image& src, int pos, int datatype) {
    const char letter[2] = {src.getFormat().identifyChannel(static_cast<char>(pos)), 0};
    Image out(src.getBounds(), Format(letter, datatype, true));
    copyChannel(src, out, pos, 0);
    return out;
}

Image extractChannel(const Image& src, int pos) {
    return extractChannel(src, pos, src.getFormat().getDatatype());
}

} // namespace Orvane
