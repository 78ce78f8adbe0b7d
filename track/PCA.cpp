#include "track/PCA.h"

#include "base/Exception.h"
#include "image/DatatypeSwitch.h"
#include "image/Format.h"
#include "image/GenRect.h"
#include "image/ImageRows.h"
#include "krovel/KrSvd.h"

#include <cstddef>
#include <limits>
#include <type_traits>
#include <vector>

namespace PCAKernels {

using Orvane::Image;
using Orvane::ImageRows;

template <class S> void _channelSums(const Image& img, int nc, double* sums) {
    const Orvane::GenRect<int>& b = img.getBounds();
    const ImageRows<const S> rows(img);
    for (int y = 0; y < b.h; ++y) {
        const S* p = rows.row(y);
        for (int x = 0; x < b.w; ++x, p += nc)
            for (int k = 0; k < nc; ++k)
                sums[k] += p[k];
    }
}

// Accumulates the upper triangle only (j >= i) into the row-major nc × nc
// array `upper`; the caller mirrors it.
template <class S>
void _scatter(const Image& img, int nc, const double* mean, double* d, double* upper) {
    const Orvane::GenRect<int>& b = img.getBounds();
    const ImageRows<const S> rows(img);
    for (int y = 0; y < b.h; ++y) {
        const S* p = rows.row(y);
        for (int x = 0; x < b.w; ++x, p += nc) {
            for (int k = 0; k < nc; ++k)
                d[k] = double(p[k]) - mean[k];
            for (int i = 0; i < nc; ++i) {
                double* line = upper + std::ptrdiff_t(i) * nc;
                for (int j = i; j < nc; ++j)
                    line[j] += d[i] * d[j];
            }
        }
    }
}

// Pixels are `nc` samples apart; the first `n` of them meet the axis.
template <class S, class T>
void _reducePCA(const Image& src, const Image& dst, int nc, int n, const T* axis) {
    const Orvane::GenRect<int>& b = src.getBounds();
    const ImageRows<const S> in(src);
    const ImageRows<float> outRows(dst);
    for (int y = 0; y < b.h; ++y) {
        const S* p = in.row(y);
        float* out = outRows.row(y);
        for (int x = 0; x < b.w; ++x, p += nc) {
            float sum = 0;
            for (int k = 0; k < n; ++k)
                sum += float(p[k]) * float(axis[k]);
            out[x] = sum;
        }
    }
}

template <class S> S _toSample(double v) {
    if constexpr (std::is_integral_v<S>) {
        constexpr double top = double(std::numeric_limits<S>::max());
        if (!(v > 0))
            return 0;
        if (v >= top)
            return std::numeric_limits<S>::max();
        return S(v + 0.5);
    } else {
        return S(v);
    }
}

template <class S>
void _visualizePCA(const Image& src, const Image& dst, int nc, const double* mean,
                   const double* axis) {
    const Orvane::GenRect<int>& b = src.getBounds();
    const ImageRows<const S> in(src);
    const ImageRows<S> outRows(dst);
    for (int y = 0; y < b.h; ++y) {
        const S* p = in.row(y);
        S* q = outRows.row(y);
        for (int x = 0; x < b.w; ++x, p += nc, q += nc) {
            double t = 0;
            for (int k = 0; k < nc; ++k)
                t += (double(p[k]) - mean[k]) * axis[k];
            for (int k = 0; k < nc; ++k)
                q[k] = _toSample<S>(mean[k] + t * axis[k]);
        }
    }
}

bool hasPixels(const Image& img) {
    const Orvane::GenRect<int>& b = img.getBounds();
    return b.w > 0 && b.h > 0;
}

} // namespace PCAKernels

