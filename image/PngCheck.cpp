#include "image/PngCheck.h"

#include <zlib.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

namespace Orvane {

namespace {

const unsigned char kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
// libpng's own limits on a side and on a chunk's length.
const uint32_t kMaxSide = 1000000;
const uint32_t kMaxLength = 0x7fffffff;

uint32_t bigEndian(const unsigned char* p) {
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | uint32_t(p[3]);
}

bool isLetter(unsigned char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// Whether PNG allows `depth` bits a sample for `colorType`.
bool validDepth(unsigned colorType, unsigned depth) {
    const unsigned masks[7] = {1u << 1 | 1u << 2 | 1u << 4 | 1u << 8 | 1u << 16,
                               0,
                               1u << 8 | 1u << 16,
                               1u << 1 | 1u << 2 | 1u << 4 | 1u << 8,
                               1u << 8 | 1u << 16,
                               0,
                               1u << 8 | 1u << 16};
    return colorType < 7 && depth <= 16 && (masks[colorType] >> depth & 1u) != 0;
}

bool validHeader(const unsigned char* data, uint32_t length) {
    if (length != 13)
        return false;
    const uint32_t width = bigEndian(data), height = bigEndian(data + 4);
    return width >= 1 && width <= kMaxSide && height >= 1 && height <= kMaxSide &&
           validDepth(data[9], data[8]) && data[10] == 0 && data[11] == 0 && data[12] <= 1;
}

// What the walk has met so far.
struct Walk {
    unsigned colorType = 0;
    bool palette = false;
    bool imageData = false;
};

// Judges one whole chunk; false with the reason when it is damaged.
bool judgeChunk(const unsigned char* chunk, uint32_t length, bool first, Walk& walk,
                std::string& reason) {
    const std::string type(reinterpret_cast<const char*>(chunk + 4), 4);
    const unsigned char* data = chunk + 8;
    const bool critical = chunk[4] >= 'A' && chunk[4] <= 'Z';
    if (critical &&
        bigEndian(data + length) != uint32_t(crc32(0, chunk + 4, static_cast<uInt>(length + 4)))) {
        reason = "damaged PNG: CRC error in chunk " + type;
        return false;
    }
    if (first != (type == "IHDR") || (first && !validHeader(data, length))) {
        reason = "damaged PNG: no valid IHDR chunk first";
        return false;
    }
    if (first)
        walk.colorType = data[9];
    else if (type == "PLTE")
        walk.palette = length % 3 == 0 && length <= 768;
    else if (type == "IDAT") {
        if (walk.colorType == 3 && !walk.palette) {
            reason = "damaged PNG: no valid palette before the image data";
            return false;
        }
        walk.imageData = true;
    } else if (critical && type != "IEND") {
        reason = "damaged PNG: unknown critical chunk \"" + type + "\"";
        return false;
    }
    return true;
}

} // namespace

bool checkPngChunks(const std::string& path, std::string& reason) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return true; // the decoder names the reason
    const std::vector<unsigned char> file((std::istreambuf_iterator<char>(in)),
                                          std::istreambuf_iterator<char>());
    if (file.size() < sizeof kSignature ||
        std::memcmp(file.data(), kSignature, sizeof kSignature) != 0)
        return true;
    Walk walk;
    size_t at = sizeof kSignature;
    for (bool first = true;; first = false) {
        if (file.size() - at < 8) {
            reason = "truncated PNG: the file ends before its IEND chunk";
            return false;
        }
        const unsigned char* chunk = file.data() + at;
        const uint32_t length = bigEndian(chunk);
        if (length > kMaxLength || !isLetter(chunk[4]) || !isLetter(chunk[5]) ||
            !isLetter(chunk[6]) || !isLetter(chunk[7])) {
            reason = "damaged PNG: invalid chunk at byte " + std::to_string(at);
            return false;
        }
        const std::string type(reinterpret_cast<const char*>(chunk + 4), 4);
        if (file.size() - at - 8 < size_t(length) + 4) {
            reason = "truncated PNG: the file ends inside chunk " + type;
            return false;
        }
        if (!judgeChunk(chunk, length, first, walk, reason))
            return false;
        if (type == "IEND")
            break;
        at += size_t(length) + 12;
    }
    if (!walk.imageData) {
        reason = "damaged PNG: no image data";
        return false;
    }
    return true;
}

} // namespace Orvane
