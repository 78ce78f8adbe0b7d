#include "image/Copy.h"

#include "base/Exception.h"
#include "image/Convert.h"
#include "image/Format.h"
#include "image/ImageRows.h"

#include <cstring>

namespace Orvane {

namespace {

// Map entries below 0: write 255, or compute luminance from red, green, blue.
constexpr int kOpaque = -1;
constexpr int kLuminance = -2;

/// For each destination channel, the source channel that feeds it.
struct ChannelMap {
    int entry[256];
    int count = 0;
};

int firstPresent(int a, int b, int c) {
    return a >= 0 ? a : b >= 0 ? b : c;
}

ChannelMap mapChannels(const Format& fs, const Format& fd) {
    ChannelMap map;
    map.count = fd.getNumChannels();
    for (int i = 0; i < map.count; ++i)
        map.entry[i] = kOpaque;

    const int sr = fs.getIndex('r'), sg = fs.getIndex('g'), sb = fs.getIndex('b');
    const int sa = fs.getIndex('a'), sl = fs.getIndex('l');

    // These four are bare strings, outside the Exception family.
    if (fd.getIndex('l') >= 0) {
        int e = sl;
        if (e < 0) {
            if (sr < 0 || sg < 0 || sb < 0)
                throw "lightness channel failed";
            e = kLuminance;
        }
        map.entry[fd.getIndex('l')] = e;
    }
    if (fd.getIndex('r') >= 0) {
        int e = firstPresent(sr, sl, sa);
        if (e < 0)
            throw "red channel failed";
        map.entry[fd.getIndex('r')] = e;
    }
    if (fd.getIndex('g') >= 0) {
        int e = firstPresent(sg, sl, sa);
        if (e < 0)
            throw "green channel failed";
        map.entry[fd.getIndex('g')] = e;
    }
    if (fd.getIndex('b') >= 0) {
        int e = firstPresent(sb, sl, sa);
        if (e < 0)
            throw "blue channel failed";
        map.entry[fd.getIndex('b')] = e;
    }
    if (fd.getIndex('a') >= 0 && sa >= 0)
        map.entry[fd.getIndex('a')] = sa;
    return map;
}

/// Rows of two UB1 views of equal size, walked together.
struct RowWalk {
    ImageRows<const unsigned char> src;
    ImageRows<unsigned char> dst;
    int width;
    int height;
    int srcBytes; // bytes per source pixel
    int dstBytes;

    RowWalk(const Image& s, const Image& d)
        : src(s), dst(d), width(s.getBounds().w), height(s.getBounds().h),
          srcBytes(s.getFormat().getNumChannels()), dstBytes(d.getFormat().getNumChannels()) {}

