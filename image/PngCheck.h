#pragma once

#include <string>

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

} // namespace Orvane
