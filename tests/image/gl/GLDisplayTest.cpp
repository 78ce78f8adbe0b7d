#include "image/GLDisplay.h"

#include "support/ExpectThrows.h"
#include "support/PixelProbe.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GL/gl.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

using namespace Orvane;
using testsupport::sampleAt;
using Rect = GenRect<int>;

namespace {

const int fbWidth = 64;
const int fbHeight = 48;
const Color background(12, 34, 56, 255);

// A pbuffer context on Mesa's surfaceless EGL platform: the software
// rasteriser, no display server and no GPU. Without it the tests fail and
// say why, rather than pass without drawing.
class OffscreenContext {
public:
    OffscreenContext() = default;
    OffscreenContext(const OffscreenContext&) = delete;
    OffscreenContext& operator=(const OffscreenContext&) = delete;
    ~OffscreenContext() { release(); }

    /// Empty on success, otherwise the step that failed.
    std::string create(int width, int height) {
        const char* clientExtensions = eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
        if (!clientExtensions || !std::strstr(clientExtensions, "EGL_MESA_platform_surfaceless"))
            return "EGL has no EGL_MESA_platform_surfaceless (is Mesa's libegl-mesa0 there?)";
        display =
            eglGetPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
        if (display == EGL_NO_DISPLAY)
            return failed("eglGetPlatformDisplay");
        if (!eglInitialize(display, nullptr, nullptr)) {
            display = EGL_NO_DISPLAY;
            return failed("eglInitialize (is libgl1-mesa-dri there?)");
        }
        // Exactly eight bits a channel, so that blends round as computed.
        // clang-format off
        const EGLint wanted[] = {
            EGL_SURFACE_TYPE, EGL_PBUFFER_BIT,
            EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT,
            EGL_RED_SIZE, 8, EGL_GREEN_SIZE, 8, EGL_BLUE_SIZE, 8, EGL_ALPHA_SIZE, 8,
            EGL_NONE};
        // clang-format on
        EGLConfig configs[64];
        EGLint count = 0;
        if (!eglChooseConfig(display, wanted, configs, 64, &count))
            return failed("eglChooseConfig");
        EGLConfig config = nullptr;
        for (EGLint i = 0; i < count && !config; ++i) {
            int exact = 0;
            for (EGLint channel : {EGL_RED_SIZE, EGL_GREEN_SIZE, EGL_BLUE_SIZE, EGL_ALPHA_SIZE}) {
                EGLint bits = 0;
                eglGetConfigAttrib(display, configs[i], channel, &bits);
                exact += bits == 8;
            }
            if (exact == 4)
                config = configs[i];
        }
        if (!config)
            return "no RGBA8 pbuffer config for desktop OpenGL";
        const EGLint size[] = {EGL_WIDTH, width, EGL_HEIGHT, height, EGL_NONE};
        surface = eglCreatePbufferSurface(display, config, size);
        if (surface == EGL_NO_SURFACE)
            return failed("eglCreatePbufferSurface");
        if (!eglBindAPI(EGL_OPENGL_API))
            return failed("eglBindAPI(EGL_OPENGL_API)");
        // No version asked for: a compatibility context, with the
        // fixed-function pipeline the helpers draw with.
        context = eglCreateContext(display, config, EGL_NO_CONTEXT, nullptr);
        if (context == EGL_NO_CONTEXT)
            return failed("eglCreateContext");
        if (!eglMakeCurrent(display, surface, surface, context))
            return failed("eglMakeCurrent");
        return "";
    }

private:
    static std::string failed(const char* step) {
        char code[16];
        std::snprintf(code, sizeof code, "0x%04X", static_cast<unsigned>(eglGetError()));
        return std::string(step) + " failed, EGL error " + code;
    }

    void release() {
        if (display == EGL_NO_DISPLAY)
            return;
        eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        if (context != EGL_NO_CONTEXT)
            eglDestroyContext(display, context);
        if (surface != EGL_NO_SURFACE)
            eglDestroySurface(display, surface);
        // No eglTerminate: it unloads Mesa's driver, whose process-lifetime
        // allocations the leak checker would then report as lost.
    }

