#pragma once

#include "base/dstring.h"
#include "image/GenRect.h"
#include "image/Image.h"
#include "krovel/AffineTransform.h"
#include "krovel/KrGenMatrix.h"

/// The shot as the tracking driver sees it: frames, settings and the keyed
/// results of every track, addressed by track index and time.
///
/// Two shots implement it, both through TrTrackListShot, which holds the
/// track list and serves every per-track value from the track's attributes.
/// They differ on purpose, and only here:
///
/// | what                   | TrShotImpl (stand-alone)    | TavrixAPIImpl (plug-in)         |
/// |------------------------|-----------------------------|---------------------------------|
/// | frames                 | from a TrSequence           | the frame the host handed over  |
/// | time to frame          | nearest, halves away from 0 | toward 0; NaN or beyond 32 bits |
/// |                        |                             | throws "time out of range"      |
/// | tolerance, behaviour   | one for the shot, 0.8 and   | the track's own                 |
/// |                        | "stop"; index checked       |                                 |
/// | use-switches           | one set, index checked      | one set, index ignored          |
/// | switch defaults        | rotate on; scale, stretch   | scale, rotate, stretch on       |
/// |                        | off                         |                                 |
/// | getColorMode           | the track's mode            | "luminance"; index not checked  |
/// | track list             | addTrack appends;           | insertNewTrack at an index;     |
/// |                        | clearTracks                 | deleteTrack (Array::remove's    |
/// |                        |                             | rule); deleteAllTracks          |
///
/// Rects are relative to the track's position.
class TrShot {
public:
    virtual ~TrShot() = default;

    /// The frames a pass may cover.
    virtual void getTrackRange(bool& hasFirst, float& first, bool& hasLast, float& last) = 0;
    /// The frame at `time`, clipped to `rect` when `clip` is set (a view).
    virtual Orvane::Image getImage(float time, const Orvane::GenRect<int>& rect, bool clip) = 0;
    virtual bool getTracking() = 0;
    virtual void setTracking(bool tracking) = 0;
    virtual int getTrackCount() = 0;
    virtual Orvane::GenRect<double> getPatternRect(int track, float time) = 0;
    virtual Orvane::GenRect<double> getSearchRect(int track, float time) = 0;
    virtual Orvane::GenRect<double> getSearchedRect(int track, float time) = 0;
    /// Sets the unkeyed value, discarding the attribute's keys.
    virtual void setPatternRect(int track, const Orvane::GenRect<double>& rect) = 0;
    /// Sets the unkeyed value, discarding the attribute's keys.
    virtual void setSearchRect(int track, const Orvane::GenRect<double>& rect) = 0;
    virtual void setSearchedRect(int track, float time, const Orvane::GenRect<double>& rect) = 0;
    virtual Orvane::GenPoint<double> getPosition(int track, float time) = 0;
    virtual void setPosition(int track, float time, const Orvane::GenPoint<double>& p) = 0;
    virtual bool isPositionKeyed(int track, float time) = 0;
    virtual bool isPositionKeyedByUser(int track, float time) = 0;
    virtual void setQuality(int track, float time, double quality) = 0;
    virtual double getQuality(int track, float time) = 0;
    virtual bool isQualityKeyed(int track, float time) = 0;
    virtual AffineTransform getTransform(int track, float time) = 0;
    /// The transform at `time` as a 2x3 matrix.
    virtual KrGenMatrix<double> getMatrix(int track, float time);
    virtual void setTransform(int track, float time, const AffineTransform& t) = 0;
    virtual dstring getColorMode(int track) = 0;
    virtual void setColorMode(int track, const dstring& mode) = 0;
    virtual double getFailureTolerance(int track) = 0;
    virtual void setFailureTolerance(int track, double tolerance) = 0;
    virtual dstring getFailureBehavior(int track) = 0;
    virtual void setFailureBehavior(int track, const dstring& behavior) = 0;
    virtual bool getUseScale(int track) = 0;
    virtual void setUseScale(int track, bool on) = 0;
    virtual bool getUseRotate(int track) = 0;
    virtual void setUseRotate(int track, bool on) = 0;
    virtual bool getUseStretch(int track) = 0;
    virtual void setUseStretch(int track, bool on) = 0;
};
