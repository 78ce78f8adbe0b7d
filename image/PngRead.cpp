#include "image/PngRead.h"

#include "image/Format.h"
#include "image/GenRect.h"

#include <zlib.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

namespace Orvane {

namespace {

uint32_t bigEndian(const unsigned char* p) {
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | uint32_t(p[3]);
}

// The channel layouts the plain path covers, by PNG colour type; null for a
// palette or an unknown type.
const char* layoutOf(unsigned colorType) {
    switch (colorType) {
    case 0:
        return "l";
    case 2:
        return "rgb";
    case 4:
        return "la";
    case 6:
        return "rgba";
    default:
        return nullptr;
    }
}

// What the chunks say: the header's fields and where the image data lies.
struct Layout {
    int width = 0;
    int height = 0;
    int depth = 0;
    const char* channels = nullptr;
    std::vector<std::pair<const unsigned char*, uint32_t>> data;
};

// Walks the chunks; false for anything but a plain layout. Transparency and
// significant bits change samples by rules the general reader has; those
// files go that way, as do interlaced ones.
bool readLayout(const unsigned char* file, size_t size, Layout& l) {
    static const unsigned char signature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    if (size < 8 + 8 + 13 + 4 || std::memcmp(file, signature, 8) != 0 ||
        bigEndian(file + 8) != 13 || std::memcmp(file + 12, "IHDR", 4) != 0)
        return false;
    const unsigned char* h = file + 16;
    const uint32_t width = bigEndian(h), height = bigEndian(h + 4);
    l.depth = h[8];
    l.channels = layoutOf(h[9]);
    if (!l.channels || (l.depth != 8 && l.depth != 16) || h[10] != 0 || h[11] != 0 || h[12] != 0 ||
        width < 1 || width > 1000000 || height < 1 || height > 1000000)
        return false;
    l.width = int(width);
    l.height = int(height);
    // The image data must come in one run of chunks, as PNG requires.
    bool dataOver = false;
    for (size_t at = 8; size - at >= 12;) {
        const uint32_t length = bigEndian(file + at);
        const unsigned char* type = file + at + 4;
        if (size - at - 12 < length)
            return false;
        const bool isData = std::memcmp(type, "IDAT", 4) == 0;
        if (isData && dataOver)
            return false;
        dataOver = dataOver || (!isData && !l.data.empty());
        if (isData)
            l.data.emplace_back(file + at + 8, length);
        else if (std::memcmp(type, "tRNS", 4) == 0 || std::memcmp(type, "sBIT", 4) == 0)
            return false;
        else if (std::memcmp(type, "IEND", 4) == 0)
            return !l.data.empty();
        at += size_t(length) + 12;
    }
    return false;
}

// The Paeth filter carries each pixel into the next, so a row is one long
// chain; both forms keep the pixel to the left and the one above it in
// registers and choose without branches, which grainy footage would
// mispredict. Ties go to the left, then to the one above, as PNG rules.
#if defined(__SSE2__)
// Bytes gathered and scattered in registers: a copy through memory of three
// or six bytes would stall the chain on every pixel.
template <size_t Bpp> __m128i loadPixel(const unsigned char* p) {
    uint64_t v = 0;
    for (size_t k = 0; k < Bpp; ++k)
        v |= uint64_t(p[k]) << (8 * k);
    return _mm_unpacklo_epi8(_mm_cvtsi64_si128(int64_t(v)), _mm_setzero_si128());
}

template <size_t Bpp> void storePixel(unsigned char* p, __m128i v) {
    const auto bytes = uint64_t(_mm_cvtsi128_si64(_mm_packus_epi16(v, v)));
    for (size_t k = 0; k < Bpp; ++k)
        p[k] = static_cast<unsigned char>(bytes >> (8 * k));
}

__m128i absolute(__m128i v) {
    return _mm_max_epi16(v, _mm_sub_epi16(_mm_setzero_si128(), v));
}

// Where `mask` is set, `ifSet`; elsewhere `ifClear`.
__m128i choose(__m128i mask, __m128i ifSet, __m128i ifClear) {
    return _mm_or_si128(_mm_and_si128(mask, ifSet), _mm_andnot_si128(mask, ifClear));
}

template <size_t Bpp>
void paethRow(const unsigned char* in, const unsigned char* prior, unsigned char* out, size_t n) {
    const __m128i low = _mm_set1_epi16(0xff);
    __m128i a = _mm_setzero_si128(), c = _mm_setzero_si128();
    for (size_t i = 0; i + Bpp <= n; i += Bpp) {
        const __m128i b = loadPixel<Bpp>(prior + i);
        const __m128i bc = _mm_sub_epi16(b, c), ac = _mm_sub_epi16(a, c);
        const __m128i pa = absolute(bc), pb = absolute(ac), pc = absolute(_mm_add_epi16(bc, ac));
        const __m128i notA = _mm_or_si128(_mm_cmpgt_epi16(pa, pb), _mm_cmpgt_epi16(pa, pc));
        const __m128i predicted = choose(notA, choose(_mm_cmpgt_epi16(pb, pc), c, b), a);
        a = _mm_and_si128(_mm_add_epi16(loadPixel<Bpp>(in + i), predicted), low);
        c = b;
        storePixel<Bpp>(out + i, a);
    }
}
#else
template <size_t Bpp>
void paethRow(const unsigned char* in, const unsigned char* prior, unsigned char* out, size_t n) {
    int a[Bpp] = {}, c[Bpp] = {};
    for (size_t i = 0; i + Bpp <= n; i += Bpp)
        for (size_t k = 0; k < Bpp; ++k) {
            const int b = prior[i + k];
            const int pa = std::abs(b - c[k]), pb = std::abs(a[k] - c[k]),
                      pc = std::abs(a[k] + b - 2 * c[k]);
            const int notA = -int(pa > pb || pa > pc), notB = -int(pb > pc);
            const int predicted = (notA & ((notB & c[k]) | (~notB & b))) | (~notA & a[k]);
            a[k] = (in[i + k] + predicted) & 0xff;
            c[k] = b;
            out[i + k] = static_cast<unsigned char>(a[k]);
        }
}
#endif

bool paeth(const unsigned char* in, const unsigned char* prior, unsigned char* out, size_t n,
           size_t bpp) {
    switch (bpp) {
    case 1:
        paethRow<1>(in, prior, out, n);
        return true;
    case 2:
        paethRow<2>(in, prior, out, n);
        return true;
    case 3:
        paethRow<3>(in, prior, out, n);
        return true;
    case 4:
        paethRow<4>(in, prior, out, n);
        return true;
    case 6:
        paethRow<6>(in, prior, out, n);
        return true;
    case 8:
        paethRow<8>(in, prior, out, n);
        return true;
    default:
        return false;
    }
}

// Undoes one row's filter into `out` from the filtered bytes `in` and the
// row above, `prior` (zeros for the first row); `bpp` bytes a pixel.
bool unfilter(unsigned filter, const unsigned char* in, const unsigned char* prior,
              unsigned char* out, size_t n, size_t bpp) {
    switch (filter) {
    case 0:
        std::memcpy(out, in, n);
        return true;
    case 1:
        std::memcpy(out, in, bpp);
        for (size_t i = bpp; i < n; ++i)
            out[i] = static_cast<unsigned char>(in[i] + out[i - bpp]);
        return true;
    case 2:
        for (size_t i = 0; i < n; ++i)
            out[i] = static_cast<unsigned char>(in[i] + prior[i]);
        return true;
    case 3:
        for (size_t i = 0; i < bpp; ++i)
            out[i] = static_cast<unsigned char>(in[i] + (prior[i] >> 1));
        for (size_t i = bpp; i < n; ++i)
            out[i] = static_cast<unsigned char>(in[i] + ((out[i - bpp] + prior[i]) >> 1));
        return true;
    case 4:
        return paeth(in, prior, out, n, bpp);
    default:
        return false;
    }
}

// The compressed stream, fed chunk by chunk, inflated a row at a time.
class Stream {
public:
    explicit Stream(const Layout& l) : chunks(l.data) { ok = inflateInit(&z) == Z_OK; }
    ~Stream() {
        if (ok)
            inflateEnd(&z);
    }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    // Fills `out` with the next `n` bytes; false when the stream is damaged
    // or ends first.
    bool read(unsigned char* out, size_t n) {
        z.next_out = out;
        z.avail_out = uInt(n);
        while (ok && z.avail_out > 0) {
            if (z.avail_in == 0 && !feed())
                return false;
            const int status = inflate(&z, Z_NO_FLUSH);
            if (status == Z_STREAM_END) {
                ended = true;
                return z.avail_out == 0;
            }
            if (status != Z_OK && status != Z_BUF_ERROR)
                return false;
        }
        return ok;
    }

