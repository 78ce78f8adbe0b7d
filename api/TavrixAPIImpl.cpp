#include "api/TavrixAPIImpl.h"

#include "base/Exception.h"
#include "image/Format.h"
#include "track/TrFollow.h"
#include "track/TrModes.h"

#include <cmath>
#include <cstring>
#include <new>

using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::Image;

namespace {

int truncated(double v) {
    return static_cast<int>(std::trunc(v));
}

} // namespace

TavrixAPIImpl::TavrixAPIImpl() : TrTrackListShot({true, true, true}), follow(new TrFollow) {
    follow->setShot(this);
}

TavrixAPIImpl::~TavrixAPIImpl() {
    // The driver watches this shot, so it goes first; the tracks go before
    // the node bases they report to.
    follow.reset();
    frameBytes.reset();
    clearTracks();
}

int TavrixAPIImpl::intTime(float time) {
    // Compared in double: the bounds are exact there, and NaN fails both.
    const double t = time;
    if (!(t > -2147483649.0 && t < 2147483648.0))
        throw IllegalArgumentException("time out of range");
    return static_cast<int>(t);
}

int TavrixAPIImpl::frameOf(float time) const {
    return intTime(time);
}

const char* TavrixAPIImpl::behaviorName(int code) {
    // Taken as unsigned, so negative codes are out of range too.
    return static_cast<unsigned>(code) < static_cast<unsigned>(TrModes::behaviorCount)
               ? TrModes::behaviors[code].name
               : nullptr;
}

int TavrixAPIImpl::behaviorCode(const dstring& name) {
    const TrModeName<TrBehavior>* row = TrModes::findBehavior(name.data());
    return row ? static_cast<int>(row->mode) : static_cast<int>(TrBehavior::Stop);
}

// ---------------------------------------------------------------------------
// Track list

TrTrack* TavrixAPIImpl::addNewTrack(double x, double y) {
    return insertTrack(getTrackCount(), x, y);
}

TrTrack* TavrixAPIImpl::insertNewTrack(int index, double x, double y) {
    return insertTrack(index, x, y);
}

void TavrixAPIImpl::deleteTrack(int index) {
    removeTrack(index);
}

void TavrixAPIImpl::deleteAllTracks() {
    clearTracks();
}

// ---------------------------------------------------------------------------
// Frame input

void TavrixAPIImpl::setTrackRange(float start, float length) {
    rangeStart = start;
    rangeLength = length;
}

void TavrixAPIImpl::getTrackRange(float* start, float* length) {
    if (start)
        *start = rangeStart;
    if (length)
        *length = rangeLength;
}

void TavrixAPIImpl::getTrackRange(bool& hasFirst, float& first, bool& hasLast, float& last) {
    // The host gave a length; the driver wants the last frame.
    hasFirst = true;
    first = rangeStart;
    hasLast = true;
    last = rangeStart + rangeLength;
}

void TavrixAPIImpl::setFrameSize(int width, int height) {
    frameWidth = width;
    frameHeight = height;
}

void TavrixAPIImpl::getFrameSize(int* width, int* height) {
    if (width)
        *width = frameWidth;
    if (height)
        *height = frameHeight;
}

void TavrixAPIImpl::setCurrentBuffer(float, unsigned char* pixels, bool) {
    frameBytes.reset();
    frameByteCount = 0;
    const int64_t size = int64_t(frameWidth) * frameHeight * 4;
    if (size < 0)
        throw std::bad_array_new_length();
    if (size > 0 && pixels == nullptr)
        throw NullPointerException("TavrixAPIImpl::setCurrentBuffer: null pixels");
    // A zero-sized frame still leaves a copy, empty.
    frameBytes.reset(new unsigned char[size]);
    if (size > 0)
        std::memcpy(frameBytes.get(), pixels, static_cast<size_t>(size));
    frameByteCount = size;
    copyWidth = frameWidth;
    copyHeight = frameHeight;
}

Image TavrixAPIImpl::getImage(float, const GenRect<int>& rect, bool allowPartial) {
    const int width = frameWidth;
    const int height = frameHeight;
    const double left = -width * 0.5;
    const double right = width + left;
    const double bottom = -height * 0.5;
    const double top = height + bottom;

    // Edges in double, so no rect can overflow the sums.
    const double x = rect.x, y = rect.y, w = rect.w, h = rect.h;
    GenRect<int> cut = rect;
    const bool inside = x > left && x + w < width * 0.5 && y > bottom && y + h < height * 0.5;
    if (!inside) {
        bool keep = false;
        if (allowPartial && x + w >= left && x < right && y + h >= bottom && y < top) {
            if (x < left) {
                cut.x = truncated(left);
                cut.w = truncated(w - (left - x));
            }
            if (y < bottom) {
                cut.y = truncated(bottom);
                cut.h = truncated(h - (bottom - y));
            }
            if (double(cut.x) + cut.w > right)
                cut.w = truncated(right - cut.x);
            if (double(cut.y) + cut.h > top)
                cut.h = truncated(top - cut.y);
            keep = cut.h >= 0.25 * h && cut.w >= 0.25 * w;
        }
        if (!keep)
            cut = GenRect<int>(0, 0, 0, 0);
    }

    Image image(cut, Orvane::Format::getRGBA());
    if (cut.h < 1 || cut.w < 1)
        return image;
    if (!frameBytes)
        throw NullPointerException("TavrixAPIImpl::getImage: no current frame");
    if (copyWidth != width || copyHeight != height)
        throw IllegalArgumentException(
            "TavrixAPIImpl::getImage: frame size changed since setCurrentBuffer");

    // Rows run from the image's last to its first; the first source row is
    // kept inside the buffer, and every row used must lie in the frame.
    const int64_t column = int64_t(cut.x) + width / 2;
    int64_t row = int64_t(cut.y) + (cut.h - 1) + height - height / 2;
    if (row < 0)
        row = 0;
    if (column < 0 || column + cut.w > width || row >= height || row - (cut.h - 1) < 0)
        throw IllegalArgumentException("TavrixAPIImpl::getImage: rect outside the frame");

    const int64_t rowBytes = int64_t(width) * 4;
    for (int j = cut.h - 1; j >= 0; --j, --row) {
        const unsigned char* src = frameBytes.get() + row * rowBytes + column * 4;
        unsigned char* dst;
        image.getBuffer(dst, GenPoint<int>(cut.x, cut.y + j));
        // Alpha, red, green, blue becomes red, green, blue, alpha.
        for (int i = 0; i < cut.w; ++i, src += 4, dst += 4) {
            dst[0] = src[1];
            dst[1] = src[2];
            dst[2] = src[3];
            dst[3] = src[0];
        }
    }
    return image;
}

