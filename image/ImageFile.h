#pragma once

#include "base/dstring.h"
#include "image/Image.h"

namespace Orvane {

/// Reads the image file at `path` (EXR, DPX, TIFF, PNG, JPEG and every other
/// format OpenImageIO reads) into a new image with bounds (0, 0, width,
/// height), top row first. The format follows the file: one channel "l",
/// two "la", three "rgb", four or more "rgba" (channels past the fourth are
/// dropped); 8-bit samples become UB1, 16-bit UB2, 32-bit integers UB4, half
/// and float FLOAT, double DOUBLE. Alpha is read as stored: straight alpha
/// gives a straight format, associated alpha (EXR, associated TIFF) a
/// premultiplied one. Only the first subimage at full resolution is read.
///
/// On success `out` becomes a handle on the new image and the result is
/// true; on failure the result is false and `out` is left untouched.
bool loadFromFile(const dstring& path, Image& out);

/// As above; on failure `error` receives a text naming the file and the
/// reason ("cannot read \"<path>\": <reason>").
bool loadFromFile(const dstring& path, Image& out, dstring& error);

/// As loadFromFile, but throws IllegalArgumentException with the text that
/// names the file and the reason.
Image readImage(const dstring& path);

/// Writes `img` to `path` in the format its extension names: ".png",
/// ".tif"/".tiff", ".exr", ".jpg"/".jpeg". Samples are written as they are,
/// with no conversion: PNG holds UB1 and UB2, JPEG UB1 without alpha, TIFF
/// UB1, UB2, UB4, FLOAT and DOUBLE, EXR FLOAT. The channels must be "l",
/// "la", "rgb" or "rgba" in that order. A straight format is marked as
/// unassociated alpha where the file can say so, so that the stored samples
/// read back unchanged.
///
/// Throws IllegalArgumentException ("cannot write \"<path>\": <reason>")
/// when the format cannot hold the image or the file cannot be written; a
/// failed write may leave a partial file behind.
void saveToFile(const dstring& path, const Image& img);

} // namespace Orvane
