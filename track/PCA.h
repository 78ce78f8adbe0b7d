#pragma once

#include "image/Image.h"
#include "krovel/KrGenMatrix.h"
#include "krovel/KrGenVector.h"

/// The principal-component reduction of colour pixels to one value.
///
/// Set up once from a reference image (a track's pattern at its begin frame):
/// the mean of each channel and the principal axis of the channel scatter,
/// both over raw sample values. Every later image is projected on that same
/// axis, so the reduced values of pattern and search regions are comparable.
/// All channels of the pixel take part, alpha and padding included. Only
/// PCA<float> is instantiated.
template <class T> class PCA {
public:
    /// No channels: empty mean and axis.
    PCA() = default;

    /// Mean and axis of `img`. The axis is column 0 of the left singular
    /// vectors of the scatter matrix, as the decomposition returns it: its
    /// sign is not fixed. An unknown datatype throws IllegalArgumentException
    /// "src datatype unknown"; NaN or infinite samples throw the SVD's
    /// IllegalArgumentException "NaN" / "infinite number".
    explicit PCA(const Orvane::Image& img);

    /// One element per channel of the set-up image.
    const KrGenVector<T>& getMean() const { return mean; }
    /// Unit length (to the precision of T), one element per channel.
    const KrGenVector<T>& getAxis() const { return axis; }

    /// A new image with the source's bounds and the one-channel float format
    /// "L": for every pixel the sum over its channels of value × axis, on raw
    /// values and accumulated in float. The mean is not subtracted. A source
    /// with more channels than the axis reports "KrVector index %d out of
    /// range %d" through KrMatrixError::err.
    Orvane::Image reduce(const Orvane::Image& src) const;

    /// A debug view in the source's own format and bounds: every pixel
    /// replaced by its projection on the principal line through the mean,
    /// mean + ((value − mean)·axis)·axis, clamped to the range of an integer
    /// datatype. It shows exactly the colour variation that reduce keeps.
    Orvane::Image visualize(const Orvane::Image& src) const;

    /// Per-channel mean of the raw samples of `img`; zeros for an image
    /// without pixels.
    static KrGenVector<T> channelMeans(const Orvane::Image& img);

    /// The c × c scatter matrix of `img` around `mean`: the sum over pixels of
    /// (value_i − mean_i)(value_j − mean_j), not divided by the pixel count,
    /// accumulated in double over the upper triangle and mirrored.
    static KrGenMatrix<T> scatterMatrix(const Orvane::Image& img, const KrGenVector<T>& mean);

private:
    /// The channel count of `src` after checking it against the axis.
    int checkedChannels(const Orvane::Image& src) const;

    KrGenVector<T> mean;
    KrGenVector<T> axis;
};

extern template class PCA<float>;