    // Whether the stream ends, its checksum sound, with no data left over.
    bool finish() {
        unsigned char spare;
        while (ok && !ended) {
            if (z.avail_in == 0 && !feed())
                return false;
            z.next_out = &spare;
            z.avail_out = 1;
            const int status = inflate(&z, Z_NO_FLUSH);
            if (z.avail_out == 0 || (status != Z_OK && status != Z_STREAM_END))
                return false;
            ended = status == Z_STREAM_END;
        }
        return ok;
    }

private:
    bool feed() {
        while (next < chunks.size() && chunks[next].second == 0)
            ++next;
        if (next == chunks.size())
            return false;
        z.next_in = const_cast<Bytef*>(chunks[next].first);
        z.avail_in = chunks[next].second;
        ++next;
        return true;
    }

    const std::vector<std::pair<const unsigned char*, uint32_t>>& chunks;
    size_t next = 0;
    z_stream z{};
    bool ok = false;
    bool ended = false;
};

// Inflates and unfilters every row into `img`. Eight-bit rows unfilter in
// place, the row above being the image's; sixteen-bit ones go through two
// rows of PNG's big-endian order and are swapped on the way in.
bool decodeRows(const Layout& l, const Image& img) {
    const size_t bytes = size_t(img.getFormat().getBytesPerPixel());
    const size_t bpp = bytes;
    const size_t n = bytes * size_t(l.width);
    std::vector<unsigned char> filtered(n + 1), zeros(n, 0);
    std::vector<unsigned char> rows[2] = {std::vector<unsigned char>(n, 0),
                                          std::vector<unsigned char>(n)};
    Stream stream(l);
    auto* base = static_cast<unsigned char*>(img.getBuffer());
    const size_t stride = size_t(img.getStride());
    for (int y = 0; y < l.height; ++y) {
        if (!stream.read(filtered.data(), n + 1))
            return false;
        unsigned char* out = base + stride * size_t(y);
        if (l.depth == 8) {
            const unsigned char* prior = y == 0 ? zeros.data() : out - stride;
            if (!unfilter(filtered[0], filtered.data() + 1, prior, out, n, bpp))
                return false;
            continue;
        }
        std::vector<unsigned char>& prior = rows[y % 2 == 0 ? 0 : 1];
        std::vector<unsigned char>& row = rows[y % 2 == 0 ? 1 : 0];
        if (!unfilter(filtered[0], filtered.data() + 1, y == 0 ? zeros.data() : prior.data(),
                      row.data(), n, bpp))
            return false;
        for (size_t i = 0; i < n; i += 2) {
            const auto v = static_cast<uint16_t>(row[i] << 8 | row[i + 1]);
            std::memcpy(out + i, &v, 2);
        }
    }
    return stream.finish();
}

} // namespace

bool decodePlainPng(const unsigned char* file, size_t size, Image& out) {
    Layout l;
    if (!readLayout(file, size, l))
        return false;
    Image img;
    try {
        img = Image(GenRect<int>(0, 0, l.width, l.height),
                    Format(l.channels, l.depth == 8 ? UB1 : UB2, false));
        if (!decodeRows(l, img))
            return false;
    } catch (const std::bad_alloc&) {
        return false;
    }
    out = img;
    return true;
}

} // namespace Orvane
