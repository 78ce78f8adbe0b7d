#include "track/TrShotImpl.h"

#include "base/Exception.h"

#include <cmath>

TrShotImpl::TrShotImpl() = default;

TrShotImpl::~TrShotImpl() = default;

int TrShotImpl::intTime(float time) {
    // std::round takes halves away from zero: 2.5 -> 3, -2.5 -> -3.
    return static_cast<int>(std::round(time));
}

TrSequence& TrShotImpl::requireSequence() {
    if (!sequence)
        throw NullPointerException("TrShotImpl: no sequence");
    return *sequence;
}

void TrShotImpl::getTrackRange(bool& hasFirst, float& first, bool& hasLast, float& last) {
    TrSequence& s = requireSequence();
    hasFirst = true;
    first = static_cast<float>(s.getFirstFrame());
    hasLast = true;
    last = static_cast<float>(s.getLastFrame());
}

Orvane::Image TrShotImpl::getImage(float time, const Orvane::GenRect<int>& rect, bool clip) {
    Orvane::Image frame = requireSequence().getFrame(time);
    return clip ? frame.clip(rect) : frame;
}

bool TrShotImpl::getTracking() {
    return tracking;
}

void TrShotImpl::setTracking(bool on) {
    tracking = on;
}

int TrShotImpl::getTrackCount() {
    return tracks.getCount();
}

TrTrack* TrShotImpl::getTrack(int index) {
    return tracks[index].get();
}

Orvane::GenRect<double> TrShotImpl::getPatternRect(int track, float time) {
    return getTrack(track)->patternRect().getValue(intTime(time));
}

Orvane::GenRect<double> TrShotImpl::getSearchRect(int track, float time) {
    return getTrack(track)->searchRect().getValue(intTime(time));
}

Orvane::GenRect<double> TrShotImpl::getSearchedRect(int track, float time) {
    return getTrack(track)->searchedRect().getValue(intTime(time));
}

void TrShotImpl::setPatternRect(int track, const Orvane::GenRect<double>& rect) {
    getTrack(track)->patternRect().setValue(rect);
}

void TrShotImpl::setSearchRect(int track, const Orvane::GenRect<double>& rect) {
    getTrack(track)->searchRect().setValue(rect);
}

void TrShotImpl::setSearchedRect(int track, float time, const Orvane::GenRect<double>& rect) {
    getTrack(track)->searchedRect().setValue(intTime(time), rect);
}

Orvane::GenPoint<double> TrShotImpl::getPosition(int track, float time) {
    return getTrack(track)->position().getValue(intTime(time));
}

void TrShotImpl::setPosition(int track, float time, const Orvane::GenPoint<double>& p) {
    getTrack(track)->position().setValue(intTime(time), p);
}

bool TrShotImpl::isPositionKeyed(int track, float time) {
    return getTrack(track)->position().isKeyed(intTime(time));
}

bool TrShotImpl::isPositionKeyedByUser(int track, float time) {
    return getTrack(track)->isPositionKeyedByUser(intTime(time));
}

void TrShotImpl::setQuality(int track, float time, double quality) {
    getTrack(track)->quality().setValue(intTime(time), quality);
}

double TrShotImpl::getQuality(int track, float time) {
    return getTrack(track)->quality().getValue(intTime(time));
}

bool TrShotImpl::isQualityKeyed(int track, float time) {
    return getTrack(track)->quality().isKeyed(intTime(time));
}

AffineTransform TrShotImpl::getTransform(int track, float time) {
    return getTrack(track)->transform().getValue(intTime(time));
}

void TrShotImpl::setTransform(int track, float time, const AffineTransform& t) {
    getTrack(track)->transform().setValue(intTime(time), t);
}

dstring TrShotImpl::getColorMode(int track) {
    return getTrack(track)->getColorMode();
}

void TrShotImpl::setColorMode(int track, const dstring& mode) {
    getTrack(track)->setColorMode(mode);
}

// The settings below are shot-wide; the index is still checked so that a
// caller addressing a missing track hears about it.

double TrShotImpl::getFailureTolerance(int track) {
    getTrack(track);
    return failureTolerance;
}

void TrShotImpl::setFailureTolerance(int track, double tolerance) {
    getTrack(track);
    failureTolerance = tolerance;
}

dstring TrShotImpl::getFailureBehavior(int track) {
    getTrack(track);
    return failureBehavior;
}

void TrShotImpl::setFailureBehavior(int track, const dstring& behavior) {
    getTrack(track);
    failureBehavior = behavior;
}

bool TrShotImpl::getUseScale(int track) {
    getTrack(track);
    return useScale;
}

void TrShotImpl::setUseScale(int track, bool on) {
    getTrack(track);
    useScale = on;
}

bool TrShotImpl::getUseRotate(int track) {
    getTrack(track);
    return useRotate;
}

void TrShotImpl::setUseRotate(int track, bool on) {
    getTrack(track);
    useRotate = on;
}

bool TrShotImpl::getUseStretch(int track) {
    getTrack(track);
    return useStretch;
}

void TrShotImpl::setUseStretch(int track, bool on) {
    getTrack(track);
    useStretch = on;
}

void TrShotImpl::setSequence(TrSequence* s) {
    sequence = s;
}

TrSequence* TrShotImpl::getSequence() {
    return sequence.get();
}

TrTrack* TrShotImpl::addTrack(double x, double y) {
    Orvane::SmartPtr<TrTrack> track(new TrTrack());
    tracks.append(track);
    track->setOwner(this);
    track->position().setValue(Orvane::GenPoint<double>(x, y));
    return track.get();
}

void TrShotImpl::clearTracks() {
    tracks.clear();
}

int TrShotImpl::getFirstFrame() {
    return requireSequence().getFirstFrame();
}

int TrShotImpl::getLastFrame() {
    return requireSequence().getLastFrame();
}