    EGLDisplay display = EGL_NO_DISPLAY;
    EGLSurface surface = EGL_NO_SURFACE;
    EGLContext context = EGL_NO_CONTEXT;
};

// One unit is one window pixel, with the viewport's own origin, as the
// zoomed glDrawImage assumes.
void pixelProjection(const Rect& vp) {
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glOrtho(vp.x, vp.x + vp.w, vp.y, vp.y + vp.h, -1, 1);
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
}

// Compares every framebuffer pixel, bottom row first as window coordinates
// count, with expected(x, y).
void expectFramebuffer(const std::function<Color(int, int)>& expected) {
    std::vector<Color> pixels(fbWidth * fbHeight);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, fbWidth, fbHeight, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
    int wrong = 0;
    std::ostringstream first;
    for (int y = 0; y < fbHeight; ++y)
        for (int x = 0; x < fbWidth; ++x)
            if (pixels[y * fbWidth + x] != expected(x, y) && wrong++ < 6)
                first << "\n  (" << x << "," << y << ") is " << pixels[y * fbWidth + x]
                      << ", expected " << expected(x, y);
    EXPECT_EQ(0, wrong) << "pixels differ, first ones:" << first.str();
}

// Distinct colours, alpha included, so a swapped channel, row or column shows.
Color patternColor(int i, int j) {
    return Color(static_cast<unsigned char>(40 + 23 * i), static_cast<unsigned char>(30 + 37 * j),
                 static_cast<unsigned char>(200 - 11 * i - 17 * j),
                 static_cast<unsigned char>(250 - 3 * i - 5 * j));
}

Image patternRgba(const Rect& b) {
    Image img(b, Format::getRGBA());
    testsupport::forEachSample(img, [&](int x, int y, int k) {
        const Color c = patternColor(x - b.x, y - b.y);
        sampleAt<unsigned char>(img, x, y, k) = std::array{c.red, c.green, c.blue, c.alpha}[k];
    });
    return img;
}

// Along one axis, where the zoomed glDrawImage puts the image's first
// column: the first one wholly inside the viewport starts on the nearest
// whole pixel, as glDrawPixels rounds raster positions.
double zoomedOrigin(double pos, int edge, double zoom) {
    const double skipped = pos < edge ? std::ceil((edge - pos) / zoom) : 0;
    return std::floor(pos + skipped * zoom + 0.5) - skipped * zoom;
}

class GLDisplay : public testing::Test {
protected:
    void SetUp() override {
        const std::string failure = context.create(fbWidth, fbHeight);
        ASSERT_EQ("", failure) << "cannot create an off-screen OpenGL context; these tests "
                                  "need Mesa's EGL and software renderer";
        Orvane::glViewport(Rect(0, 0, fbWidth, fbHeight));
        pixelProjection(Rect(0, 0, fbWidth, fbHeight));
        glClearColor(background.red / 255.0f, background.green / 255.0f, background.blue / 255.0f,
                     1.0f);
        glClear(GL_COLOR_BUFFER_BIT);
        glDisable(GL_BLEND);
        glUnknown();
    }

    void TearDown() override {
        if (!HasFatalFailure()) {
            EXPECT_EQ(GLenum(GL_NO_ERROR), glGetError());
        }
    }

    // Draws `img` zoomed at `pos` inside viewport `vp` (not at the window's
    // corner, sizes not powers of two) and checks each window pixel against
    // the image pixel whose zoomed square holds its centre; the parts left
    // of and below the viewport are cut.
    void expectZoomed(const Image& img, const GenPoint<double>& pos, double zoom) {
        const Rect vp(8, 6, 41, 37);
        Orvane::glViewport(vp);
        GLint box[4];
        glGetIntegerv(GL_VIEWPORT, box);
        EXPECT_EQ(vp, getViewport());
        EXPECT_EQ(vp, Rect(box[0], box[1], box[2], box[3]));
        pixelProjection(vp);
        glClear(GL_COLOR_BUFFER_BIT);
        Orvane::glDrawImage(img, pos, zoom);
        const double ox = zoomedOrigin(pos.x, vp.x, zoom), oy = zoomedOrigin(pos.y, vp.y, zoom);
        expectFramebuffer([&](int x, int y) {
            const int column = int(std::floor((x + 0.5 - ox) / zoom));
            const int row = int(std::floor((y + 0.5 - oy) / zoom));
            const bool shown = x + 0.5 >= vp.x && y + 0.5 >= vp.y && column >= 0 &&
                               column < img.getBounds().w && row >= 0 && row < img.getBounds().h;
            return shown ? patternColor(column, row) : background;
        });
    }

