#include "image/Arithmetic.h"

#include "image/Convert.h"
#include "image/DatatypeSwitch.h"
#include "image/Format.h"

#include <algorithm>
#include <cmath>
#include <type_traits>

namespace Orvane {

namespace {

unsigned char clampByte(float v) {
    return static_cast<unsigned char>(std::min(std::max(0.0f, v), 255.0f));
}

template <class T> Image _display_numeric(const Image& img, int c, double scale) {
    const int snc = img.getFormat().getNumChannels();
    if (c == -1) {
        if (snc != 1)
            throw IllegalArgumentException("snc == 1");
        c = 0;
    } else if (!((c >= 0) && (c < snc))) {
        throw IllegalArgumentException("(c >= 0) && (c < snc)");
    }

    const GenRect<int> bounds = img.getBounds();
    Image out(bounds, Format::getRGB());
    if (bounds.w < 1 || bounds.h < 1)
        return out;
    const ImageRows<const T> in(img);
    const ImageRows<unsigned char> rgb(out);
    for (int y = 0; y < bounds.h; ++y) {
        const T* s = in.row(y) + c;
        unsigned char* o = rgb.row(y);
        for (int x = 0; x < bounds.w; ++x, s += snc, o += 3) {
            const float v = static_cast<float>(*s / scale);
            o[0] = clampByte(-255.0f * v);
            o[1] = clampByte(255.0f * v);
            o[2] = clampByte(255.0f * std::fabs(v) - 255.0f);
        }
    }
    return out;
}

} // namespace

void subtract(const Image& a, const Image& b, Image& out) {
    const Image converted = convert(b, a.getFormat());
    switchDatatype(a.getFormat().getDatatype(), "src datatype unknown", [&](auto s) {
        using T = typename decltype(s)::type;
        _subtract<T>(a, converted, out);
    });
}

Image display_numeric(const Image& img, int channel, double scale) {
    return switchDatatype(
        img.getFormat().getDatatype(), "src datatype unknown", [&](auto s) -> Image {
            using T = typename decltype(s)::type;
            if constexpr (std::is_floating_point<T>::value)
                return _display_numeric<T>(img, channel, scale);
            else
                throw IllegalArgumentException("display_numeric only supports float and double");
        });
}

} // namespace Orvane
