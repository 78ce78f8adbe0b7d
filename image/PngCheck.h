#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace Orvane {

/// Walks the chunks of the PNG file at `path` before a decoder reads it:
/// libpng writes its own line to standard error for every damage it meets,
/// whatever handler the reader installs, so damage is caught here first.
/// True when the file is not a PNG (no PNG signature) or its chunks are
/// sound: IHDR first and valid, every chunk whole with a matching CRC where
/// the chunk is critical, no unknown critical chunk, a palette before the
/// image data when the colour type needs one, image data, and IEND. False
/// with `reason` ("truncated PNG: …", "damaged PNG: …") otherwise. The
/// compressed stream inside the image data is left to the decoder.
bool checkPngChunks(const std::string& path, std::string& reason);

/// As checkPngChunks, on the `size` bytes of a whole file at `file`.
bool checkPngBytes(const unsigned char* file, size_t size, std::string& reason);

/// Whether `data` starts with the PNG signature.
bool isPng(const unsigned char* data, size_t size);

/// Reads the whole file at `path` into `bytes` when it starts with the PNG
/// signature; false, reading no further than the signature, otherwise.
bool readPngFile(const std::string& path, std::vector<unsigned char>& bytes);

} // namespace Orvane
