#pragma once

#include "image/GenRect.h"
#include "image/Image.h"
#include "image/ImageStore.h"

/// Statistics of one window of an image: pixel count, sum, sum of squares,
/// mean (sum / count) and variance (population, divided by count).
struct ImageSumInfo {
    float count = 0.0f;
    float sum = 0.0f;
    float sumSq = 0.0f;
    float mean = 0.0f;
    float variance = 0.0f;
};

/// Window statistics over channel 0 of one image. The object shares the
/// image it is given; when the pixels change, give the image again.
class ImageSumIntf {
public:
    virtual ~ImageSumIntf() = default;

    /// Stores the image and prepares for queries.
    void setImage(const Orvane::Image& img);
    const Orvane::Image& getImage() const { return image; }

    /// The statistics of the window `rect`, in the image's coordinates.
    virtual void info(const Orvane::GenRect<int>& rect, ImageSumInfo& out) const = 0;
    /// A new, empty object of the same kind; the caller owns it.
    virtual ImageSumIntf* clone() const = 0;
    /// The sums and variances of `n` windows of one size along a row:
    /// `first`, then `first` moved right by 1, 2, ... Equal, value for value,
    /// to info() on each window; implementations override it to avoid the
    /// per-window call. `sum` and `variance` each hold n values.
    virtual void rowStatistics(const Orvane::GenRect<int>& first, int n, float* sum,
                               float* variance) const;

protected:
    /// Called by setImage() once the image is stored.
    virtual void onSetImage() = 0;

    Orvane::Image image;
};

/// Sums each window directly, in double precision: slow, and the reference
/// the table-based sums are judged by. The variance is a second pass over
/// the squared deviations from the mean.
class NaiveImageSum : public ImageSumIntf {
public:
    /// An empty `rect` gives count, sum and sumSq 0 and NaN mean and
    /// variance. A window that is not wholly inside the image throws
    /// BadIndexException "NaiveImageSum: window outside the image".
    void info(const Orvane::GenRect<int>& rect, ImageSumInfo& out) const override;
    ImageSumIntf* clone() const override;

protected:
    void onSetImage() override {}
};

/// Inclusive summed-area tables of the values and of their squares, in
/// float, one table entry per sample (every channel is summed; queries read
/// channel 0). Queries are four lookups, whatever the window size.
///
/// Float tables lose the variance of bright, low-contrast windows, where
/// sumSq / count and mean^2 nearly cancel; DoubleImageSum keeps it.
class ImageSum : public ImageSumIntf {
public:
    /// `rect` is clipped to the image; an empty result (or no image) gives
    /// count, sum and sumSq 0 and NaN mean and variance. Otherwise
    /// variance = sumSq / count - mean^2, which rounding can leave slightly
    /// negative for flat windows.
    void info(const Orvane::GenRect<int>& rect, ImageSumInfo& out) const override;
    ImageSumIntf* clone() const override;
    void rowStatistics(const Orvane::GenRect<int>& first, int n, float* sum,
                       float* variance) const override;

    /// The tables: float images of the image's bounds and channel layout.
    /// Their stores are rewritten in place whenever an image is set again,
    /// and grow only when it is larger than any before.
    const Orvane::Image& getSumTable() const { return sums; }
    const Orvane::Image& getSquareTable() const { return squares; }

protected:
    void onSetImage() override;

private:
    Orvane::Image sums;
    Orvane::Image squares;
    Orvane::ImageStore sumStore;
    Orvane::ImageStore squareStore;
};
