#pragma once

#include "track/ImageSum.h"

#include <vector>

/// Summed-area tables of channel 0 in double precision: the same four-lookup
/// queries as ImageSum, without the float tables' loss of variance in bright,
/// low-contrast windows. The tables take 16 bytes a pixel. Opt in through
/// Matcher::setImageSumIntf(new DoubleImageSum()).
class DoubleImageSum : public ImageSumIntf {
public:
    /// `rect` is clipped to the image; an empty result (or no image) gives
    /// count, sum and sumSq 0 and NaN mean and variance. The variance is
    /// computed in double and never negative, then stored as float.
    void info(const Orvane::GenRect<int>& rect, ImageSumInfo& out) const override;
    ImageSumIntf* clone() const override;
    void rowStatistics(const Orvane::GenRect<int>& first, int n, float* sum,
                       float* variance) const override;

protected:
    void onSetImage() override;

private:
    void query(int x0, int y0, int w, int h, ImageSumInfo& out) const;

    Orvane::GenRect<int> bounds;
    // (w + 1) x (h + 1) entries with a zero first row and column, so no
    // query needs an edge test.
    std::vector<double> sums;
    std::vector<double> squares;
};
