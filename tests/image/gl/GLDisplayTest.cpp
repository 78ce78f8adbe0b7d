#include "image/GLDisplay.h"

#include "base/Exception.h"
#include "image/Convert.h"
#include "image/Format.h"
#include "image/Image.h"
#include "support/ExpectThrows.h"
#include "support/PixelProbe.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GL/gl.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

using namespace Orvane;
using testsupport::DatatypeOf;
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
            EGLint r, g, b, a;
            eglGetConfigAttrib(display, configs[i], EGL_RED_SIZE, &r);
            eglGetConfigAttrib(display, configs[i], EGL_GREEN_SIZE, &g);
            eglGetConfigAttrib(display, configs[i], EGL_BLUE_SIZE, &b);
            eglGetConfigAttrib(display, configs[i], EGL_ALPHA_SIZE, &a);
            if (r == 8 && g == 8 && b == 8 && a == 8)
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

// The framebuffer bottom row first, as window coordinates count.
std::vector<Color> readFramebuffer() {
    std::vector<Color> pixels(fbWidth * fbHeight);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, fbWidth, fbHeight, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
    return pixels;
}

// Compares every framebuffer pixel with expected(x, y).
void expectFramebuffer(const std::function<Color(int, int)>& expected) {
    const std::vector<Color> pixels = readFramebuffer();
    int wrong = 0;
    std::ostringstream first;
    for (int y = 0; y < fbHeight; ++y) {
        for (int x = 0; x < fbWidth; ++x) {
            const Color got = pixels[y * fbWidth + x];
            const Color want = expected(x, y);
            if (got != want && wrong++ < 6)
                first << "\n  (" << x << "," << y << ") is " << got << ", expected " << want;
        }
    }
    EXPECT_EQ(0, wrong) << "pixels differ, first ones:" << first.str();
}

// Distinct colours, alpha included, so a swapped channel, row or column shows.
Color patternColor(int i, int j) {
    return Color(static_cast<unsigned char>(40 + 23 * i), static_cast<unsigned char>(30 + 37 * j),
                 static_cast<unsigned char>(200 - 11 * i - 17 * j),
                 static_cast<unsigned char>(250 - 3 * i - 5 * j));
}

Image patternRgba(const Rect& bounds) {
    Image img(bounds, Format::getRGBA());
    for (int j = 0; j < bounds.h; ++j) {
        for (int i = 0; i < bounds.w; ++i) {
            const Color c = patternColor(i, j);
            unsigned char* p;
            img.getBuffer(p, GenPoint<int>(bounds.x + i, bounds.y + j));
            p[0] = c.red;
            p[1] = c.green;
            p[2] = c.blue;
            p[3] = c.alpha;
        }
    }
    return img;
}

// Along one axis, where the zoomed glDrawImage puts the image's first
// column: the first one wholly inside the viewport starts on the nearest
// whole pixel, as glDrawPixels rounds raster positions.
double zoomedOrigin(double pos, int edge, double zoom) {
    const double skipped = pos < edge ? std::ceil((edge - pos) / zoom) : 0;
    return std::floor(pos + skipped * zoom + 0.5) - skipped * zoom;
}

// The image pixel (column, row) whose zoomed square holds the centre of
// window pixel (x, y), for an image starting at `origin` and cut at the left
// and bottom edges of `vp`.
bool zoomedSource(const GenPoint<double>& origin, double zoom, const Rect& vp, int w, int h, int x,
                  int y, int& column, int& row) {
    const double cx = x + 0.5, cy = y + 0.5;
    if (cx < vp.x || cy < vp.y)
        return false;
    column = static_cast<int>(std::floor((cx - origin.x) / zoom));
    row = static_cast<int>(std::floor((cy - origin.y) / zoom));
    return column >= 0 && column < w && row >= 0 && row < h;
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

    // Draws `img` (zoom 1) with its first pixel at window (x, y) and checks
    // that exactly its pixels, read through `source`, arrived.
    void expectDrawnAt(const Image& img, int x, int y,
                       const std::function<Color(int, int)>& source) {
        glRasterPos2i(x, y);
        Orvane::glDrawImage(img);
        const Rect& b = img.getBounds();
        expectFramebuffer([&](int px, int py) {
            const int i = px - x, j = py - y;
            return i >= 0 && i < b.w && j >= 0 && j < b.h ? source(i, j) : background;
        });
    }

    OffscreenContext context;
};

