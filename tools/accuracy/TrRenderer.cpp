#include "tools/accuracy/TrRenderer.h"

#include "base/Exception.h"
#include "image/Format.h"
#include "image/ImageRows.h"

#include <algorithm>
#include <cmath>

using Orvane::GenPoint;

GenPoint<double> TrWarp::toFrame(const GenPoint<double>& q, int width, int height) const {
    const double c = std::cos(angle) * zoom;
    const double s = std::sin(angle) * zoom;
    const double dx = q.x - x;
    const double dy = q.y - y;
    return GenPoint<double>(width * 0.5 + c * dx - s * dy, height * 0.5 + s * dx + c * dy);
}

GenPoint<double> TrWarp::toPhoto(const GenPoint<double>& p, int width, int height) const {
    const double c = std::cos(angle) / zoom;
    const double s = std::sin(angle) / zoom;
    const double dx = p.x - width * 0.5;
    const double dy = p.y - height * 0.5;
    return GenPoint<double>(x + c * dx + s * dy, y - s * dx + c * dy);
}

TrRenderer::TrRenderer(const TrPhoto& photo, int width, int height, int supersample)
    : photo(photo), width(width), height(height), supersample(supersample) {
    if (width < 1 || height < 1 || supersample < 1)
        throw IllegalArgumentException("TrRenderer: empty frame or supersampling");
}

void TrRenderer::accumulate(const TrWarp& camera, float weight, TrFloatFrame& into) const {
    // The photograph point of frame point (fx, fy) is o + fx * ex + fy * ey:
    // one affine map, stepped rather than recomputed per sample.
    const GenPoint<double> o = camera.toPhoto(GenPoint<double>(0, 0), width, height);
    const GenPoint<double> px = camera.toPhoto(GenPoint<double>(1, 0), width, height);
    const GenPoint<double> py = camera.toPhoto(GenPoint<double>(0, 1), width, height);
    const double exx = px.x - o.x, exy = px.y - o.y;
    const double eyx = py.x - o.x, eyy = py.y - o.y;
    const int n = supersample;
    const float share = weight / float(n * n);
    float rgb[3];
    for (int y = 0; y < height; ++y) {
        float* out = into.at(0, y);
        for (int x = 0; x < width; ++x, out += 3) {
            float sum[3] = {0, 0, 0};
            for (int j = 0; j < n; ++j) {
                const double fy = y + (j + 0.5) / n;
                for (int i = 0; i < n; ++i) {
                    const double fx = x + (i + 0.5) / n;
                    photo.sample(o.x + fx * exx + fy * eyx, o.y + fx * exy + fy * eyy, rgb);
                    sum[0] += rgb[0];
                    sum[1] += rgb[1];
                    sum[2] += rgb[2];
                }
            }
            out[0] += sum[0] * share;
            out[1] += sum[1] * share;
            out[2] += sum[2] * share;
        }
    }
}

TrFloatFrame TrRenderer::render(const TrWarp& camera) const {
    TrFloatFrame frame(width, height);
    accumulate(camera, 1.0f, frame);
    return frame;
}

TrFloatFrame TrRenderer::renderBlurred(const std::vector<TrWarp>& path) const {
    TrFloatFrame frame(width, height);
    for (const TrWarp& camera : path)
        accumulate(camera, 1.0f / float(path.size()), frame);
    return frame;
}

void TrRenderer::paste(TrFloatFrame& frame, const TrFloatFrame& block, int x, int y) {
    const int x0 = std::max(x, 0);
    const int x1 = std::min(x + block.width, frame.width);
    for (int j = std::max(y, 0); j < std::min(y + block.height, frame.height); ++j)
        if (x0 < x1)
            std::copy(block.at(x0 - x, j - y), block.at(x0 - x, j - y) + (x1 - x0) * 3,
                      frame.at(x0, j));
}

TrFloatFrame TrRenderer::cut(const TrPhoto& photo, const Orvane::GenRect<int>& r) {
    TrFloatFrame block(r.w, r.h);
    for (int j = 0; j < r.h; ++j)
        for (int i = 0; i < r.w; ++i)
            std::copy(photo.pixel(r.x + i, r.y + j), photo.pixel(r.x + i, r.y + j) + 3,
                      block.at(i, j));
    return block;
}

Orvane::Image TrRenderer::toImage(const TrFloatFrame& frame, float gain, float offset, float noise,
                                  std::mt19937* rng) {
    const Orvane::Format& format = Orvane::Format::getRGB();
    Orvane::Image image(Orvane::GenRect<int>(0, 0, frame.width, frame.height), format);
    const int channel[3] = {format.getChannel('r'), format.getChannel('g'), format.getChannel('b')};
    const int step = format.getNumChannels();
    std::normal_distribution<float> gauss(0.0f, noise);
    const Orvane::ImageRows<unsigned char> rows(image);
    for (int y = 0; y < frame.height; ++y) {
        unsigned char* p = rows.row(y);
        const float* in = frame.at(0, y);
        for (int x = 0; x < frame.width; ++x, p += step, in += 3)
            for (int c = 0; c < 3; ++c) {
                float v = gain * in[c] + offset;
                if (rng)
                    v += gauss(*rng);
                p[channel[c]] =
                    static_cast<unsigned char>(std::clamp(std::lround(v * 255.0f), 0L, 255L));
            }
    }
    return image;
}
