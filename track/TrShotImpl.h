#pragma once

#include "base/SmartObject.h"
#include "base/dstring.h"
#include "image/GenRect.h"
#include "image/Image.h"
#include "image/ImageStore.h"
#include "track/Sequence/TrSequence.h"
#include "track/TrTrack.h"
#include "track/TrTrackListShot.h"

/// A stand-alone shot: tracks in a list, frames from a frame sequence.
///
/// Times are rounded to the nearest frame, halves away from zero. Failure
/// tolerance (0.8), failure behaviour ("stop") and the three use-switches
/// (rotate on, scale and stretch off) are kept once for the whole shot: their
/// track index is checked but otherwise ignored. Colour mode is kept per
/// track. Every track index is bounds-checked, throwing BadIndexException
/// "Array::operator[]".
///
/// The shot holds one reference on each of its tracks and on its sequence.
/// Frame access without a sequence throws NullPointerException
/// "TrShotImpl: no sequence".
class TrShotImpl : public TrTrackListShot {
public:
    TrShotImpl();
    ~TrShotImpl() override;

    /// `time` rounded to the nearest frame, halves away from zero.
    static int intTime(float time);
    /// intTime(time).
    int frameOf(float time) const override;

    /// Both flags set; the sequence's first and last frames.
    void getTrackRange(bool& hasFirst, float& first, bool& hasLast, float& last) override;
    /// The sequence's frame at `time`, clipped to `rect` when `clip` is set.
    /// The clip's view object is reused while the caller holds no earlier
    /// one, so a tracker fetching a region a step allocates nothing here.
    Orvane::Image getImage(float time, const Orvane::GenRect<int>& rect, bool clip) override;

    // Shot-wide, unlike the track's own values that the list shot serves.
    double getFailureTolerance(int track) override;
    void setFailureTolerance(int track, double tolerance) override;
    dstring getFailureBehavior(int track) override;
    void setFailureBehavior(int track, const dstring& behavior) override;

    /// Holds a reference on `sequence` and releases the previous one. Null
    /// drops the sequence.
    virtual void setSequence(TrSequence* sequence);
    virtual TrSequence* getSequence();
    /// A new track at unkeyed position (x, y), appended and attached to this
    /// shot. The shot's list holds it; the returned pointer is borrowed.
    virtual TrTrack* addTrack(double x, double y);
    virtual int getFirstFrame();
    virtual int getLastFrame();

protected:
    /// Shot-wide settings still name a track: a missing one is an error.
    void checkShotWideIndex(int track) override;

private:
    TrSequence& requireSequence();

    Orvane::SmartPtr<TrSequence> sequence;
    Orvane::ClipView clipView;
    double failureTolerance = 0.8;
    dstring failureBehavior = "stop";
};
