#include "track/ImageSum.h"

#include "base/Exception.h"
#include "image/DatatypeSwitch.h"
#include "image/ImageRows.h"

#include <cstddef>
#include <limits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

using Orvane::Format;
using Orvane::GenRect;
using Orvane::Image;
using Orvane::ImageRows;

namespace {

const float notANumber = std::numeric_limits<float>::quiet_NaN();

void setEmpty(ImageSumInfo& out) {
    out.count = 0.0f;
    out.sum = 0.0f;
    out.sumSq = 0.0f;
    out.mean = notANumber;
    out.variance = notANumber;
}

// The one place the float statistics are derived, so the single-window and
// row queries give identical values.
inline void setFloat(ImageSumInfo& out, float count, float sum, float sumSq) {
    out.count = count;
    out.sum = sum;
    out.sumSq = sumSq;
    out.mean = sum / count;
    out.variance = sumSq / count - out.mean * out.mean;
}

// Four-corner lookup. `left` is the index of the column before the window
// (negative at the image's left edge), `right` that of its last column;
// `top` is the row above the window, null at the image's top edge.
inline float cornerSum(const float* top, const float* bottom, std::ptrdiff_t left,
                       std::ptrdiff_t right) {
    float s = bottom[right];
    if (left >= 0)
        s -= bottom[left];
    if (top) {
        s -= top[right];
        if (left >= 0)
            s += top[left];
    }
    return s;
}

// Calls op(v) for every sample of channel 0 in the window `r`, row by row.
template <class T, class Op> void _eachInWindow(const Image& img, const GenRect<int>& r, Op op) {
    const int nc = img.getFormat().getNumChannels();
    const GenRect<int>& b = img.getBounds();
    const ImageRows<const T> rows(img);
    const std::ptrdiff_t left = std::ptrdiff_t(r.x - b.x) * nc;
    for (int y = 0; y < r.h; ++y) {
        const T* p = rows.row(r.y - b.y + y) + left;
        for (int x = 0; x < r.w; ++x)
            op(p[x * nc]);
    }
}

template <class T>
void _windowSums(const Image& img, const GenRect<int>& r, double& sum, double& sumSq) {
    sum = 0.0;
    sumSq = 0.0;
    _eachInWindow<T>(img, r, [&](T sample) {
        const double v = static_cast<float>(sample);
        sum += v;
        sumSq += v * v;
    });
}

template <class T> double _squaredDeviations(const Image& img, const GenRect<int>& r, double mean) {
    double total = 0.0;
    _eachInWindow<T>(img, r, [&](T sample) {
        const double d = double(static_cast<float>(sample)) - mean;
        total += d * d;
    });
    return total;
}

template <class T> void _buildTables(const Image& src, const Image& sums, const Image& squares) {
    const GenRect<int>& b = src.getBounds();
    const int nc = src.getFormat().getNumChannels();
    const std::ptrdiff_t n = std::ptrdiff_t(b.w) * nc;
    const ImageRows<const T> in(src);
    const ImageRows<float> sumRows(sums);
    const ImageRows<float> sqRows(squares);

    // The rows above, null at the top edge.
    const float* sa = nullptr;
    const float* qa = nullptr;
    for (int y = 0; y < b.h; ++y) {
        const T* v = in.row(y);
        float* s = sumRows.row(y);
        float* q = sqRows.row(y);
        // One channel at a time, its running entry kept in a register.
        for (int c = 0; c < nc; ++c) {
            float f = static_cast<float>(v[c]);
            float left = sa ? sa[c] + f : f;
            float leftSq = qa ? qa[c] + f * f : f * f;
            s[c] = left;
            q[c] = leftSq;
            if (!sa) {
                for (std::ptrdiff_t i = c + nc; i < n; i += nc) {
                    f = static_cast<float>(v[i]);
                    s[i] = left = left + f;
                    q[i] = leftSq = leftSq + f * f;
                }
                continue;
            }
            // left + (above - above-left + v): the column sum is formed off
            // the critical path, so each entry waits for one addition, not
            // three, and the nearly equal entries above subtract almost
            // exactly.
            for (std::ptrdiff_t i = c + nc; i < n; i += nc) {
                f = static_cast<float>(v[i]);
                s[i] = left = left + (sa[i] - sa[i - nc] + f);
                q[i] = leftSq = leftSq + (qa[i] - qa[i - nc] + f * f);
            }
        }
        sa = s;
        qa = q;
    }
}

} // namespace

// ---- ImageSumIntf

void ImageSumIntf::setImage(const Image& img) {
    image = img;
    onSetImage();
}

void ImageSumIntf::rowStatistics(const GenRect<int>& first, int n, float* sum,
                                 float* variance) const {
    GenRect<int> r = first;
    ImageSumInfo window;
    for (int j = 0; j < n; ++j, ++r.x) {
        info(r, window);
        sum[j] = window.sum;
        variance[j] = window.variance;
    }
}

// ---- NaiveImageSum

void NaiveImageSum::info(const GenRect<int>& rect, ImageSumInfo& out) const {
    if (rect.isEmpty()) {
        setEmpty(out);
        return;
    }
    // Summing outside the pixels would read someone else's memory.
    if (!image.exists() || (rect & image.getBounds()) != rect)
        throw BadIndexException("NaiveImageSum: window outside the image");
    const double count = double(rect.w) * double(rect.h);
    double sum;
    double sumSq;
    double deviations;
    Orvane::switchDatatype(image.getFormat().getDatatype(), "NaiveImageSum: unknown datatype",
                           [&](auto s) {
                               using T = typename decltype(s)::type;
                               _windowSums<T>(image, rect, sum, sumSq);
                               deviations = _squaredDeviations<T>(image, rect, sum / count);
                           });
    out.count = static_cast<float>(count);
    out.sum = static_cast<float>(sum);
    out.sumSq = static_cast<float>(sumSq);
    out.mean = static_cast<float>(sum / count);
    out.variance = static_cast<float>(deviations / count);
}