bool blendEnabled() {
    return glIsEnabled(GL_BLEND) == GL_TRUE;
}

} // namespace

// The remembered viewport lives as long as the process, so it is read in a
// fresh one: the threadsafe style starts the binary anew for the child.
TEST(GLDisplayStateDeathTest, ViewportStartsEmpty) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::exit(getViewport() == Rect(0, 0, 0, 0) ? 0 : 1), testing::ExitedWithCode(0),
                "");
}

TEST_F(GLDisplay, ViewportIsSetAndRemembered) {
    const Rect r(7, 5, 50, 37);
    Orvane::glViewport(r);
    EXPECT_EQ(r, getViewport());
    GLint box[4];
    glGetIntegerv(GL_VIEWPORT, box);
    EXPECT_EQ(r, Rect(box[0], box[1], box[2], box[3]));
}

TEST_F(GLDisplay, ScissorLimitsDrawingToItsBox) {
    const Rect box(3, 4, 20, 10);
    Orvane::glScissor(box);
    GLint got[4];
    glGetIntegerv(GL_SCISSOR_BOX, got);
    EXPECT_EQ(box, Rect(got[0], got[1], got[2], got[3]));
    EXPECT_FALSE(glIsEnabled(GL_SCISSOR_TEST)) << "the scissor test is the caller's to enable";
    EXPECT_EQ(Rect(0, 0, fbWidth, fbHeight), getViewport());

    glEnable(GL_SCISSOR_TEST);
    glColor(Color::getYellow());
    glFillRect(Rect(0, 0, fbWidth, fbHeight));
    glDisable(GL_SCISSOR_TEST);
    expectFramebuffer([&](int x, int y) {
        const bool inside = x >= 3 && x < 23 && y >= 4 && y < 14;
        return inside ? Color::getYellow() : background;
    });
}

TEST_F(GLDisplay, ColorSwitchesBlendingByAlpha) {
    GLfloat current[4];
    glColor(Color(10, 20, 30, 128));
    glGetFloatv(GL_CURRENT_COLOR, current);
    EXPECT_FLOAT_EQ(10 / 255.0f, current[0]);
    EXPECT_FLOAT_EQ(30 / 255.0f, current[2]);
    EXPECT_FLOAT_EQ(128 / 255.0f, current[3]);
    EXPECT_TRUE(blendEnabled());
    GLint src = 0, dst = 0;
    glGetIntegerv(GL_BLEND_SRC, &src);
    glGetIntegerv(GL_BLEND_DST, &dst);
    EXPECT_EQ(GL_SRC_ALPHA, src);
    EXPECT_EQ(GL_ONE_MINUS_SRC_ALPHA, dst);

    glColor(Color(1, 2, 3, 254));
    EXPECT_TRUE(blendEnabled());
    glColor(Color::getRed());
    EXPECT_FALSE(blendEnabled());
    glGetFloatv(GL_CURRENT_COLOR, current);
    EXPECT_FLOAT_EQ(1.0f, current[0]);
    EXPECT_FLOAT_EQ(1.0f, current[3]);
    glColor(Color::getGreen());
    EXPECT_FALSE(blendEnabled());
    glColor(Color(0, 0, 0, 0));
    EXPECT_TRUE(blendEnabled());
}

TEST_F(GLDisplay, ColorTrustsItsFlagUntilToldOtherwise) {
    glColor(Color(0, 0, 0, 100));
    ASSERT_TRUE(blendEnabled());

    // Switched off behind the helpers' back: they still think it is on.
    glDisable(GL_BLEND);
    glColor(Color(0, 0, 0, 100));
    EXPECT_FALSE(blendEnabled());

    glUnknown();
    glColor(Color(0, 0, 0, 100));
    EXPECT_TRUE(blendEnabled());

    // After glUnknown an opaque colour no longer switches blending off.
    glUnknown();
    glColor(Color::getWhite());
    EXPECT_TRUE(blendEnabled());
}

TEST_F(GLDisplay, TranslucentFillBlendsWithTheBackground) {
    const Color c(200, 100, 0, 64);
    glColor(c);
    glFillRect(Rect(0, 0, fbWidth, fbHeight));
    const std::vector<Color> pixels = readFramebuffer();
    const double a = c.alpha / 255.0;
    auto blend = [a](int s, int d) { return s * a + d * (1 - a); };
    // One step of 8-bit rounding in the blender.
    for (const Color& got : {pixels.front(), pixels.back()}) {
        EXPECT_NEAR(blend(c.red, background.red), got.red, 1.0);
        EXPECT_NEAR(blend(c.green, background.green), got.green, 1.0);
        EXPECT_NEAR(blend(c.blue, background.blue), got.blue, 1.0);
        EXPECT_NEAR(blend(c.alpha, background.alpha), got.alpha, 1.0);
    }
}

