#pragma once

#include "image/Image.h"
#include "track/PCA.h"

/// Turns a colour image (a pattern or a search region) into the one-channel
/// float image the matcher works on. Every reduced image has the source's
/// bounds and the one-channel float format "L" (Format::mono(FLOAT)), except
/// that LuminanceReducer hands a one-channel source back as it is.
///
/// Colour channels are found by name in the source format. A source without
/// red, green or blue uses its luminance channel in their place, so a grey
/// image reduces under every mode; a source with neither throws
/// IllegalArgumentException "no such channel \"r\"" (or g, b). An unknown
/// datatype throws IllegalArgumentException "src datatype unknown".
///
/// A tracker owns its reducer through a plain pointer and deletes it.
class Reducer {
public:
    Reducer() = default;
    Reducer(const Reducer&) = delete;
    Reducer& operator=(const Reducer&) = delete;
    virtual ~Reducer() = default;

    /// The reduced image; see the class comment.
    virtual Orvane::Image reduce(const Orvane::Image& src) const = 0;
    /// Writes what `reduce` gives, converted to float, into `dst`: a
    /// one-channel float image of the source's bounds that the caller keeps
    /// from step to step. False, `dst` untouched, for a source or reducer
    /// that has no such path (the caller then reduces the ordinary way).
    /// Errors are those of `reduce`.
    virtual bool reduceInto(const Orvane::Image& src, const Orvane::Image& dst) const;

    /// A debug view of what reduce keeps, as a new image in the source's own
    /// bounds and format.
    virtual Orvane::Image visualize(const Orvane::Image& src) const = 0;
};

/// One colour channel, converted to float by the sample table (fixed-point
/// maximum reads as 1).
class ChannelReducer : public Reducer {
public:
    /// `channel` is 'r', 'g' or 'b' (a or l work too, either case); any other
    /// letter throws IllegalArgumentException "no such channel \"c\"".
    explicit ChannelReducer(char channel);

    char getChannel() const { return channel; }

    Orvane::Image reduce(const Orvane::Image& src) const override;
    bool reduceInto(const Orvane::Image& src, const Orvane::Image& dst) const override;
    /// Zeros everywhere but the chosen channel, which keeps its values.
    Orvane::Image visualize(const Orvane::Image& src) const override;

private:
    char channel;
};

/// 0.299 r + 0.587 g + 0.114 b on unit-range values (fixed-point samples
/// divided by their maximum, UB4 scaled by 2^-32), in double, stored as float.
class LuminanceReducer : public Reducer {
public:
    /// A one-channel source comes back as the same handle, whatever its
    /// datatype: it already is the luminance.
    Orvane::Image reduce(const Orvane::Image& src) const override;
    /// A one-channel source has no path in place: `reduce` hands it back in
    /// its own format.
    bool reduceInto(const Orvane::Image& src, const Orvane::Image& dst) const override;
    /// The luminance copied into every colour channel, alpha opaque. The
    /// copy maps channels for UB1 sources only (IllegalArgumentException
    /// "only ub1 supported yet" otherwise, for colour sources).
    Orvane::Image visualize(const Orvane::Image& src) const override;
};

/// max(r, g, b) − min(r, g, b) on unit-range values as LuminanceReducer
/// scales them: the chroma range, not divided by the maximum, so it stays
/// small for dark colours.
class SaturationReducer : public Reducer {
public:
    Orvane::Image reduce(const Orvane::Image& src) const override;
    bool reduceInto(const Orvane::Image& src, const Orvane::Image& dst) const override;
    /// As LuminanceReducer::visualize.
    Orvane::Image visualize(const Orvane::Image& src) const override;
};

/// Projection on the principal colour axis of the pattern, computed once at
/// set-up and reused for every later image.
class PCAReducer : public Reducer {
public:
    /// A new reducer whose axis comes from `pattern`; the caller owns it.
    static PCAReducer* setupPCA(const Orvane::Image& pattern);

    const PCA<float>& getPCA() const { return pca; }

    /// PCA<float>::reduce.
    Orvane::Image reduce(const Orvane::Image& src) const override;
    /// PCA<float>::visualize.
    Orvane::Image visualize(const Orvane::Image& src) const override;

private:
    explicit PCAReducer(const Orvane::Image& pattern) : pca(pattern) {}

    PCA<float> pca;
};
