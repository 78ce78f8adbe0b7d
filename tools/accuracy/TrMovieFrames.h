#pragma once

#include "image/Image.h"

#include <string>
#include <vector>

/// Frames `first` to `first + count - 1` (counted from 0) of a movie that
/// OpenImageIO opens through its FFmpeg plug-in, where each frame is a
/// subimage, as 8-bit rgb images with bounds (0, 0, width, height). A movie
/// that cannot be opened, has fewer frames or is not three-channel throws
/// IllegalArgumentException "cannot read movie \"<path>\": <reason>".
std::vector<Orvane::Image> readMovieFrames(const std::string& path, int first, int count);
