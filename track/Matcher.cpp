#include "track/Matcher.h"

#include "base/Exception.h"
#include "image/ImageRows.h"
#include "track/Correlator.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::Image;
using Orvane::ImageRows;

namespace {

// One row of (C / k - sum(S) sum(P) / N) / (N sqrt(var(P) var(S))), the
// variance product floored so that flat windows give 0 instead of a
// division by 0. Four cells at a time take the same operations, in the same
// order, as one.
void _normaliseRow(float* c, const float* sum, const float* variance, int n, float k, float n0,
                   float pSum, float pVariance) {
    const float floor = 1e-9f;
    int x = 0;
#if defined(__SSE2__)
    const __m128 vK = _mm_set1_ps(k);
    const __m128 vN = _mm_set1_ps(n0);
    const __m128 vSum = _mm_set1_ps(pSum);
    const __m128 vVariance = _mm_set1_ps(pVariance);
    const __m128 vFloor = _mm_set1_ps(floor);
    for (; x + 4 <= n; x += 4) {
        const __m128 product = _mm_mul_ps(vVariance, _mm_loadu_ps(variance + x));
        const __m128 d = _mm_mul_ps(_mm_sqrt_ps(_mm_max_ps(product, vFloor)), vN);
        const __m128 chance = _mm_div_ps(_mm_mul_ps(_mm_loadu_ps(sum + x), vSum), vN);
        const __m128 raw = _mm_div_ps(_mm_loadu_ps(c + x), vK);
        _mm_storeu_ps(c + x, _mm_div_ps(_mm_sub_ps(raw, chance), d));
    }
#endif
    for (; x < n; ++x) {
        const float product = pVariance * variance[x];
        // Written as the vector max is: a NaN product takes the floor.
        const float d = std::sqrt(product > floor ? product : floor) * n0;
        c[x] = (c[x] / k - sum[x] * pSum / n0) / d;
    }
}

void _normaliseRow(double* c, const float* sum, const float* variance, int n, float k, float n0,
                   float pSum, float pVariance) {
    const double floor = 1e-9;
    for (int x = 0; x < n; ++x) {
        const double product = double(pVariance) * variance[x];
        const double d = std::sqrt(product > floor ? product : floor) * n0;
        c[x] = (c[x] / k - double(sum[x]) * pSum / n0) / d;
    }
}

template <class T>
void _normalise(const Image& surface, float k, const ImageSumInfo& p, const ImageSumIntf& sums,
                const GenRect<int>& sb, int pw, int ph, float* sum, float* variance) {
    const GenRect<int>& cb = surface.getBounds();
    const float n0 = static_cast<float>(pw * ph);
    const ImageRows<T> rows(surface);
    for (int y = 0; y < cb.h; ++y) {
        sums.rowStatistics(GenRect<int>(sb.x, sb.y + y, pw, ph), cb.w, sum, variance);
        _normaliseRow(rows.row(y), sum, variance, cb.w, k, n0, p.sum, p.variance);
    }
}

// Half the difference of the neighbours over the peak's height above the
// lower one. Neighbours level with the peak (only possible when all three
// are -1) or NaN cells leave no direction to step in.
double subPixelStep(double before, double after, double peak) {
    const double step = (before - after) * (-0.5) / (peak - std::min(before, after));
    if (!std::isfinite(step))
        return 0.0;
    return std::min(0.5, std::max(-0.5, step));
}

// The largest cell of a row, NaN cells ignored; -infinity when there is none.
template <class T> T _rowMax(const T* c, int n) {
    T m = -std::numeric_limits<T>::infinity();
    for (int x = 0; x < n; ++x)
        if (c[x] > m)
            m = c[x];
    return m;
}

#if defined(__SSE2__)
float _rowMax(const float* c, int n) {
    // maxps keeps its second operand when the first is NaN.
    __m128 acc = _mm_set1_ps(-std::numeric_limits<float>::infinity());
    int x = 0;
    for (; x + 4 <= n; x += 4)
        acc = _mm_max_ps(_mm_loadu_ps(c + x), acc);
    float lanes[4];
    _mm_storeu_ps(lanes, acc);
    float m = lanes[0];
    for (int i = 1; i < 4; ++i)
        if (lanes[i] > m)
            m = lanes[i];
    for (; x < n; ++x)
        if (c[x] > m)
            m = c[x];
    return m;
}
#endif

// The first cell in row-major order that no later cell strictly exceeds:
// rows are compared by their maxima, and only a row that beats the best so
// far is searched for the first cell holding its maximum. A NaN first cell
// is never beaten, as in a cell-by-cell scan.
template <class T>
void _peak(const Image& surface, int& px, int& py, double& m, double& dx, double& dy) {
    const GenRect<int>& cb = surface.getBounds();
    const ImageRows<const T> rows(surface);
    T best = rows.row(0)[0];
    px = 0;
    py = 0;
    for (int y = 0; y < cb.h; ++y) {
        const T* c = rows.row(y);
        const T rowBest = _rowMax(c, cb.w);
        if (rowBest > best) {
            best = rowBest;
            py = y;
            px = int(std::find(c, c + cb.w, rowBest) - c);
        }
    }
    // Cells beyond the surface count as the lowest possible correlation.
    auto at = [&](int x, int y) {
        if (x < 0 || y < 0 || x >= cb.w || y >= cb.h)
            return -1.0;
        return static_cast<double>(rows.row(y)[x]);
    };
    m = best;
    dx = subPixelStep(at(px - 1, py), at(px + 1, py), m);
    dy = subPixelStep(at(px, py - 1), at(px, py + 1), m);
}

} // namespace

