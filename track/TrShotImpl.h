#pragma once

#include "base/Array.h"
#include "base/SmartObject.h"
#include "base/dstring.h"
#include "image/GenRect.h"
#include "image/Image.h"
#include "krovel/AffineTransform.h"
#include "track/Sequence/TrSequence.h"
#include "track/TrNode.h"
#include "track/TrShot.h"
#include "track/TrTrack.h"

/// A stand-alone shot: tracks in a list, frames from a frame sequence.
///
/// Times are rounded to the nearest frame, halves away from zero. Failure
/// tolerance, failure behaviour and the three use-switches are kept once for
/// the whole shot: their track index is checked but otherwise ignored. Colour
/// mode is kept per track. Every track index is bounds-checked, throwing
/// BadIndexException "Array::operator[]".
///
/// The shot holds one reference on each of its tracks and on its sequence.
/// Frame access without a sequence throws NullPointerException
/// "TrShotImpl: no sequence".
class TrShotImpl : public TrShot, public TrNode {
public:
    TrShotImpl();
    ~TrShotImpl() override;

    /// `time` rounded to the nearest frame, halves away from zero.
    static int intTime(float time);

    /// Both flags set; the sequence's first and last frames.
    void getTrackRange(bool& hasFirst, float& first, bool& hasLast, float& last) override;
    /// The sequence's frame at `time`, clipped to `rect` when `clip` is set.
    Orvane::Image getImage(float time, const Orvane::GenRect<int>& rect, bool clip) override;
    bool getTracking() override;
    void setTracking(bool tracking) override;
    int getTrackCount() override;
    Orvane::GenRect<double> getPatternRect(int track, float time) override;
    Orvane::GenRect<double> getSearchRect(int track, float time) override;
    Orvane::GenRect<double> getSearchedRect(int track, float time) override;
    void setPatternRect(int track, const Orvane::GenRect<double>& rect) override;
    void setSearchRect(int track, const Orvane::GenRect<double>& rect) override;
    void setSearchedRect(int track, float time, const Orvane::GenRect<double>& rect) override;
    Orvane::GenPoint<double> getPosition(int track, float time) override;
    void setPosition(int track, float time, const Orvane::GenPoint<double>& p) override;
    bool isPositionKeyed(int track, float time) override;
    /// True when position and user position are both keyed at the frame with
    /// exactly equal values.
    bool isPositionKeyedByUser(int track, float time) override;
    void setQuality(int track, float time, double quality) override;
    double getQuality(int track, float time) override;
    bool isQualityKeyed(int track, float time) override;
    AffineTransform getTransform(int track, float time) override;
    void setTransform(int track, float time, const AffineTransform& t) override;
    dstring getColorMode(int track) override;
    void setColorMode(int track, const dstring& mode) override;
    double getFailureTolerance(int track) override;
    void setFailureTolerance(int track, double tolerance) override;
    dstring getFailureBehavior(int track) override;
    void setFailureBehavior(int track, const dstring& behavior) override;
    bool getUseScale(int track) override;
    void setUseScale(int track, bool on) override;
    bool getUseRotate(int track) override;
    void setUseRotate(int track, bool on) override;
    bool getUseStretch(int track) override;
    void setUseStretch(int track, bool on) override;

    /// Holds a reference on `sequence` and releases the previous one. Null
    /// drops the sequence.
    virtual void setSequence(TrSequence* sequence);
    virtual TrSequence* getSequence();
    /// A new track at unkeyed position (x, y), appended and attached to this
    /// shot. The shot's list holds it; the returned pointer is borrowed.
    virtual TrTrack* addTrack(double x, double y);
    /// Releases every track.
    virtual void clearTracks();
    virtual int getFirstFrame();
    virtual int getLastFrame();

    /// The track at `index`, bounds-checked; borrowed.
    TrTrack* getTrack(int index);

private:
    TrSequence& requireSequence();

    Array<Orvane::SmartPtr<TrTrack>> tracks;
    Orvane::SmartPtr<TrSequence> sequence;
    double failureTolerance = 0.8;
    dstring failureBehavior = "stop";
    bool useScale = false;
    bool useRotate = true;
    bool useStretch = false;
    bool tracking = false;
};
