#pragma once

#include "image/Color.h"
#include "image/GenRect.h"
#include "image/Image.h"

/// Debug drawing of image-library values with fixed-function OpenGL.
///
/// Every helper needs a current compatibility-profile context and draws with
/// whatever modelview and projection the caller has set. The zoomed
/// glDrawImage assumes a projection in which one unit is one window pixel
/// (glOrtho over the viewport's own rectangle), so that positions compare
/// with the viewport.
///
/// Two pieces of state live here, shared by all callers in the process: whether
/// these helpers have switched GL_BLEND on, and the last viewport set through
/// glViewport. Neither is read back from OpenGL.
namespace Orvane {

/// Forgets that these helpers switched blending on. Call it after changing
/// GL_BLEND or the blend function behind their back; the next translucent
/// glColor then switches blending on again.
void glUnknown();

/// Sets the current colour. A translucent colour (alpha below 255) switches
/// on blending with GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA unless these helpers
/// already did; an opaque one switches it off again if they did.
void glColor(const Color& c);

/// glVertex2i, between glBegin and glEnd.
void glVertex(const GenPoint<int>& p);
/// glVertex2d, between glBegin and glEnd.
void glVertex(const GenPoint<double>& p);

/// Sets the GL viewport to r and remembers r for getViewport() and the
/// zoomed glDrawImage.
void glViewport(const GenRect<int>& r);
/// The viewport last set through glViewport; (0, 0, 0, 0) before the first.
GenRect<int> getViewport();

/// Sets the scissor box to r (GL_SCISSOR_TEST is left as it is).
void glScissor(const GenRect<int>& r);

/// A line loop through the four corners (x, y), (x + w, y), (x + w, y + h),
/// (x, y + h).
void glDrawRect(const GenRect<int>& r);
void glDrawRect(const GenRect<double>& r);

/// A filled polygon through the same four corners.
void glFillRect(const GenRect<int>& r);
void glFillRect(const GenRect<double>& r);

/// The one-pixel border just inside r, drawn as four filled strips, so that
/// it covers exactly the edge pixels of r whatever the line rasterisation.
/// The integer argument is ignored.
void glOutlineRect(const GenRect<int>& r, int width);

/// Draws the pixels at the current raster position with the current pixel
/// zoom, row bounds.y at the bottom. DOUBLE samples are drawn through a FLOAT
/// copy. The format must have a GL representation (Format::glGetFormat and
/// glGetType throw their bare strings, and so does a format with padding
/// channels, whose pixels GL would misread), and the stride must be a whole
/// number of pixels, no shorter than a row when there is more than one row
/// (IllegalArgumentException "glDrawImage: odd stride"). The caller's pixel
/// unpack state is restored afterwards.
void glDrawImage(const Image& img);

/// Draws the image with its lower-left corner at pos, every pixel magnified
/// to zoom × zoom window pixels. glDrawPixels draws nothing from a raster
/// position outside the viewport, so the columns and rows wholly left of and
/// below the viewport (see getViewport) are cut off here, and the partly
/// visible first column and row are stretched from the viewport edge to the
/// rest. As glDrawPixels itself does, the rest starts on the whole window
/// pixel nearest to where it falls; the image may thus sit up to half a pixel
/// from pos, never with a gap or an overlap at the edge. The pixel zoom is
/// restored afterwards. IllegalArgumentException "glDrawImage: zoom not
/// positive" for a zoom that is not a positive finite number.
void glDrawImage(const Image& img, const GenPoint<double>& pos, double zoom);

} // namespace Orvane
