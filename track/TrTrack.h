#pragma once

#include "base/dstring.h"
#include "image/GenRect.h"
#include "image/Image.h"
#include "krovel/AffineTransform.h"
#include "track/TrAttribute.h"
#include "track/TrNode.h"

#include <cstdint>

/// One feature followed through a shot. Its values over time are keyframed
/// attributes owned by the track and attached to it, so that a change of any
/// of them is announced by the track.
///
/// Rects are (x, y, width, height) relative to the track's position. A new
/// track sits at (0, 0) with pattern rect (-5, -5, 10, 10), search and
/// searched rects (-10, -10, 20, 20), colour mode "luminance", an empty
/// failure behaviour and failure tolerance 0.8. Tracks are held through
/// SmartPtr; create them with new.
class TrTrack : public TrNode {
public:
    /// Scratch state a tracking driver may keep on the track between calls.
    struct Working {
        int64_t words[8] = {};
        AffineTransform transform;
        Orvane::Image images[3];
    };

    TrTrack();
    ~TrTrack() override;

    /// The feature's point per frame.
    TrAttributeImpl<Orvane::GenPoint<double>>& position() { return positionAttr; }
    /// The position keys the user set. A position key is the user's when this
    /// attribute holds a key at the same frame with exactly the same value.
    TrAttributeImpl<Orvane::GenPoint<double>>& userPosition() { return userPositionAttr; }
    /// True when `frame` holds a position key equal, exactly, to a user key.
    bool isPositionKeyedByUser(int frame);
    /// The pattern around the point.
    TrAttributeImpl<Orvane::GenRect<double>>& patternRect() { return patternRectAttr; }
    /// The area searched around the point.
    TrAttributeImpl<Orvane::GenRect<double>>& searchRect() { return searchRectAttr; }
    /// The area actually searched at a frame.
    TrAttributeImpl<Orvane::GenRect<double>>& searchedRect() { return searchedRectAttr; }
    /// The pattern's affine transform per frame.
    TrAttributeImpl<AffineTransform>& transform() { return transformAttr; }
    /// The match score per frame.
    TrAttributeImpl<double>& quality() { return qualityAttr; }

    /// What the driver does when a match fails: "default", "stop",
    /// "predict", "predictAndKey", "dontPredict" or "useExistingCurve";
    /// empty for a new track. Not checked here.
    const dstring& getFailureBehavior() const { return failureBehavior; }
    void setFailureBehavior(const dstring& behavior) { failureBehavior = behavior; }
    /// The colour reduction the driver uses for this track. Not checked here.
    const dstring& getColorMode() const { return colorMode; }
    void setColorMode(const dstring& mode) { colorMode = mode; }
    /// The score below which a match counts as failed.
    double getFailureTolerance() const { return failureTolerance; }
    void setFailureTolerance(double tolerance) { failureTolerance = tolerance; }

    /// The driver's scratch state: all zero, identity and empty images for a
    /// new track.
    Working& working() { return work; }

private:
    // Declared in creation order; registration with the node follows the
    // order the accessors above list.
    TrAttributeImpl<Orvane::GenPoint<double>> positionAttr;
    TrAttributeImpl<Orvane::GenRect<double>> patternRectAttr;
    TrAttributeImpl<Orvane::GenRect<double>> searchRectAttr;
    TrAttributeImpl<Orvane::GenRect<double>> searchedRectAttr;
    TrAttributeImpl<Orvane::GenPoint<double>> userPositionAttr;
    TrAttributeImpl<AffineTransform> transformAttr;
    TrAttributeImpl<double> qualityAttr;
    dstring failureBehavior;
    dstring colorMode;
    double failureTolerance = 0.8;
    Working work;
};