TEST_F(GLDisplay, FillRectCoversThePixelsWhoseCentresLieInside) {
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
        return background;
    });
}

TEST_F(GLDisplay, DrawRectTracesItsFourSides) {
    // Corners on pixel centres make line rasterisation exact: the loop lights
    // the closed ring of pixels from corner to corner.
    glColor(Color::getRed());
    glDrawRect(GenRect<double>(4.5, 3.5, 10, 6));
    glTranslated(0.5, 0.5, 0);
    glColor(Color::getGreen());
    glDrawRect(Rect(30, 20, 7, 12));
    auto ring = [](int x, int y, int x0, int y0, int w, int h) {
        const bool inBox = x >= x0 && x <= x0 + w && y >= y0 && y <= y0 + h;
        return inBox && (x == x0 || x == x0 + w || y == y0 || y == y0 + h);
    };
    expectFramebuffer([&](int x, int y) {
        if (ring(x, y, 4, 3, 10, 6))
            return Color::getRed();
        if (ring(x, y, 30, 20, 7, 12))
            return Color::getGreen();
        return background;
    });
}

TEST_F(GLDisplay, OutlineRectCoversTheEdgePixelsInside) {
    glColor(Color::getBlue());
    glOutlineRect(Rect(3, 4, 7, 5), 3);
    glColor(Color::getWhite());
    glOutlineRect(Rect(20, 10, 2, 2), 0);
    expectFramebuffer([](int x, int y) {
        if (x >= 3 && x < 10 && y >= 4 && y < 9 && (x == 3 || x == 9 || y == 4 || y == 8))
            return Color::getBlue();
        if (x >= 20 && x < 22 && y >= 10 && y < 12)
            return Color::getWhite();
        return background;
    });
}

TEST_F(GLDisplay, VertexPlacesPoints) {
    glColor(Color::getYellow());
    glBegin(GL_POINTS);
    glVertex(GenPoint<double>(3.5, 40.5));
    glVertex(GenPoint<double>(60.5, 1.5));
    glEnd();
    glTranslated(0.5, 0.5, 0);
    glBegin(GL_POINTS);
    glVertex(GenPoint<int>(17, 23));
    glEnd();
    expectFramebuffer([](int x, int y) {
        const bool lit = (x == 3 && y == 40) || (x == 60 && y == 1) || (x == 17 && y == 23);
        return lit ? Color::getYellow() : background;
    });
}

TEST_F(GLDisplay, DrawImageRgbaPutsTheFirstRowAtTheBottom) {
    // Bounds away from the origin: the buffer starts at the first pixel.
    const Image img = patternRgba(Rect(-3, 2, 5, 4));
    expectDrawnAt(img, 10, 6, patternColor);
}

TEST_F(GLDisplay, DrawImageOfAViewSkipsTheParentsOtherPixels) {
    const Image parent = patternRgba(Rect(0, 0, 9, 6));
    const Image view = parent.clip(Rect(2, 1, 4, 3));
    ASSERT_GT(view.getStride(), 4 * 4);
    expectDrawnAt(view, 20, 30, [](int i, int j) { return patternColor(i + 2, j + 1); });
}

TEST_F(GLDisplay, DrawImageRestoresTheCallersUnpackState) {
    glPixelStorei(GL_UNPACK_ALIGNMENT, 8);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
    const Image parent = patternRgba(Rect(0, 0, 5, 5));
    glRasterPos2i(0, 0);
    Orvane::glDrawImage(parent.clip(Rect(1, 1, 3, 3)));
    GLint alignment = 0, rowLength = -1;
    glGetIntegerv(GL_UNPACK_ALIGNMENT, &alignment);
    glGetIntegerv(GL_UNPACK_ROW_LENGTH, &rowLength);
    EXPECT_EQ(8, alignment);
    EXPECT_EQ(0, rowLength);
}