Matcher::Matcher() = default;

Matcher::~Matcher() {
    delete correlator;
    delete patternSum;
    delete searchSum;
}

void Matcher::setCorrelator(Correlator* c) {
    if (c == correlator)
        return;
    delete correlator;
    correlator = c;
    if (!correlator)
        return;
    if (pattern.exists())
        correlator->setPattern(pattern);
    if (search.exists())
        correlator->setSearch(search);
}

Correlator* Matcher::getCorrelator() {
    if (!correlator)
        correlator = new NaiveCorrelator();
    return correlator;
}

void Matcher::setImageSumIntf(ImageSumIntf* sum) {
    // One kind of sum serves both images, so the old search sum goes with
    // the old pattern sum. Either may be the object handed back to us.
    ImageSumIntf* clone = sum ? sum->clone() : nullptr;
    if (patternSum != sum)
        delete patternSum;
    if (searchSum != sum)
        delete searchSum;
    patternSum = sum;
    searchSum = clone;
    if (patternSum && pattern.exists())
        patternSum->setImage(pattern);
    if (searchSum && search.exists())
        searchSum->setImage(search);
}

ImageSumIntf* Matcher::getPatternSum() {
    if (!patternSum)
        patternSum = new ImageSum();
    return patternSum;
}

ImageSumIntf* Matcher::getSearchSum() {
    if (!searchSum)
        searchSum = new ImageSum();
    return searchSum;
}

void Matcher::setPattern(const Image& img) {
    pattern = img;
    getCorrelator()->setPattern(pattern);
    getPatternSum()->setImage(pattern);
}

void Matcher::setSearch(const Image& img) {
    search = img;
    getCorrelator()->setSearch(search);
    getSearchSum()->setImage(search);
}

void Matcher::match(GenPoint<float>& offset, double& score) {
    Image surface;
    float k = 1.0f;
    getCorrelator()->correlate(surface, k);

    const int datatype = surface.getFormat().getDatatype();
    if (datatype != Orvane::FLOAT && datatype != Orvane::DOUBLE)
        throw IllegalArgumentException("must be float or double");

    const GenRect<int>& pb = pattern.getBounds();
    ImageSumInfo p;
    getPatternSum()->info(pb, p);
    const GenRect<int>& sb = search.getBounds();
    const GenRect<int>& cb = surface.getBounds();
    if (cb.w + pb.w - 1 > sb.w || cb.h + pb.h - 1 > sb.h)
        throw IllegalArgumentException("search region exceeded");
    if (cb.isEmpty())
        throw IllegalArgumentException("empty correlation surface");

    if (rowSums.size() < std::size_t(cb.w)) {
        rowSums.resize(std::size_t(cb.w));
        rowVariances.resize(std::size_t(cb.w));
    }
    const ImageSumIntf& sums = *getSearchSum();
    int px;
    int py;
    double m;
    double dx;
    double dy;
    if (datatype == Orvane::FLOAT) {
        _normalise<float>(surface, k, p, sums, sb, pb.w, pb.h, rowSums.data(), rowVariances.data());
        _peak<float>(surface, px, py, m, dx, dy);
    } else {
        _normalise<double>(surface, k, p, sums, sb, pb.w, pb.h, rowSums.data(),
                           rowVariances.data());
        _peak<double>(surface, px, py, m, dx, dy);
    }

    score = m;
    offset.x = static_cast<float>(double(sb.x - pb.x + px) + dx);
    offset.y = static_cast<float>(double(sb.y - pb.y + py) + dy);
}

void naive_match(const Image& pattern, const Image& search, GenPoint<float>& offset,
                 double& score) {
    Matcher matcher;
    matcher.setPattern(pattern);
    matcher.setSearch(search);
    matcher.match(offset, score);
}
