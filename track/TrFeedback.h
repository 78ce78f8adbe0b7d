#pragma once

#include "image/Image.h"

/// An observer of a tracking pass. The driver tells it of every finished step
/// and asks it whether the pass was cancelled; it does not own the observer.
class TrFeedback {
public:
    /// For the code that runs a pass, to report its start; the driver never
    /// calls it.
    virtual void beginPass(int frame) = 0;
    /// For the code that runs a pass, to report its end; the driver never
    /// calls it.
    virtual void endPass(int frame) = 0;
    /// True once the pass is to stop. The driver asks at the start and at the
    /// end of every step and stops the track when it is true.
    virtual bool isCancelled() = 0;
    /// Called once track `trackIndex` has been tracked into `frame`.
    virtual void trackStep(int trackIndex, int frame) = 0;
    /// An image worth showing while debugging; ignored unless overridden.
    virtual void dbgImage(const Orvane::Image& img) { (void)img; }
    virtual ~TrFeedback() = default;
};
