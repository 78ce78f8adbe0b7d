#include "track/Sequence/TrTestSequence.h"

#include "base/Exception.h"
#include "image/Format.h"
#include "image/ImageRows.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double degrees = 0.017453292519943295;

// One axis of the saddle: the coordinate scaled by 128 about mid-grey,
// truncated and limited to 40..215.
int _ramp(double t) {
    return static_cast<int>(std::clamp(std::trunc(t * 128 + 128), 40.0, 215.0));
}

} // namespace

void TrTestSequence::setWidth(int w) {
    if (w < 0)
        throw IllegalArgumentException("TrTestSequence: negative width");
    width = w;
}

void TrTestSequence::setHeight(int h) {
    if (h < 0)
        throw IllegalArgumentException("TrTestSequence: negative height");
    height = h;
}

int TrTestSequence::getFirstFrame() {
    return TrSequence::getFirstFrame();
}

int TrTestSequence::getLastFrame() {
    return 30;
}

Orvane::GenRect<int> TrTestSequence::getBounds(float) {
    return Orvane::GenRect<int>(0, 0, width, height);
}

Orvane::Image TrTestSequence::getFrame(float t) {
    const int n = static_cast<int>(std::roundf(t));
    const int first = getFirstFrame();

    double cx = width * 0.5;
    double cy = height * 0.5;
    for (int i = 0; i < n - first; ++i) {
        const double phi = i * dth * degrees;
        cx += std::cos(phi) * dx - std::sin(phi) * dy;
        cy += std::cos(phi) * dy + std::sin(phi) * dx;
    }
    const double theta = (first - n) * da * degrees;
    const double s = std::sin(theta);
    const double c = std::cos(theta);

    const Orvane::Format& format = Orvane::Format::getRGB();
    Orvane::Image image(Orvane::GenRect<int>(0, 0, width, height), format);
    if (width == 0 || height == 0)
        return image;

    const int pixelBytes = static_cast<int>(format.getBytesPerPixel());
    const int red = format.getChannel('r');
    const int green = format.getChannel('g');
    const int blue = format.getChannel('b');
    const Orvane::ImageRows<unsigned char> rows(image);
    for (int y = 0; y < height; ++y) {
        const double v = y + 0.5 - cy;
        unsigned char* p = rows.row(y);
        for (int x = 0; x < width; ++x, p += pixelBytes) {
            const double u = x + 0.5 - cx;
            const int a = _ramp(u * s + v * c);
            const int b = _ramp(c * u - s * v);
            p[red] =
                static_cast<unsigned char>(std::max(std::min(255 - b, a), std::min(b, 255 - a)));
            p[green] = 0;
            p[blue] = 0;
        }
    }
    return image;
}
