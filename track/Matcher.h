#pragma once

#include "image/GenRect.h"
#include "image/Image.h"
#include "track/ImageSum.h"

#include <vector>

class Correlator;

/// Finds a one-channel pattern in a one-channel search image: the raw
/// correlation from a Correlator, normalised into a cross-correlation
/// coefficient with window statistics from two ImageSumIntf objects (one per
/// image), the highest cell refined to sub-pixel precision.
///
/// The matcher owns its correlator and both sums and deletes them. Parts not
/// given are made on first use: a NaiveCorrelator and two ImageSums. Not
/// copyable.
class Matcher {
public:
    Matcher();
    ~Matcher();
    Matcher(const Matcher&) = delete;
    Matcher& operator=(const Matcher&) = delete;

    /// Deletes the current correlator and takes `c` (may be null: a default
    /// is made on next use). Images already set are handed to it.
    void setCorrelator(Correlator* c);
    /// The correlator, made as a NaiveCorrelator if there is none.
    Correlator* getCorrelator();

    /// Deletes both current sums, takes `sum` for the pattern and its clone()
    /// for the search image (null: defaults are made on next use). Images
    /// already set are handed to them.
    void setImageSumIntf(ImageSumIntf* sum);
    /// The pattern's and the search image's sums, made as ImageSums if there
    /// are none.
    ImageSumIntf* getPatternSum();
    ImageSumIntf* getSearchSum();

    /// Stores the pattern and gives it to the correlator and the pattern sum.
    void setPattern(const Orvane::Image& img);
    /// Stores the search image and gives it to the correlator and the search
    /// sum. Call it again when the pixels change.
    void setSearch(const Orvane::Image& img);
    const Orvane::Image& getPattern() const { return pattern; }
    const Orvane::Image& getSearch() const { return search; }

    /// Matches the pattern against the search image. `score` is the highest
    /// normalised correlation (the first in row-major order among equals);
    /// `offset` is where the pattern's origin lands in search coordinates,
    /// with a sub-pixel step of at most half a pixel per axis.
    ///
    /// Throws IllegalArgumentException "must be float or double" when the
    /// surface has another datatype, "search region exceeded" when the
    /// surface plus the pattern does not fit in the search image and "empty
    /// correlation surface" when the correlator returns no cells; the
    /// correlator's own errors pass through. Nothing is written on failure.
    void match(Orvane::GenPoint<float>& offset, double& score);

private:
    Correlator* correlator = nullptr;
    Orvane::Image pattern;
    Orvane::Image search;
    Orvane::Image spare;
    ImageSumIntf* patternSum = nullptr;
    ImageSumIntf* searchSum = nullptr;
    // One row of search window statistics, reused from call to call.
    std::vector<float> rowSums;
    std::vector<float> rowVariances;
};

/// Matches `pattern` in `search` with a temporary Matcher and default parts.
void naive_match(const Orvane::Image& pattern, const Orvane::Image& search,
                 Orvane::GenPoint<float>& offset, double& score);