TEST_F(GLDisplay, DrawImageOfNothingDrawsNothing) {
    glRasterPos2i(0, 0);
    Orvane::glDrawImage(Image(Rect(4, 4, 0, 3), Format::getRGBA()));
    Orvane::glDrawImage(Image(Rect(4, 4, 0, 3), Format::getRGBA()), GenPoint<double>(2, 2), 4);
    expectFramebuffer([](int, int) { return background; });
}

TEST_F(GLDisplay, DrawImageRejectsStridesThatAreNotWholeRows) {
    std::vector<unsigned char> bytes(256, 0);
    const Rect bounds(0, 0, 3, 2);
    auto draw = [&](const Format& f, int stride) {
        Orvane::glDrawImage(Image(bounds, f, bytes.data(), stride));
    };
    glRasterPos2i(0, 0);
    expectThrows<IllegalArgumentException>([&] { draw(Format::getRGBA(), 3 * 4 + 2); },
                                           "glDrawImage: odd stride");
    expectThrows<IllegalArgumentException>([&] { draw(Format::mono(FLOAT), 3 * 4 + 2); },
                                           "glDrawImage: odd stride");
    expectThrows<IllegalArgumentException>([&] { draw(Format::mono(UB2), 7); },
                                           "glDrawImage: odd stride");
    // Whole pixels, but fewer than a row: GL_UNPACK_ROW_LENGTH cannot say so.
    expectThrows<IllegalArgumentException>([&] { draw(Format::getRGBA(), 2 * 4); },
                                           "glDrawImage: odd stride");
    expectThrows<IllegalArgumentException>([&] { draw(Format::getRGBA(), -3 * 4); },
                                           "glDrawImage: odd stride");
    expectFramebuffer([](int, int) { return background; });
}

TEST_F(GLDisplay, DrawImageRejectsFormatsWithoutAGLForm) {
    std::vector<unsigned char> bytes(64, 0);
    const Rect bounds(0, 0, 2, 2);
    auto draw = [&](const Format& f) {
        Orvane::glDrawImage(Image(bounds, f, bytes.data(), 2 * 8));
    };
    glRasterPos2i(0, 0);
    expectThrows<const char*>([&] { draw(Format("gr", UB1, false)); },
                              "GL format representation not available");
    // Padding would shift every pixel after the first.
    expectThrows<const char*>([&] { draw(Format("rgbx", UB1, false)); },
                              "GL format representation not available");
    expectThrows<const char*>([&] { draw(Format("l", 6, false)); },
                              "GL type representation not available");
    expectFramebuffer([](int, int) { return background; });
}

// Every datatype, through a view whose rows are longer than it is wide.
template <class T> class GLDisplayDatatypes : public GLDisplay {};
TYPED_TEST_SUITE(GLDisplayDatatypes, testsupport::SampleTypes);

TYPED_TEST(GLDisplayDatatypes, DrawImageShowsLuminanceOfAView) {
    using T = TypeParam;
    const Rect bounds(-2, 3, 7, 5);
    const Image parent(bounds, Format::mono(DatatypeOf<T>::value));
    auto level = [](int i, int j) { return static_cast<unsigned char>(15 + 31 * i + 7 * j); };
    for (int j = 0; j < bounds.h; ++j)
        for (int i = 0; i < bounds.w; ++i)
            sampleAt<T>(parent, bounds.x + i, bounds.y + j, 0) =
                _convertSample<unsigned char, T>(level(i, j));
    const Image view = parent.clip(Rect(0, 4, 4, 3));
    this->expectDrawnAt(view, 11, 9, [&](int i, int j) { return Color(level(i + 2, j + 1), 255); });
}

class GLDisplayZoom : public GLDisplay {
protected:
    // A viewport away from the window's corner with sizes that are not powers
    // of two, so that its edges are not exact in the projection's arithmetic.
    void SetUp() override {
        GLDisplay::SetUp();
        if (HasFatalFailure())
            return;
        Orvane::glViewport(vp);
        pixelProjection(vp);
    }

    void expectZoomed(const Image& img, const GenPoint<double>& pos, double zoom,
                      const std::function<Color(int, int)>& source) {
        Orvane::glDrawImage(img, pos, zoom);
        const Rect& b = img.getBounds();
        const GenPoint<double> origin(zoomedOrigin(pos.x, vp.x, zoom),
                                      zoomedOrigin(pos.y, vp.y, zoom));
        expectFramebuffer([&](int x, int y) {
            int column, row;
            if (zoomedSource(origin, zoom, vp, b.w, b.h, x, y, column, row))
                return source(column, row);
            return background;
        });
    }