    OffscreenContext context;
};

} // namespace

TEST_F(GLDisplay, ColorSwitchesBlendingByAlphaAndTrustsItsFlag) {
    // Each colour, then whether blending is on; glDisable behind the
    // helpers' back is not noticed until glUnknown, after which an opaque
    // colour no longer switches it off.
    auto expectBlend = [](const Color& c, bool on) {
        glColor(c);
        EXPECT_EQ(on, glIsEnabled(GL_BLEND) == GL_TRUE) << c;
    };
    expectBlend(Color(10, 20, 30, 128), true);
    expectBlend(Color(1, 2, 3, 254), true);
    expectBlend(Color::getRed(), false);
    expectBlend(Color(0, 0, 0, 0), true);
    glDisable(GL_BLEND);
    expectBlend(Color(0, 0, 0, 100), false);
    glUnknown();
    expectBlend(Color(0, 0, 0, 100), true);
    glUnknown();
    expectBlend(Color::getWhite(), true);
}

TEST_F(GLDisplay, RectanglesCoverThePixelsWhoseCentresLieInsideAndImagesGoUp) {
    // A view, first row at the bottom, its rows further apart than its width.
    glRasterPos2i(20, 30);
    Orvane::glDrawImage(patternRgba(Rect(-3, 2, 9, 6)).clip(Rect(-1, 3, 4, 3)));
    glColor(Color::getCyan());
    glFillRect(Rect(5, 6, 9, 4));
    glColor(Color::getMagenta());
    glFillRect(GenRect<double>(30.25, 20.75, 5.5, 3.0));
    expectFramebuffer([](int x, int y) {
        const double cx = x + 0.5, cy = y + 0.5;
        if (cx > 5 && cx < 14 && cy > 6 && cy < 10)
            return Color::getCyan();
        if (cx > 30.25 && cx < 35.75 && cy > 20.75 && cy < 23.75)
            return Color::getMagenta();
        const int i = x - 20, j = y - 30;
        return i >= 0 && i < 4 && j >= 0 && j < 3 ? patternColor(i + 2, j + 1) : background;
    });
}

TEST_F(GLDisplay, DrawImageRejectsOddStridesAndFormatsWithoutAGLForm) {
    std::vector<unsigned char> bytes(256, 0);
    auto draw = [&](const Format& f, int stride) {
        Orvane::glDrawImage(Image(Rect(0, 0, 3, 2), f, bytes.data(), stride));
    };
    glRasterPos2i(0, 0);
    // Whole pixels but fewer than a row are odd too: GL_UNPACK_ROW_LENGTH cannot say so.
    const std::pair<Format, int> odd[] = {
        {Format::getRGBA(), 3 * 4 + 2}, {Format::mono(UB2), 7}, {Format::getRGBA(), 2 * 4}};
    for (const auto& [format, stride] : odd)
        expectThrows<IllegalArgumentException>(
            [&, format = format, stride = stride] { draw(format, stride); },
            "glDrawImage: odd stride");
    // Padding would shift every pixel after the first.
    for (const char* channels : {"gr", "rgbx"})
        expectThrows<const char*>([&] { draw(Format(channels, UB1, false), 3 * 4); },
                                  "GL format representation not available");
    expectThrows<const char*>([&] { draw(Format("l", 6, false), 3 * 8); },
                              "GL type representation not available");
    expectFramebuffer([](int, int) { return background; });
}

// Zooms such as 2.2 = 11/5 never put a column boundary on a pixel centre,
// where rasterisers may round either way.
TEST_F(GLDisplay, ZoomedDrawShowsOnlyThePartInsideTheViewport) {
    // Two columns and two rows wholly outside; the third of each shows as a
    // strip two pixels wide, and so does their corner.
    expectZoomed(patternRgba(Rect(5, 5, 6, 5)), GenPoint<double>(8 - 4.5, 6 - 5.1), 3.4);
    expectZoomed(patternRgba(Rect(0, 0, 4, 3)), GenPoint<double>(8 - 4.6, 20.3), 3);
    expectZoomed(patternRgba(Rect(0, 0, 4, 3)), GenPoint<double>(20.3, 6 - 0.5), 1.4);
}
