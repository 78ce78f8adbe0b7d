#include "image/GLDisplay.h"

#include "base/Exception.h"
#include "image/Convert.h"
#include "image/Format.h"

#include <GL/gl.h>

#include <cmath>

namespace Orvane {

namespace {

bool blendOn = false;
GenRect<int> viewport;

// Saves and restores server or client attribute groups, also when a draw
// throws half-way.
class AttribGuard {
public:
    AttribGuard(GLbitfield server, GLbitfield client) : server(server), client(client) {
        if (server)
            glPushAttrib(server);
        if (client)
            glPushClientAttrib(client);
    }
    ~AttribGuard() {
        if (client)
            glPopClientAttrib();
        if (server)
            glPopAttrib();
    }
    AttribGuard(const AttribGuard&) = delete;
    AttribGuard& operator=(const AttribGuard&) = delete;

private:
    GLbitfield server;
    GLbitfield client;
};

template <class T> void corners(const GenRect<T>& r) {
    glVertex(GenPoint<T>(r.x, r.y));
    glVertex(GenPoint<T>(r.x + r.w, r.y));
    glVertex(GenPoint<T>(r.x + r.w, r.y + r.h));
    glVertex(GenPoint<T>(r.x, r.y + r.h));
}

// Along one axis of the zoomed draw: the number of columns (rows) that lie
// wholly before the viewport edge, and where the first of the others starts.
// glDrawPixels starts a pixel rectangle on the whole pixel nearest the
// raster position, so the start is rounded here, and the strip that fills
// the gap to the edge meets it exactly on every implementation. False when
// the image ends before the edge.
bool cutAtEdge(double pos, int edge, double zoom, int size, int& skip, double& start) {
    double k = 0;
    if (pos < edge) {
        k = std::ceil((edge - pos) / zoom);
        if (k > size)
            return false;
    }
    skip = static_cast<int>(k);
    start = std::floor(pos + k * zoom + 0.5);
    return skip < size || start > edge;
}

// Draws one part of an image at a raster position with its own zoom.
void drawPart(const Image& img, const GenRect<int>& part, double x, double y, double zoomX,
              double zoomY) {
    glPixelZoom(static_cast<GLfloat>(zoomX), static_cast<GLfloat>(zoomY));
    glRasterPos2d(x, y);
    glDrawImage(img.clip(part));
}

} // namespace

void glUnknown() {
    blendOn = false;
}

void glColor(const Color& c) {
    glColor4ub(c.red, c.green, c.blue, c.alpha);
    if (c.alpha == 255) {
        if (blendOn) {
            glDisable(GL_BLEND);
            blendOn = false;
        }
    } else if (!blendOn) {
        glEnable(GL_BLEND);
        glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
        blendOn = true;
    }
}

void glVertex(const GenPoint<int>& p) {
    glVertex2i(p.x, p.y);
}

void glVertex(const GenPoint<double>& p) {
    glVertex2d(p.x, p.y);
}

// The GL functions of the same names are hidden by these overloads inside
// the namespace, hence the qualified calls.
void glViewport(const GenRect<int>& r) {
    ::glViewport(r.x, r.y, r.w, r.h);
    viewport = r;
}

GenRect<int> getViewport() {
    return viewport;
}

void glScissor(const GenRect<int>& r) {
    ::glScissor(r.x, r.y, r.w, r.h);
}

void glDrawRect(const GenRect<int>& r) {
    glBegin(GL_LINE_LOOP);
    corners(r);
    glEnd();
}

void glDrawRect(const GenRect<double>& r) {
    glBegin(GL_LINE_LOOP);
    corners(r);
    glEnd();
}

void glFillRect(const GenRect<int>& r) {
    glBegin(GL_POLYGON);
    corners(r);
    glEnd();
}

void glFillRect(const GenRect<double>& r) {
    glBegin(GL_POLYGON);
    corners(r);
    glEnd();
}

void glOutlineRect(const GenRect<int>& r, int) {
    const double x = r.x, y = r.y, w = r.w, h = r.h;
    glRectd(x, y, x + 1, y + h);
    glRectd(x + w - 1, y, x + w, y + h);
    glRectd(x + 1, y, x + w - 1, y + 1);
    glRectd(x + 1, y + h - 1, x + w - 1, y + h);
}

void glDrawImage(const Image& image) {
    Image img = image;
    if (img.getFormat().getDatatype() == DOUBLE)
        img = convertToDatatype(img, FLOAT);
    const Format& f = img.getFormat();
    const GLenum format = f.glGetFormat();
    const GLenum type = f.glGetType();
    // glGetFormat names only the lettered channels: "rgbx" would be read as
    // three-sample RGB pixels, sliding every pixel after the first.
    if (f.getChannelOrder().length() != f.getNumChannels())
        throw "GL format representation not available";

    const GenRect<int>& b = img.getBounds();
    const int pixelBytes = static_cast<int>(f.getBytesPerPixel());
    const int stride = img.getStride();
    // GL_UNPACK_ROW_LENGTH counts whole pixels, and 0 stands for the width,
    // so a stride shorter than a row cannot be told to GL either.
    if (stride % pixelBytes != 0 || (b.h > 1 && stride < b.w * pixelBytes))
        throw IllegalArgumentException("glDrawImage: odd stride");
    if (b.isEmpty())
        return;

    AttribGuard unpack(0, GL_CLIENT_PIXEL_STORE_BIT);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, stride / pixelBytes);
    glDrawPixels(b.w, b.h, format, type, img.getBuffer());
}

void glDrawImage(const Image& img, const GenPoint<double>& pos, double zoom) {
    if (!(zoom > 0) || !std::isfinite(zoom))
        throw IllegalArgumentException("glDrawImage: zoom not positive");
    const GenRect<int>& b = img.getBounds();
    if (b.isEmpty())
        return;
    const GenRect<int> vp = viewport;

    int skipX, skipY;
    double x, y;
    if (!cutAtEdge(pos.x, vp.x, zoom, b.w, skipX, x) ||
        !cutAtEdge(pos.y, vp.y, zoom, b.h, skipY, y))
        return;
    // The last skipped column (row) shows as a strip from the edge up to
    // where the rest starts.
    const double edgeX = skipX > 0 ? x - vp.x : 0;
    const double edgeY = skipY > 0 ? y - vp.y : 0;
    const int restW = b.w - skipX, restH = b.h - skipY;
    const int left = b.x + skipX, bottom = b.y + skipY;

    AttribGuard pixelMode(GL_PIXEL_MODE_BIT, 0);
    if (restW > 0 && restH > 0)
        drawPart(img, GenRect<int>(left, bottom, restW, restH), x, y, zoom, zoom);
    if (edgeX > 0 && restH > 0)
        drawPart(img, GenRect<int>(left - 1, bottom, 1, restH), vp.x, y, edgeX, zoom);
    if (edgeY > 0 && restW > 0)
        drawPart(img, GenRect<int>(left, bottom - 1, restW, 1), x, vp.y, zoom, edgeY);
    if (edgeX > 0 && edgeY > 0)
        drawPart(img, GenRect<int>(left - 1, bottom - 1, 1, 1), vp.x, vp.y, edgeX, edgeY);
}

} // namespace Orvane