    const Rect vp{8, 6, 41, 37};
};

// Zooms such as 2.2 = 11/5 never put a column boundary on a pixel centre,
// where rasterisers may round either way.
TEST_F(GLDisplayZoom, InsideTheViewportMagnifiesEveryPixel) {
    expectZoomed(patternRgba(Rect(0, 0, 5, 4)), GenPoint<double>(12.3, 9.7), 2.2, patternColor);
}

TEST_F(GLDisplayZoom, PartlyLeftAndBelowDrawsOnlyTheVisiblePart) {
    glPixelZoom(1, 1);
    // Two columns and two rows lie wholly outside; the third of each shows
    // as a strip two pixels wide, and so does their corner.
    expectZoomed(patternRgba(Rect(5, 5, 6, 5)), GenPoint<double>(8 - 4.5, 6 - 5.1), 3.4,
                 patternColor);
    GLfloat zoomX = 0, zoomY = 0;
    glGetFloatv(GL_ZOOM_X, &zoomX);
    glGetFloatv(GL_ZOOM_Y, &zoomY);
    EXPECT_EQ(1.0f, zoomX);
    EXPECT_EQ(1.0f, zoomY);
}

TEST_F(GLDisplayZoom, PartlyLeftOnlyOrBelowOnly) {
    const Image img = patternRgba(Rect(0, 0, 4, 3));
    expectZoomed(img, GenPoint<double>(8 - 4.6, 20.3), 3, patternColor);
    glClear(GL_COLOR_BUFFER_BIT);
    expectZoomed(img, GenPoint<double>(20.3, 6 - 0.5), 1.4, patternColor);
}

TEST_F(GLDisplayZoom, DoubleImagePartlyOutside) {
    const Rect bounds(0, 0, 5, 4);
    const Image img(bounds, Format::mono(DOUBLE));
    auto level = [](int i, int j) { return static_cast<unsigned char>(20 + 40 * i + 9 * j); };
    for (int j = 0; j < bounds.h; ++j)
        for (int i = 0; i < bounds.w; ++i)
            sampleAt<double>(img, i, j, 0) = level(i, j) / 255.0;
    expectZoomed(img, GenPoint<double>(8 - 5.5, 6 - 2.2), 2,
                 [&](int i, int j) { return Color(level(i, j), 255); });
}

TEST_F(GLDisplayZoom, WholeColumnsOutsideLeaveNoStrip) {
    // Two columns and one row exactly outside: the rest starts on the edge.
    expectZoomed(patternRgba(Rect(0, 0, 5, 4)), GenPoint<double>(8 - 2 * 3.0, 6 - 3.0), 3.0,
                 patternColor);
}

TEST_F(GLDisplayZoom, OnlyPartOfTheLastColumnShows) {
    // Three columns of 2.2 ending 1.2 right of the edge; of the two rows the
    // first is cut 0.4 below the edge.
    expectZoomed(patternRgba(Rect(0, 0, 3, 2)), GenPoint<double>(8 - 3 * 2.2 + 1.2, 6 - 0.4), 2.2,
                 patternColor);
}

TEST_F(GLDisplayZoom, WhollyOutsideDrawsNothing) {
    const Image img = patternRgba(Rect(0, 0, 3, 2));
    Orvane::glDrawImage(img, GenPoint<double>(8 - 3 * 2.0 - 0.5, 10), 2.0);
    Orvane::glDrawImage(img, GenPoint<double>(10, 6 - 2 * 2.0 - 0.5), 2.0);
    // Past the edge by less than half a pixel: no pixel centre is covered.
    Orvane::glDrawImage(img, GenPoint<double>(8 - 3 * 2.0 + 0.3, 10), 2.0);
    Orvane::glDrawImage(img, GenPoint<double>(-1e12, -1e12), 2.0);
    expectFramebuffer([](int, int) { return background; });
}

TEST_F(GLDisplayZoom, RejectsAZoomThatIsNotPositive) {
    const Image img = patternRgba(Rect(0, 0, 2, 2));
    for (double zoom : {0.0, -2.0, std::nan(""), HUGE_VAL}) {
        expectThrows<IllegalArgumentException>(
            [&] { Orvane::glDrawImage(img, GenPoint<double>(10, 10), zoom); },
            "glDrawImage: zoom not positive");
    }
}
