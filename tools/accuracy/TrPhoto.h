#pragma once

#include "base/dstring.h"
#include "image/Image.h"

#include <vector>

/// A photograph held as interleaved red, green and blue floats in 0..1,
/// sampled anywhere with a bicubic (Catmull-Rom) kernel. The tracker
/// resamples bilinearly, so frames rendered from this share none of its
/// interpolation error. Pixel (i, j) has its centre at (i + 0.5, j + 0.5);
/// samples past the edge repeat the edge.
class TrPhoto {
public:
    /// An 8-bit image with red, green and blue channels, or luminance alone
    /// (copied to all three). Any other throws IllegalArgumentException
    /// "TrPhoto: 8-bit rgb or l images only".
    explicit TrPhoto(const Orvane::Image& image);
    /// Reads the file through the image library; a file that cannot be read
    /// throws IllegalArgumentException naming it.
    static TrPhoto read(const dstring& path);

    int getWidth() const { return width; }
    int getHeight() const { return height; }
    /// The colour at (u, v) into rgb[0..2].
    void sample(double u, double v, float* rgb) const;
    /// The stored colour of pixel (i, j), clamped to the photograph.
    const float* pixel(int i, int j) const;

private:
    int width = 0;
    int height = 0;
    std::vector<float> samples;
};