    template <class PixelOp> void eachPixel(PixelOp op) const {
        for (int y = 0; y < height; ++y) {
            const unsigned char* sp = src.row(y);
            unsigned char* dp = dst.row(y);
            for (int x = 0; x < width; ++x, sp += srcBytes, dp += dstBytes)
                op(sp, dp);
        }
    }
};

// Straight alpha from premultiplied: colour divided by alpha, not clamped, so
// a sample above its alpha wraps in 8 bits.
void unpremultiply(const RowWalk& walk, const ChannelMap& map, int srcAlpha, int dstAlpha) {
    const int n = map.count;
    walk.eachPixel([&](const unsigned char* sp, unsigned char* dp) {
        const unsigned int a = sp[srcAlpha];
        if (a == 0) {
            for (int c = 0; c < n; ++c)
                dp[c] = map.entry[c] < 0 ? 255 : 0;
            return;
        }
        for (int c = 0; c < n; ++c) {
            const int m = map.entry[c];
            if (m < 0)
                dp[c] = 255;
            else if (c == dstAlpha)
                dp[c] = sp[m];
            else
                dp[c] = static_cast<unsigned char>(sp[m] * 255u / a);
        }
    });
}

// Premultiplied from straight alpha, each product divided by 255 with exact
// rounding.
void premultiply(const RowWalk& walk, const ChannelMap& map, int srcAlpha) {
    const int n = map.count;
    walk.eachPixel([&](const unsigned char* sp, unsigned char* dp) {
        const unsigned int a = sp[srcAlpha];
        for (int c = 0; c < n; ++c) {
            const int m = map.entry[c];
            if (m < 0) {
                dp[c] = 255;
            } else if (m == srcAlpha) {
                dp[c] = sp[m];
            } else {
                const unsigned int t = sp[m] * a;
                dp[c] = static_cast<unsigned char>((((t + 128) >> 8) + t + 128) >> 8);
            }
        }
    });
}

void remapStraight(const RowWalk& walk, const ChannelMap& map, const Format& fs) {
    const int n = map.count;
    bool identity = walk.srcBytes == walk.dstBytes;
    bool needsLuminance = false;
    for (int c = 0; c < n; ++c) {
        identity = identity && map.entry[c] == c;
        needsLuminance = needsLuminance || map.entry[c] == kLuminance;
    }

    if (identity) {
        const size_t rowBytes = static_cast<size_t>(walk.width) * walk.dstBytes;
        for (int y = 0; y < walk.height; ++y)
            std::memcpy(walk.dst.row(y), walk.src.row(y), rowBytes);
        return;
    }

    if (n == 1) {
        const int m = map.entry[0];
        if (m == kLuminance)
            throw UnsupportedOperationException("not implemented");
        if (m == kOpaque) {
            for (int y = 0; y < walk.height; ++y)
                std::memset(walk.dst.row(y), 255, static_cast<size_t>(walk.width));
            return;
        }
        walk.eachPixel([m](const unsigned char* sp, unsigned char* dp) { dp[0] = sp[m]; });
        return;
    }

    const int r = fs.getIndex('r'), g = fs.getIndex('g'), b = fs.getIndex('b');
    walk.eachPixel([&](const unsigned char* sp, unsigned char* dp) {
        unsigned char lum = 0;
        if (needsLuminance)
            lum = static_cast<unsigned char>(0.299 * sp[r] + 0.587 * sp[g] + 0.114 * sp[b]);
        for (int c = 0; c < n; ++c) {
            const int m = map.entry[c];
            dp[c] = m >= 0 ? sp[m] : m == kOpaque ? 255 : lum;
        }
    });
}

} // namespace

void copy(const Image& src, const Image& dst, const GenRect<int>& srcRect,
          const GenPoint<int>& dstPos) {
    GenRect<int> region = src.getBounds() & srcRect;
    region &= dst.getBounds() - dstPos;
    if (region.isEmpty())
        return;
    const GenRect<int> dstRegion = region + dstPos;

    Format fs = src.getFormat();
    const Format fd = dst.getFormat();
    Image s = src.clip(region);

    // Same layout: a sample conversion, deliberately without notification.
    if (fs.withDatatype(fd.getDatatype()) == fd) {
        copyImageData(s, dst.clip(dstRegion));
        return;
    }

    if (fs.getDatatype() != fd.getDatatype()) {
        Image converted(region, fs.withDatatype(fd.getDatatype()));
        copyImageData(s, converted);
        s = converted;
        fs = converted.getFormat();
    }
    if (fs.getDatatype() != UB1 || fd.getDatatype() != UB1)
        throw IllegalArgumentException("only ub1 supported yet");

    const ChannelMap map = mapChannels(fs, fd);
    const RowWalk walk(s, dst.clip(dstRegion));
    const int srcAlpha = fs.getIndex('a');
    if (srcAlpha >= 0 && fs.isPremult() && !fd.isPremult())
        unpremultiply(walk, map, srcAlpha, fd.getIndex('a'));
    else if (srcAlpha >= 0 && !fs.isPremult() && fd.isPremult())
        premultiply(walk, map, srcAlpha);
    else
        remapStraight(walk, map, fs);

    dst.changed(dstRegion);
}

void copy(const Image& src, const Image& dst, const GenRect<int>& r) {
    copy(src, dst, r, GenPoint<int>(0, 0));
}

void copy(const Image& src, const Image& dst, const GenPoint<int>& p) {
    copy(src, dst, src.getBounds(), p);
}

void copy(const Image& src, const Image& dst) {
    copy(src, dst, src.getBounds(), GenPoint<int>(0, 0));
}

Image copy(const Image& src) {
    Image out(src.getBounds(), src.getFormat());
    copy(src, out);
    return out;
}

} // namespace Orvane