template <class T> KrGenVector<T> PCA<T>::channelMeans(const Orvane::Image& img) {
    const Orvane::Format& f = img.getFormat();
    return Orvane::switchDatatype(f.getDatatype(), "src datatype unknown", [&](auto s) {
        using S = typename decltype(s)::type;
        const int nc = f.getNumChannels();
        KrGenVector<T> result(nc);
        if (!PCAKernels::hasPixels(img))
            return result;
        std::vector<double> sums(nc, 0.0);
        PCAKernels::_channelSums<S>(img, nc, sums.data());
        const double n = double(img.getBounds().w) * img.getBounds().h;
        for (int k = 0; k < nc; ++k)
            result[k] = T(sums[k] / n);
        return result;
    });
}

template <class T>
KrGenMatrix<T> PCA<T>::scatterMatrix(const Orvane::Image& img, const KrGenVector<T>& mean) {
    const Orvane::Format& f = img.getFormat();
    return Orvane::switchDatatype(f.getDatatype(), "src datatype unknown", [&](auto s) {
        using S = typename decltype(s)::type;
        const int nc = f.getNumChannels();
        KrGenMatrix<T> result(nc, nc);
        if (nc == 0 || !PCAKernels::hasPixels(img))
            return result;
        // A short mean vector reports through the vector's own index check.
        std::vector<double> m(nc);
        for (int k = 0; k < nc; ++k)
            m[k] = mean[k];
        std::vector<double> d(nc);
        std::vector<double> upper(std::size_t(nc) * nc, 0.0);
        PCAKernels::_scatter<S>(img, nc, m.data(), d.data(), upper.data());
        for (int i = 0; i < nc; ++i)
            for (int j = i; j < nc; ++j)
                result(i, j) = result(j, i) = T(upper[std::size_t(i) * nc + j]);
        return result;
    });
}

template <class T> PCA<T>::PCA(const Orvane::Image& img) {
    mean = channelMeans(img);
    const int nc = mean.length();
    if (nc == 0) {
        axis = KrGenVector<T>();
        return;
    }
    KrSvd<T> svd(1e-4f);
    if (!Krovel::_svdCall(svd, scatterMatrix(img, mean)))
        throw Exception("PCA: singular value decomposition did not converge");
    // A private copy, so the axis is contiguous and outlives the decomposition.
    axis = svd.U.column(0).copy();
}

template <class T> int PCA<T>::checkedChannels(const Orvane::Image& src) const {
    const int nc = src.getFormat().getNumChannels();
    if (nc > axis.length()) {
        // Reports "KrVector index ..."; with a handler installed the work
        // goes on over the channels the axis covers.
        (void)axis[nc - 1];
        return axis.length();
    }
    return nc;
}

template <class T> Orvane::Image PCA<T>::reduce(const Orvane::Image& src) const {
    const Orvane::Format& f = src.getFormat();
    return Orvane::switchDatatype(f.getDatatype(), "src datatype unknown", [&](auto s) {
        using S = typename decltype(s)::type;
        const int n = checkedChannels(src);
        Orvane::Image dst(src.getBounds(), Orvane::Format::mono(Orvane::FLOAT));
        if (PCAKernels::hasPixels(src))
            PCAKernels::_reducePCA<S, T>(src, dst, f.getNumChannels(), n, axis.data());
        return dst;
    });
}

template <class T> Orvane::Image PCA<T>::visualize(const Orvane::Image& src) const {
    const Orvane::Format& f = src.getFormat();
    return Orvane::switchDatatype(f.getDatatype(), "src datatype unknown", [&](auto s) {
        using S = typename decltype(s)::type;
        const int n = checkedChannels(src);
        const int nc = f.getNumChannels();
        std::vector<double> m(nc, 0.0), a(nc, 0.0);
        // Channels past the axis (only reachable with an error handler
        // installed) map to zero.
        for (int k = 0; k < n; ++k) {
            m[k] = mean[k];
            a[k] = axis[k];
        }
        Orvane::Image dst(src.getBounds(), f);
        if (PCAKernels::hasPixels(src))
            PCAKernels::_visualizePCA<S>(src, dst, nc, m.data(), a.data());
        return dst;
    });
}

template class PCA<float>;
