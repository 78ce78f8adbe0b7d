#include "tools/track/TrOverlay.h"

#include "base/Exception.h"
#include "image/Convert.h"
#include "image/Format.h"
#include "krovel/KrGenMatrix.h"
#include "track/Sequence/TrSequence.h"

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>

#include <cmath>
#include <filesystem>
#include <system_error>
#include <vector>

namespace {

const float kKeyed[3] = {0.2f, 1.0f, 0.2f};
const float kPredicted[3] = {1.0f, 0.6f, 0.0f};
const float kLost[3] = {1.0f, 0.15f, 0.15f};
const float kSearch[3] = {0.3f, 0.6f, 1.0f};
const int kFontSize = 14;
// OpenImageIO's own default first, then fonts common on Linux systems.
const char* const kFonts[] = {"", "DejaVuSans", "LiberationSans-Regular", "FreeSans"};

// Continuous coordinates (pixel centres at +0.5) to the pixel holding them,
// relative to the frame's corner.
int px(double v, int origin) {
    return int(std::floor(v)) - origin;
}

struct Canvas {
    OIIO::ImageBuf& buf;
    Orvane::GenRect<int> bounds;

    void line(double x0, double y0, double x1, double y1, const float* c) {
        OIIO::ImageBufAlgo::render_line(buf, px(x0, bounds.x), px(y0, bounds.y), px(x1, bounds.x),
                                        px(y1, bounds.y), OIIO::cspan<float>(c, 3), true, {}, 1);
    }
    void box(double x0, double y0, double x1, double y1, const float* c) {
        OIIO::ImageBufAlgo::render_box(buf, px(x0, bounds.x), px(y0, bounds.y), px(x1, bounds.x),
                                       px(y1, bounds.y), OIIO::cspan<float>(c, 3), false, {}, 1);
    }
};

// The track's path so far.
void drawPath(Canvas& canvas, const TrTrackResult& r) {
    const std::vector<TrSample>& s = r.samples;
    for (size_t k = 1; k < s.size(); ++k)
        canvas.line(s[k - 1].x, s[k - 1].y, s[k].x, s[k].y, r.lost ? kLost : kKeyed);
}

// The search area and the pattern as the tracker sees it at the track's last
// frame: turned, scaled and stretched by the frame's transform. Returns the
// colour of the pattern.
const float* drawPattern(Canvas& canvas, const TrTrackResult& r) {
    const TrSample& last = r.samples.back();
    const float* colour = last.keyed ? kKeyed : kPredicted;
    const double sw = r.spec.searchWidth, sh = r.spec.searchHeight;
    canvas.box(last.x - sw / 2, last.y - sh / 2, last.x + sw / 2, last.y + sh / 2, kSearch);
    KrGenMatrix<float> m;
    last.transform.getMatrix(m);
    const double w = r.spec.patternWidth / 2.0, h = r.spec.patternHeight / 2.0;
    const double cx[4] = {-w, w, w, -w}, cy[4] = {-h, -h, h, h};
    double qx[4], qy[4];
    for (int c = 0; c < 4; ++c) {
        qx[c] = last.x + m(0, 0) * cx[c] + m(0, 1) * cy[c];
        qy[c] = last.y + m(1, 0) * cx[c] + m(1, 1) * cy[c];
    }
    for (int c = 0; c < 4; ++c)
        canvas.line(qx[c], qy[c], qx[(c + 1) % 4], qy[(c + 1) % 4], colour);
    return colour;
}

// A small square where a track ended or, in the summary, where it is last.
const float* drawMarker(Canvas& canvas, const TrTrackResult& r) {
    const TrSample& last = r.samples.back();
    const float* colour = r.lost ? kLost : kKeyed;
    canvas.box(last.x - 2, last.y - 2, last.x + 2, last.y + 2, colour);
    return colour;
}

// The track's name above its pattern; false, with the reason in `why`, when
// the font cannot render it.
bool drawLabel(Canvas& canvas, const TrTrackResult& r, const std::string& text, const float* colour,
               const std::string& font, std::string& why) {
    const TrSample& last = r.samples.back();
    const double above = r.spec.patternHeight / 2.0 + 4;
    const bool drawn = OIIO::ImageBufAlgo::render_text(
        canvas.buf, px(last.x - r.spec.patternWidth / 2.0, canvas.bounds.x),
        px(last.y - above, canvas.bounds.y), text, kFontSize, font, OIIO::cspan<float>(colour, 3),
        OIIO::ImageBufAlgo::TextAlignX::Left, OIIO::ImageBufAlgo::TextAlignY::Baseline, 0, {}, 1);
    // Retrieving the error clears it, so the buffer does not report it again
    // when it is destroyed.
    if (!drawn)
        why = canvas.buf.geterror();
    return drawn;
}

} // namespace

