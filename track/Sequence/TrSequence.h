#pragma once

#include "base/SmartObject.h"
#include "image/GenRect.h"
#include "image/Image.h"

/// A source of numbered frames, shared through SmartPtr. Frame times are
/// floats; sources of whole frames round them with roundf.
class TrSequence : public virtual Orvane::SmartObject {
public:
    ~TrSequence() override = default;

    /// Pure, with a body returning 1 that subclasses may call.
    virtual int getFirstFrame() = 0;
    virtual int getLastFrame() = 0;
    /// The bounds of frame `t`.
    virtual Orvane::GenRect<int> getBounds(float t) = 0;
    /// The part of frame `t` inside `r`, as a view sharing the frame's pixels.
    virtual Orvane::Image getImage(float t, const Orvane::GenRect<int>& r);
    /// Frame `t`. Sources must override it; the default refuses with
    /// UnsupportedOperationException.
    virtual Orvane::Image getFrame(float t);
};
