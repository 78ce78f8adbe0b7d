// Built against an installed Tavrix only. It links the static library for
// matrices, image files and disk sequences, and loads the installed plug-in
// as a host does to track a clip of known motion. Prints what failed and
// exits 1, or exits 0.

#include "api/TavrixAPI.h"
#include "image/Format.h"
#include "image/Image.h"
#include "image/ImageFile.h"
#include "krovel/KrGenMatrix.h"
#include "krovel/KrInverse.h"
#include "track/Sequence/TrDiskSequence.h"
#include "track/Sequence/TrFramePattern.h"

#include <dlfcn.h>

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

int failures = 0;

void check(bool ok, const std::string& what) {
    if (!ok) {
        std::fprintf(stderr, "consumer: %s\n", what.c_str());
        ++failures;
    }
}

// LAPACK through the library: A times its inverse is the identity.
void invertsAMatrix() {
    const int n = 5;
    KrGenMatrix<double> a(n, n);
    for (int r = 0; r < n; ++r)
        for (int c = 0; c < n; ++c)
            a(r, c) = r == c ? n + 1.0 : 1.0 / (1 + r + 2 * c);
    const KrGenMatrix<double> inv = inverse(a);
    double worst = 0;
    for (int r = 0; r < n; ++r)
        for (int c = 0; c < n; ++c) {
            double sum = 0;
            for (int k = 0; k < n; ++k)
                sum += a(r, k) * inv(k, c);
            worst = std::fmax(worst, std::fabs(sum - (r == c ? 1.0 : 0.0)));
        }
    // A well-conditioned matrix: a few rounding steps per element.
    check(worst < 16 * n * DBL_EPSILON, "A * inverse(A) is not the identity");
}

// OpenImageIO through the library: frames written under printf names are
// found on disk and read back.
void readsASequence() {
    char buf[] = "/tmp/tavrix-consumer-XXXXXX";
    if (!mkdtemp(buf)) {
        check(false, "no temporary directory");
        return;
    }
    const std::string pattern = std::string(buf) + "/c.%04d.png";
    for (int frame = 9; frame <= 11; ++frame) {
        Orvane::Image img(Orvane::GenRect<int>(0, 0, 4, 3), Orvane::Format::getRGB());
        auto* p = static_cast<unsigned char*>(img.getBuffer());
        for (int i = 0; i < 4 * 3 * 3; ++i)
            p[i] = static_cast<unsigned char>(frame * 10 + i);
        Orvane::saveToFile(dstring(expandFramePattern(pattern, frame)), img);
    }
    TrDiskSequence seq;
    seq.setAllPatternForms(true);
    seq.setFilename(dstring(pattern));
    check(seq.getFirstFrame() == 9 && seq.getLastFrame() == 11, "wrong frame range");
    const Orvane::Image back = seq.getFrame(10);
    const auto* p = static_cast<const unsigned char*>(back.getBuffer());
    check(back.getBounds().w == 4 && p[5] == 105, "frame 10 did not read back");
    std::filesystem::remove_all(buf);
}

// A band-limited texture moved by (dx, dy), as ARGB bytes with the origin at
// the frame's centre.
std::vector<unsigned char> frameAt(int w, int h, double dx, double dy) {
    std::vector<unsigned char> argb;
    for (int row = 0; row < h; ++row)
        for (int col = 0; col < w; ++col) {
            const double x = col - w / 2 - dx, y = row - (h - h / 2) - dy;
            double v = 0.5;
            for (int i = 1; i <= 8; ++i) {
                const double a = 2.4 * i, k = 2 * M_PI / (8 + 1.5 * i);
                v += 0.06 * std::sin(k * (std::cos(a) * x + std::sin(a) * y) + i * i);
            }
            for (double c : {1.0, v, 0.8 * v + 0.1, 1.0 - v})
                argb.push_back(static_cast<unsigned char>(std::lround(255 * c)));
        }
    return argb;
}

// The installed plug-in, loaded with dlopen, follows a known sub-pixel
// motion.
void tracksWithThePlugin() {
    void* handle = dlopen(TAVRIX_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        check(false, std::string("cannot load the plug-in: ") + dlerror());
        return;
    }
    auto create = reinterpret_cast<TavrixAPI* (*)()>(dlsym(handle, "createTavrixAPIInstance"));
    auto release =
        reinterpret_cast<void (*)(TavrixAPI*)>(dlsym(handle, "releaseTavrixAPIInstance"));
    TavrixAPI* api = create();
    const int w = 160, h = 120, last = 8;
    const auto motion = [](int f, double& x, double& y) {
        x = 0.43 * f + 0.3 * std::sin(0.9 * f);
        y = -0.31 * f + 0.2 * std::cos(0.7 * f);
    };
    api->addNewTrack(-20, 10);
    api->setPatternRect(0, 0, 10.5, -10.5, 21, 21);
    api->setSearchRect(0, 0, 16, -16, 32, 32);
    api->setFrameSize(w, h);
    double x0 = 0, y0 = 0;
    motion(0, x0, y0);
    double worst = 0;
    std::vector<unsigned char> pixels;
    for (int f = 0; f <= last; ++f) {
        double dx = 0, dy = 0;
        motion(f, dx, dy);
        pixels = frameAt(w, h, dx, dy);
        api->setCurrentBuffer(float(f), pixels.data(), false);
        if (f == 0)
            api->begin(0);
        check(api->track(0, float(f), true), "the track stopped at frame " + std::to_string(f));
        double x = 0, y = 0;
        api->getPosition(0, float(f), &x, &y);
        worst = std::fmax(worst, std::hypot(x - (-20 + dx - x0), y - (10 + dy - y0)));
    }
    api->end(float(last));
    release(api);
    dlclose(handle);
    std::printf("consumer: largest position error %.4f px over %d frames\n", worst, last);
    check(worst < 0.1, "the plug-in strayed from the known motion");
}

} // namespace

int main() {
    try {
        invertsAMatrix();
        readsASequence();
        tracksWithThePlugin();
    } catch (const std::exception& e) {
        check(false, std::string("threw: ") + e.what());
    }
    return failures == 0 ? 0 : 1;
}
