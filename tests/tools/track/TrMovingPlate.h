#pragma once

// Shared by the tests of the threaded pieces of tavrix-track: a textured
// plate that moves by a known sub-pixel step each frame, in memory or as
// numbered PNG files in a temporary folder.

#include "image/Format.h"
#include "image/GenRect.h"
#include "image/Image.h"
#include "image/ImageFile.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace movingplate {

struct TempDir {
    TempDir() {
        char buf[] = "/tmp/tavrix-threads-test-XXXXXX";
        path = mkdtemp(buf) ? buf : "";
    }
    ~TempDir() {
        if (!path.empty())
            std::filesystem::remove_all(path);
    }
    std::string operator/(const std::string& name) const { return path + "/" + name; }
    std::string path;
};

/// The whole text of a file, empty when it cannot be read.
inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

/// "plate.0007.png" for frame 7.
inline std::string frameName(int n) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "plate.%04d.png", n);
    return buf;
}

/// How far the content has moved at frame n from frame 1.
inline double shiftX(int n) {
    return 1.3 * (n - 1);
}
inline double shiftY(int n) {
    return -0.6 * (n - 1);
}

/// Sinusoids of 9.5 to 20 pixels, a different mix per channel, so that
/// every colour mode sees texture.
inline double texture(double x, double y, int channel) {
    double v = 0.5;
    for (int i = 1; i <= 8; ++i) {
        const double a = 2.4 * i + 0.7 * channel, k = 2 * M_PI / (8 + 1.5 * i);
        v += 0.055 * std::sin(k * (std::cos(a) * x + std::sin(a) * y) + i * i + channel);
    }
    return v;
}

/// Frame n of the plate: 8-bit RGB, bounds (0, 0, w, h).
inline Orvane::Image plateFrame(int w, int h, int n) {
    Orvane::Image img(Orvane::GenRect<int>(0, 0, w, h), Orvane::Format::getRGB());
    for (int y = 0; y < h; ++y) {
        unsigned char* row;
        img.getBuffer(row, Orvane::GenPoint<int>(0, y));
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < 3; ++c)
                row[3 * x + c] = static_cast<unsigned char>(
                    std::lround(255 * texture(x + 0.5 - shiftX(n), y + 0.5 - shiftY(n), c)));
    }
    return img;
}

/// Frames first..last of the plate as dir/plate.NNNN.png.
inline void writePlate(const TempDir& dir, int w, int h, int first, int last) {
    for (int n = first; n <= last; ++n)
        Orvane::saveToFile(dstring(dir / frameName(n)), plateFrame(w, h, n));
}

} // namespace movingplate