// ---------------------------------------------------------------------------
// Tracking calls

bool TavrixAPIImpl::begin(float time) {
    follow->begin(intTime(time), 1);
    return true;
}

bool TavrixAPIImpl::track(int track, float time, bool forward) {
    return follow->track(track, intTime(time), forward ? 1 : -1);
}

bool TavrixAPIImpl::end(float time) {
    const int frame = intTime(time);
    frameBytes.reset();
    frameByteCount = 0;
    follow->end(frame);
    return true;
}

// ---------------------------------------------------------------------------
// Shot interface: per-track values the plug-in answers its own way

dstring TavrixAPIImpl::getColorMode(int) {
    // The host has no way to choose a reduction, so its tracks always run on
    // luminance, whatever mode a track stores.
    return "luminance";
}

// ---------------------------------------------------------------------------
// Host forms

namespace {

void writeFlat(const GenRect<double>& r, double* top, double* left, double* width, double* height) {
    if (top)
        *top = r.y + r.h;
    if (left)
        *left = r.x;
    if (width)
        *width = r.w;
    if (height)
        *height = r.h;
}

} // namespace

void TavrixAPIImpl::setPatternRect(int track, float, double top, double left, double width,
                                   double height) {
    // Centred on the track's point: only the size of the host's rect counts.
    // The operations are kept as they are, rounding included.
    const double cx = left + 0.5 * width;
    const double cy = top - 0.5 * height;
    const double x0 = left - cx;
    const double y0 = (top - height) - cy;
    const double x1 = (left + width) - cx;
    const double y1 = top - cy;
    setPatternRect(track, GenRect<double>(x0, y0, x1 - x0, y1 - y0));
}

void TavrixAPIImpl::getPatternRect(int track, float time, double* top, double* left, double* width,
                                   double* height) {
    writeFlat(getPatternRect(track, time), top, left, width, height);
}

void TavrixAPIImpl::setSearchRect(int track, float, double top, double left, double width,
                                  double height) {
    // Unlike the pattern, the search area keeps its place around the point.
    const double bottom = top - height;
    setSearchRect(track, GenRect<double>(left, bottom, (left + width) - left, top - bottom));
}

void TavrixAPIImpl::getSearchRect(int track, float time, double* top, double* left, double* width,
                                  double* height) {
    writeFlat(getSearchRect(track, time), top, left, width, height);
}

void TavrixAPIImpl::getSearchedRect(int track, float time, double* top, double* left, double* width,
                                    double* height) {
    writeFlat(getSearchedRect(track, time), top, left, width, height);
}

int TavrixAPIImpl::getTrackFailureBehavior(int track) {
    return behaviorCode(getFailureBehavior(track));
}

void TavrixAPIImpl::setTrackFailureBehavior(int track, int code) {
    // An unknown code is ignored as a whole, the track index with it.
    if (const char* name = behaviorName(code))
        setFailureBehavior(track, name);
}

void TavrixAPIImpl::getPosition(int track, float time, double* x, double* y) {
    const GenPoint<double> p = getPosition(track, time);
    if (x)
        *x = p.x;
    if (y)
        *y = p.y;
}

void TavrixAPIImpl::setPosition(int track, float time, double x, double y) {
    setPosition(track, time, GenPoint<double>(x, y));
}

void TavrixAPIImpl::getScore(int track, float time, double* score) {
    // Nothing is read for a null score, so not even the index is checked.
    if (score)
        *score = getQuality(track, time);
}

void TavrixAPIImpl::getTranslation(int track, float time, double* x, double* y) {
    const AffineTransform t = getTransform(track, time);
    if (x)
        *x = t.tx;
    if (y)
        *y = t.ty;
}

void TavrixAPIImpl::getRotation(int track, float time, double* rotation) {
    const AffineTransform t = getTransform(track, time);
    if (rotation)
        *rotation = t.ro;
}

void TavrixAPIImpl::getScale(int track, float time, double* scaleX, double* scaleY) {
    // One uniform scale; the pair is the host's signature.
    const AffineTransform t = getTransform(track, time);
    if (scaleX)
        *scaleX = t.sc;
    if (scaleY)
        *scaleY = t.sc;
}

void TavrixAPIImpl::getStretch(int track, float time, double* stretchAxes,
                               double* stretchDiagonals) {
    const AffineTransform t = getTransform(track, time);
    if (stretchAxes)
        *stretchAxes = t.st0;
    if (stretchDiagonals)
        *stretchDiagonals = t.st1;
}

bool TavrixAPIImpl::hasPositionKeyframe(int track, float time) {
    return isPositionKeyed(track, time);
}

bool TavrixAPIImpl::hasQualityKeyframe(int track, float time) {
    return isQualityKeyed(track, time);
}