TrOverlay::TrOverlay(TrSequence* sequence, const std::string& dir) : sequence(sequence), dir(dir) {
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    if (ec || !std::filesystem::is_directory(dir))
        throw IllegalArgumentException(
            dstring("cannot create the overlay directory \"" + dir + "\"" +
                    (ec ? ": " + ec.message() : std::string(": not a directory"))));
}

std::string TrOverlay::framePath(int frame) const {
    char name[32];
    std::snprintf(name, sizeof name, "overlay.%04d.png", frame);
    return dir + "/" + name;
}

void TrOverlay::toRgb8(const Orvane::Image& img, unsigned char* out) {
    const Orvane::GenRect<int>& b = img.getBounds();
    const Orvane::Format& f = img.getFormat();
    const int nc = f.getNumChannels();
    const int lum = f.getIndex('l');
    int r = f.getIndex('r'), g = f.getIndex('g'), bl = f.getIndex('b');
    if (lum >= 0)
        r = g = bl = lum;
    std::vector<unsigned char> row(size_t(b.w) * size_t(nc));
    for (int y = 0; y < b.h; ++y) {
        const void* src = img.getBuffer(Orvane::GenPoint<int>(b.x, b.y + y));
        Orvane::convertData(src, f.getDatatype(), row.data(), b.w * nc);
        unsigned char* dst = out + size_t(y) * size_t(b.w) * 3;
        for (int x = 0; x < b.w; ++x) {
            const unsigned char* p = row.data() + size_t(x) * size_t(nc);
            dst[3 * x] = r >= 0 ? p[r] : 0;
            dst[3 * x + 1] = g >= 0 ? p[g] : 0;
            dst[3 * x + 2] = bl >= 0 ? p[bl] : 0;
        }
    }
}

void TrOverlay::begin(const std::vector<TrTrackResult>&, int, int) {
    anyFrame = false;
}

void TrOverlay::chooseFont() {
    if (fontChosen)
        return;
    fontChosen = true;
    fontOk = false;
    for (const char* name : kFonts) {
        if (OIIO::ImageBufAlgo::text_size("0", kFontSize, name).defined()) {
            font = name;
            fontOk = true;
            return;
        }
        // A failed probe leaves a message in the global error; it is
        // expected, so it is dropped.
        OIIO::geterror();
    }
    if (notices)
        std::fprintf(notices, "tavrix-track: no font found; overlays are drawn without labels\n");
}

void TrOverlay::render(int frame, const std::vector<TrTrackResult>& tracks, bool summary,
                       const std::string& path) {
    const Orvane::Image img = sequence->getFrame(float(frame));
    const Orvane::GenRect<int> bounds = img.getBounds();
    OIIO::ImageBuf buf(OIIO::ImageSpec(bounds.w, bounds.h, 3, OIIO::TypeDesc::UINT8));
    toRgb8(img, static_cast<unsigned char*>(buf.localpixels()));
    Canvas canvas{buf, bounds};

    for (const TrTrackResult& r : tracks) {
        if (r.samples.empty())
            continue;
        drawPath(canvas, r);
        const bool here = !summary && r.samples.back().frame == frame;
        const float* colour = here ? drawPattern(canvas, r) : drawMarker(canvas, r);
        chooseFont();
        if (!fontOk)
            continue;
        std::string why;
        const std::string text = !here && r.lost ? r.spec.name + " lost" : r.spec.name;
        if (!drawLabel(canvas, r, text, colour, font, why)) {
            fontOk = false;
            if (notices)
                std::fprintf(notices,
                             "tavrix-track: overlay labels left out, no font for them (%s)\n",
                             why.c_str());
        }
    }
    // The fastest deflate level: overlays are for looking at, and at the
    // default level encoding takes twice as long as everything else.
    buf.specmod().attribute("png:compressionLevel", 1);
    if (!buf.write(path))
        throw IllegalArgumentException(dstring("cannot write \"" + path + "\": " + buf.geterror()));
}

void TrOverlay::frame(int frame, const std::vector<TrTrackResult>& tracks) {
    render(frame, tracks, false, framePath(frame));
    anyFrame = true;
    lastFrame = frame;
}

void TrOverlay::finish(const std::vector<TrTrackResult>& tracks, bool, const std::string&) {
    if (anyFrame)
        render(lastFrame, tracks, true, dir + "/path.png");
}
