#pragma once

#include "base/Array.h"
#include "base/SmartObject.h"
#include "base/dstring.h"
#include "image/GenRect.h"
#include "krovel/AffineTransform.h"
#include "track/TrNode.h"
#include "track/TrShot.h"
#include "track/TrTrack.h"

/// The part of a shot that both shots share: the track list and every
/// per-track value, read from and written to the track's attributes at the
/// frame that frameOf() makes of the time.
///
/// Unless a shot overrides them, failure tolerance and failure behaviour are
/// the track's own, the colour mode is the track's, and the three
/// use-switches are one set for the whole shot whose index goes through
/// checkShotWideIndex(). A track index anywhere else is bounds-checked,
/// throwing BadIndexException "Array::operator[]". TrShot.h lists where the
/// two shots differ.
///
/// The list holds one reference on each track and makes this shot the
/// track's owner node, so that the track's changes are announced here.
class TrTrackListShot : public TrShot, public TrNode {
public:
    /// The use-switches a new shot starts with.
    struct UseSwitches {
        bool scale;
        bool rotate;
        bool stretch;
    };

    ~TrTrackListShot() override;

    /// The frame that `time` names in this shot.
    virtual int frameOf(float time) const = 0;

    /// The track at `index`, bounds-checked; the list keeps it.
    TrTrack* getTrack(int index);
    int getTrackCount() override;
    /// Releases every track.
    virtual void clearTracks();

    bool getTracking() override;
    void setTracking(bool tracking) override;

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

protected:
    explicit TrTrackListShot(const UseSwitches& defaults);

    /// Called with the index given to a shot-wide setting before it is read
    /// or written. Accepts any index; a shot that wants the index to name a
    /// track checks it here.
    virtual void checkShotWideIndex(int track);

    /// A new track at unkeyed position (x, y), put at `index` (the count
    /// appends) and attached to this shot. Returned borrowed.
    TrTrack* insertTrack(int index, double x, double y);
    /// Array::remove's rule: an index at or past the last removes the last
    /// track, and an empty list throws IllegalArgumentException
    /// "Array::resize".
    void removeTrack(int index);

private:
    /// The switch `which`, once the index passed checkShotWideIndex().
    bool& useSwitch(bool UseSwitches::*which, int track);

    Array<Orvane::SmartPtr<TrTrack>> tracks;
    UseSwitches use;
    bool tracking = false;
};
