#include "track/DoubleImageSum.h"

#include "image/DatatypeSwitch.h"
#include "image/ImageRows.h"

#include <cstddef>
#include <limits>

using Orvane::GenRect;
using Orvane::Image;

namespace {

template <class T> void _buildTables(const Image& src, double* sums, double* squares) {
    const GenRect<int>& b = src.getBounds();
    const int nc = src.getFormat().getNumChannels();
    const std::size_t w1 = std::size_t(b.w) + 1;
    const Orvane::ImageRows<const T> rows(src);
    for (int y = 0; y < b.h; ++y) {
        const T* v = rows.row(y);
        const double* sAbove = sums + std::size_t(y) * w1;
        const double* qAbove = squares + std::size_t(y) * w1;
        double* s = sums + std::size_t(y + 1) * w1;
        double* q = squares + std::size_t(y + 1) * w1;
        // A running row sum added to the row above: one rounding per entry.
        double rowSum = 0.0;
        double rowSq = 0.0;
        for (int x = 0; x < b.w; ++x) {
            const double f = static_cast<float>(v[std::ptrdiff_t(x) * nc]);
            rowSum += f;
            rowSq += f * f;
            s[x + 1] = sAbove[x + 1] + rowSum;
            q[x + 1] = qAbove[x + 1] + rowSq;
        }
    }
}

} // namespace

void DoubleImageSum::onSetImage() {
    sums.clear();
    squares.clear();
    bounds = GenRect<int>();
    if (!image.exists() || image.getBounds().isEmpty())
        return;
    bounds = image.getBounds();
    const std::size_t size = (std::size_t(bounds.w) + 1) * (std::size_t(bounds.h) + 1);
    sums.assign(size, 0.0);
    squares.assign(size, 0.0);
    Orvane::switchDatatype(image.getFormat().getDatatype(), "DoubleImageSum: unknown datatype",
                           [&](auto s) {
                               using T = typename decltype(s)::type;
                               _buildTables<T>(image, sums.data(), squares.data());
                           });
}

void DoubleImageSum::query(int x0, int y0, int w, int h, ImageSumInfo& out) const {
    const std::size_t w1 = std::size_t(bounds.w) + 1;
    const std::size_t top = std::size_t(y0) * w1;
    const std::size_t bottom = std::size_t(y0 + h) * w1;
    const std::size_t x1 = std::size_t(x0) + std::size_t(w);
    const double sum = sums[bottom + x1] - sums[bottom + x0] - sums[top + x1] + sums[top + x0];
    const double sumSq =
        squares[bottom + x1] - squares[bottom + x0] - squares[top + x1] + squares[top + x0];
    const double count = double(w) * double(h);
    const double mean = sum / count;
    const double variance = sumSq / count - mean * mean;
    out.count = static_cast<float>(count);
    out.sum = static_cast<float>(sum);
    out.sumSq = static_cast<float>(sumSq);
    out.mean = static_cast<float>(mean);
    out.variance = static_cast<float>(variance > 0.0 ? variance : 0.0);
}

void DoubleImageSum::info(const GenRect<int>& rect, ImageSumInfo& out) const {
    const GenRect<int> r = rect & bounds;
    if (bounds.isEmpty() || r.isEmpty()) {
        out.count = 0.0f;
        out.sum = 0.0f;
        out.sumSq = 0.0f;
        out.mean = std::numeric_limits<float>::quiet_NaN();
        out.variance = std::numeric_limits<float>::quiet_NaN();
        return;
    }
    query(r.x - bounds.x, r.y - bounds.y, r.w, r.h, out);
}

void DoubleImageSum::rowStatistics(const GenRect<int>& first, int n, float* sum,
                                   float* variance) const {
    if (n < 1)
        return;
    const GenRect<int> span(first.x, first.y, first.w + n - 1, first.h);
    if (first.isEmpty() || bounds.isEmpty() || (span & bounds) != span) {
        ImageSumIntf::rowStatistics(first, n, sum, variance);
        return;
    }
    ImageSumInfo window;
    for (int j = 0; j < n; ++j) {
        query(first.x - bounds.x + j, first.y - bounds.y, first.w, first.h, window);
        sum[j] = window.sum;
        variance[j] = window.variance;
    }
}

ImageSumIntf* DoubleImageSum::clone() const {
    return new DoubleImageSum();
}
