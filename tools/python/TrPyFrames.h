#pragma once

#include "image/Image.h"

#include <pybind11/numpy.h>

#include <cstddef>
#include <string>

/// Frames between numpy arrays and the library's images.
///
/// A frame is an H×W or H×W×C array of uint8, uint16 or float32 (UB1, UB2,
/// FLOAT), C being 1 ("l"), 3 ("rgb") or 4 ("rgba", straight alpha, as PNG
/// and TIFF files read); any strides. Reading an array is split in two so
/// that the pixels can be copied with the interpreter's lock released: the
/// description needs the lock, the copy does not, and the caller keeps the
/// array alive in between.
namespace TrPyFrames {

/// Where a frame's samples are and how to walk them.
struct View {
    const unsigned char* data = nullptr;
    int height = 0;
    int width = 0;
    int channels = 0;
    /// Bytes between rows, pixels and channels; numpy allows any.
    std::ptrdiff_t rowStride = 0;
    std::ptrdiff_t pixelStride = 0;
    std::ptrdiff_t channelStride = 0;
    int datatype = 0;
};

/// Checks `array` as a frame and describes it; `what` names it in the
/// messages ("frame 3"). Throws IllegalArgumentException naming the dtype,
/// the shape or the channel count that is not accepted. With `twoChannels`
/// an H×W×2 array ("la") is accepted too.
View describe(const pybind11::array& array, const std::string& what, bool twoChannels = false);

/// A new image with bounds (0, 0, width, height) holding a copy of the
/// view's samples. Calls no Python.
Orvane::Image copy(const View& view);

/// The numpy dtype of a datatype code: uint8, uint16, uint32, float32 or
/// float64.
pybind11::dtype dtypeOf(int datatype);

/// Copies `image` into `out`, an H×W×C array of its datatype whose
/// samples lie contiguous in C order. Calls no Python.
void copyInto(const Orvane::Image& image, unsigned char* out);

} // namespace TrPyFrames
