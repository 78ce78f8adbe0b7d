#include "image/Rescaler.h"

#include "base/Exception.h"
#include "image/DatatypeSwitch.h"
#include "image/Format.h"
#include "image/XformRun.h"

#include <cmath>
#include <cstdint>
#include <type_traits>

namespace Orvane {

namespace {

// Row y of a buffer whose rows lie `stride` bytes apart.
template <class T> T* rowAt(const void* base, int64_t stride, int y) {
    return reinterpret_cast<T*>(
        const_cast<unsigned char*>(static_cast<const unsigned char*>(base) + y * stride));
}

// Makes room for `need` elements; when it has to grow, it grows to `room`,
// so that a sample more each way on a later call does not reallocate.
void grow(std::vector<double>& v, size_t need, size_t room) {
    if (v.size() < need)
        v.resize(room);
}

// The taps of a run under `m`, as the per-run walk finds them, kept while
// the run's source and destination ranges stay the same. Capacity is kept
// too, so a run of a known length rebuilds without allocating.
void buildTaps(Rescaler::Taps& taps, const mat2& m, int srcStart, int srcSize, int dstStart,
               int dstSize) {
    if (taps.srcStart == srcStart && taps.srcSize == srcSize && taps.dstStart == dstStart &&
        taps.dstSize == dstSize)
        return;
    const XformRun::RunMap run(m, dstStart, srcStart);
    taps.first.clear();
    taps.count.clear();
    taps.start.clear();
    taps.weight.clear();
    // Room for a sample more than this run, which the same source at another
    // position may need, so that it rebuilds without allocating.
    if (taps.first.capacity() < size_t(dstSize)) {
        const size_t room = size_t(dstSize) + 1;
        taps.first.reserve(room);
        taps.count.reserve(room);
        taps.start.reserve(room);
        taps.weight.reserve(room * XformRun::maxTaps);
    }
    int index[XformRun::maxTaps];
    double weight[XformRun::maxTaps];
    for (int j = 0; j < dstSize; ++j) {
        const int n = XformRun::floatTaps(run, j, srcSize, index, weight);
        taps.first.push_back(n > 0 ? index[0] : 0);
        taps.count.push_back(n);
        taps.start.push_back(int(taps.weight.size()));
        taps.weight.insert(taps.weight.end(), weight, weight + n);
    }
    taps.srcStart = srcStart;
    taps.srcSize = srcSize;
    taps.dstStart = dstStart;
    taps.dstSize = dstSize;
}

// Every row through the horizontal taps; each sum adds its taps in order
// from 0.0, rounds to T as the image would, and is kept as a double.
template <class T>
void _across(const void* src, int64_t srcStride, int rows, int nc, const Rescaler::Taps& taps,
             double* out) {
    const int width = taps.dstSize;
    for (int y = 0; y < rows; ++y) {
        const T* in = rowAt<const T>(src, srcStride, y);
        double* o = out + int64_t(y) * width * nc;
        for (int j = 0; j < width; ++j) {
            const double* w = taps.weight.data() + taps.start[j];
            const T* s = in + int64_t(taps.first[j]) * nc;
            const int n = taps.count[j];
            for (int ch = 0; ch < nc; ++ch) {
                double acc = 0.0;
                for (int t = 0; t < n; ++t)
                    acc += double(s[t * nc + ch]) * w[t];
                o[j * nc + ch] = double(T(acc));
            }
        }
    }
}

// Every output row from whole input rows: the same sums as a column walk,
// term by term in tap order, but each term a streak along a row.
template <class T>
void _down(const double* in, int rowLength, const Rescaler::Taps& taps, double* sums, void* dst,
           int64_t dstStride) {
    for (int j = 0; j < taps.dstSize; ++j) {
        for (int i = 0; i < rowLength; ++i)
            sums[i] = 0.0;
        const double* w = taps.weight.data() + taps.start[j];
        for (int t = 0; t < taps.count[j]; ++t) {
            const double* row = in + int64_t(taps.first[j] + t) * rowLength;
            const double wt = w[t];
            for (int i = 0; i < rowLength; ++i)
                sums[i] += row[i] * wt;
        }
        T* o = rowAt<T>(dst, dstStride, j);
        for (int i = 0; i < rowLength; ++i)
            o[i] = T(sums[i]);
    }
}

} // namespace

// The output store: it allocates its pixels once, with a pixel to spare each
// way, and takes the bounds of each result. Halving a source of one size
// gives one of two sizes, by the parity of its position, and both fit.
class Rescaler::Store : public ImageImpl {
public:
    Store(const GenRect<int>& b, const Format& f)
        : ImageImpl(GenRect<int>(b.x, b.y, b.w + 1, b.h + 1), f) {
        alloc();
        capacity = int64_t(b.w + 1) * (b.h + 1);
        reshape(b);
    }
    bool fits(const GenRect<int>& b, const Format& f) const {
        return format == f && int64_t(b.w) * b.h <= capacity;
    }
    // Rows without padding, as a fresh store has them.
    void reshape(const GenRect<int>& b) {
        bounds = b;
        stride = int32_t(int64_t(format.getBytesPerPixel()) * b.w);
    }

private:
    int64_t capacity = 0;
};

bool Rescaler::supports(const Image& img) const {
    if (!img.exists())
        return false;
    const Format& f = img.getFormat();
    const GenRect<int>& b = img.getBounds();
    const bool finite = std::isfinite(sx) && std::isfinite(sy) && sx > 0 && sy > 0;
    return finite && (f.getDatatype() == FLOAT || f.getDatatype() == DOUBLE) && f.isPremult() &&
           b.w >= 1 && b.h >= 1;
}

const Image& Rescaler::apply(const Image& img) {
    if (!supports(img))
        throw IllegalArgumentException("Rescaler: unsupported image");
    const GenRect<int> b = img.getBounds();
    // The two passes' matrices, as xform() splits diag(sx, sy, 1).
    mat3 h = identity2D();
    h(0, 0) = sx;
    mat3 v = identity2D();
    v(1, 0) = 0.0 / sx;
    v(1, 1) = sy - v(1, 0) * 0.0;
    v(1, 2) = 0.0 - v(1, 0) * 0.0;

    int hx, hw, vy, vh;
    if (!XformRun::passRange(b, h, 0.0, true, hx, hw))
        throw IllegalArgumentException("hxform: output range out of bounds");
    const GenRect<int> mid(hx, b.y, hw, b.h);
    if (!XformRun::passRange(mid, v, 0.0, false, vy, vh))
        throw IllegalArgumentException("vxform: output range out of bounds");

    // The run maps of the first row and the first column; with no shear
    // every other row and column has the same.
    const mat2 row(vec2(h(0, 0), h(2, 0)), vec2(h(0, 1) * b.y + h(0, 2), h(2, 1) * b.y + h(2, 2)));
    const mat2 col(vec2(v(1, 1), v(2, 1)), vec2(v(1, 0) * hx + v(1, 2), v(2, 0) * hx + v(2, 2)));
    buildTaps(across, row, b.x, b.w, hx, hw);
    buildTaps(down, col, b.y, b.h, vy, vh);

    Format f = img.getFormat();
    f.setPremult(true);
    const GenRect<int> outBounds(hx, vy, hw, vh);
    if (store && store->fits(outBounds, f)) {
        store->reshape(outBounds);
    } else {
        store = new Store(outBounds, f);
        out = Image(store);
    }
    const int nc = f.getNumChannels();
    // With room for a sample more each way, as the store has.
    grow(middle, size_t(hw) * b.h * nc, size_t(hw + 1) * (b.h + 1) * nc);
    grow(sums, size_t(hw) * nc, size_t(hw + 1) * nc);
    switchDatatype(f.getDatatype(), "src datatype unknown", [&](auto s) {
        using T = typename decltype(s)::type;
        if constexpr (std::is_floating_point<T>::value) {
            _across<T>(img.getBuffer(), img.getStride(), b.h, nc, across, middle.data());
            _down<T>(middle.data(), hw * nc, down, sums.data(), out.getBuffer(), out.getStride());
        }
    });
    return out;
}

} // namespace Orvane
