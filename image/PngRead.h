#pragma once

#include "image/Image.h"

#include <cstddef>

namespace Orvane {

/// Decodes a plain PNG held whole in memory (`size` bytes at `file`) straight
/// into a new image, as loadFromFile would read it: 8 or 16 bits a sample,
/// grey, grey and alpha, RGB or RGBA, not interlaced, no transparency chunk
/// and no significant-bits chunk. Alpha stays straight; 16-bit samples come
/// out in the machine's byte order.
///
/// False, with `out` untouched, for every other PNG and for any fault the
/// decoder meets: the caller then reads the file the general way, which
/// handles the rare layouts and names the fault. Prints nothing.
bool decodePlainPng(const unsigned char* file, size_t size, Image& out);

} // namespace Orvane
