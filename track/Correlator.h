#pragma once

#include "image/Image.h"
#include "image/ImageStore.h"

#include <vector>

/// Produces the raw cross-correlation surface of a pattern slid over a search
/// image; normalisation is the caller's business (see Matcher).
class Correlator {
public:
    /// Stores the pattern; the image is shared, not copied.
    virtual void setPattern(const Orvane::Image& pattern) = 0;
    /// Stores the search image; the image is shared, not copied.
    virtual void setSearch(const Orvane::Image& search) = 0;
    /// Makes `out` a surface whose cell (x, y) is the sum of products of
    /// the pattern with the search image displaced by (x, y); the surface's
    /// origin is the search origin minus the pattern origin. `scale` is the
    /// factor the caller divides the surface by.
    virtual void correlate(Orvane::Image& out, float& scale) = 0;
    /// An image for debugging displays; empty unless an implementation has one.
    virtual Orvane::Image getDebugImage();
    virtual ~Correlator() = default;
};

/// Sums products directly. Single-channel images of any datatype are read as
/// float (float images in place, others through a reused copy) and sums are
/// accumulated in float. The surface takes the pattern's format; integer
/// surfaces round and saturate. An AVX2 kernel runs on processors that have
/// it, otherwise a portable scalar loop.
class NaiveCorrelator : public Correlator {
public:
    /// `allowSimd` false forces the scalar loop, for comparisons and timing.
    explicit NaiveCorrelator(bool allowSimd = true);

    void setPattern(const Orvane::Image& pattern) override;
    void setSearch(const Orvane::Image& search) override;
    /// Throws IllegalArgumentException "NaiveCorrelator: search bounds must
    /// be larger than pattern bounds" when the search image is narrower or
    /// shorter than the pattern (equal sizes give a 1 x 1 surface), then
    /// "NaiveCorrelator: only 1 channel supported" unless both images have one
    /// channel; `out` and `scale` are untouched when it throws. `scale` is 1.
    /// The surface's store is the correlator's: the next call rewrites it.
    void correlate(Orvane::Image& out, float& scale) override;

    /// True when correlate() will use the vector kernel on float images.
    bool isSimd() const { return simd; }

private:
    Orvane::Image pattern;
    Orvane::Image search;
    bool simd;
    // Float copies of non-float inputs and the float surface behind a
    // non-float output; they grow and are reused, never shrunk.
    std::vector<float> patternCopy;
    std::vector<float> searchCopy;
    std::vector<float> surfaceCopy;
    Orvane::ImageStore surfaceStore;
};