ImageSumIntf* NaiveImageSum::clone() const {
    return new NaiveImageSum();
}

// ---- ImageSum

void ImageSum::onSetImage() {
    if (!image.exists()) {
        sums.clear();
        squares.clear();
        return;
    }
    const GenRect<int>& b = image.getBounds();
    const Format tableFormat = image.getFormat().withDatatype(Orvane::FLOAT);
    sums = sumStore.shape(b, tableFormat);
    squares = squareStore.shape(b, tableFormat);
    if (b.isEmpty())
        return;
    Orvane::switchDatatype(image.getFormat().getDatatype(), "ImageSum: unknown datatype",
                           [&](auto s) {
                               using T = typename decltype(s)::type;
                               _buildTables<T>(image, sums, squares);
                           });
}

void ImageSum::info(const GenRect<int>& rect, ImageSumInfo& out) const {
    if (!sums.exists()) {
        setEmpty(out);
        return;
    }
    const GenRect<int>& b = sums.getBounds();
    const GenRect<int> r = rect & b;
    if (r.isEmpty()) {
        setEmpty(out);
        return;
    }
    const int nc = sums.getFormat().getNumChannels();
    const int x0 = r.x - b.x;
    const int y0 = r.y - b.y;
    const int x1 = x0 + r.w - 1;
    const int y1 = y0 + r.h - 1;
    const std::ptrdiff_t left = std::ptrdiff_t(x0 - 1) * nc;
    const std::ptrdiff_t right = std::ptrdiff_t(x1) * nc;

    const ImageRows<const float> s(sums);
    const ImageRows<const float> q(squares);
    const float* sTop = y0 > 0 ? s.row(y0 - 1) : nullptr;
    const float* qTop = y0 > 0 ? q.row(y0 - 1) : nullptr;
    setFloat(out, static_cast<float>(r.w * r.h), cornerSum(sTop, s.row(y1), left, right),
             cornerSum(qTop, q.row(y1), left, right));
}

void ImageSum::rowStatistics(const GenRect<int>& first, int n, float* sum, float* variance) const {
    if (n < 1)
        return;
    const GenRect<int> span(first.x, first.y, first.w + n - 1, first.h);
    if (first.isEmpty() || !sums.exists() || (span & sums.getBounds()) != span) {
        // Clipped windows differ in size; leave them to the general query.
        ImageSumIntf::rowStatistics(first, n, sum, variance);
        return;
    }

    const GenRect<int>& b = sums.getBounds();
    const int nc = sums.getFormat().getNumChannels();
    const int x0 = first.x - b.x;
    const int y0 = first.y - b.y;
    const int y1 = y0 + first.h - 1;
    const float count = static_cast<float>(first.w * first.h);

    const ImageRows<const float> s(sums);
    const ImageRows<const float> q(squares);
    const float* sBottom = s.row(y1);
    const float* qBottom = q.row(y1);
    const float* sTop = y0 > 0 ? s.row(y0 - 1) : nullptr;
    const float* qTop = y0 > 0 ? q.row(y0 - 1) : nullptr;

    ImageSumInfo window;
    int j = 0;
    if (x0 == 0) {
        const std::ptrdiff_t right = std::ptrdiff_t(first.w - 1) * nc;
        setFloat(window, count, cornerSum(sTop, sBottom, -1, right),
                 cornerSum(qTop, qBottom, -1, right));
        sum[0] = window.sum;
        variance[0] = window.variance;
        j = 1;
    }
    // From here every window has a column on its left. Four windows at a
    // time take the same operations in the same order as one.
    const std::ptrdiff_t left = std::ptrdiff_t(x0 - 1) * nc;
    const std::ptrdiff_t right = std::ptrdiff_t(x0 + first.w - 1) * nc;
#if defined(__SSE2__)
    if (nc == 1) {
        const __m128 vCount = _mm_set1_ps(count);
        for (; j + 4 <= n; j += 4) {
            __m128 vs =
                _mm_sub_ps(_mm_loadu_ps(sBottom + right + j), _mm_loadu_ps(sBottom + left + j));
            __m128 vq =
                _mm_sub_ps(_mm_loadu_ps(qBottom + right + j), _mm_loadu_ps(qBottom + left + j));
            if (sTop) {
                vs = _mm_add_ps(_mm_sub_ps(vs, _mm_loadu_ps(sTop + right + j)),
                                _mm_loadu_ps(sTop + left + j));
                vq = _mm_add_ps(_mm_sub_ps(vq, _mm_loadu_ps(qTop + right + j)),
                                _mm_loadu_ps(qTop + left + j));
            }
            const __m128 mean = _mm_div_ps(vs, vCount);
            _mm_storeu_ps(sum + j, vs);
            _mm_storeu_ps(variance + j, _mm_sub_ps(_mm_div_ps(vq, vCount), _mm_mul_ps(mean, mean)));
        }
    }
#endif
    for (; j < n; ++j) {
        const std::ptrdiff_t l = left + std::ptrdiff_t(j) * nc;
        const std::ptrdiff_t r = right + std::ptrdiff_t(j) * nc;
        setFloat(window, count, cornerSum(sTop, sBottom, l, r), cornerSum(qTop, qBottom, l, r));
        sum[j] = window.sum;
        variance[j] = window.variance;
    }
}

ImageSumIntf* ImageSum::clone() const {
    return new ImageSum();
}
