#include "track/TrTrackListShot.h"

using Orvane::GenPoint;
using Orvane::GenRect;

TrTrackListShot::TrTrackListShot(const UseSwitches& defaults) : use(defaults) {}

TrTrackListShot::~TrTrackListShot() = default;

TrTrack* TrTrackListShot::getTrack(int index) {
    return tracks[index].get();
}

int TrTrackListShot::getTrackCount() {
    return tracks.getCount();
}

void TrTrackListShot::clearTracks() {
    tracks.clear();
}

TrTrack* TrTrackListShot::insertTrack(int index, double x, double y) {
    // Held here first, so a failed insert frees the new track.
    Orvane::SmartPtr<TrTrack> track(new TrTrack);
    tracks.insert(track, index);
    track->setOwner(this);
    track->position().setValue(GenPoint<double>(x, y));
    return track.get();
}

void TrTrackListShot::removeTrack(int index) {
    tracks.remove(index);
}

void TrTrackListShot::checkShotWideIndex(int) {}

bool TrTrackListShot::getTracking() {
    return tracking;
}

void TrTrackListShot::setTracking(bool on) {
    tracking = on;
}

// ---------------------------------------------------------------------------
// Per-track values: the track's attributes at the shot's frame

GenRect<double> TrTrackListShot::getPatternRect(int track, float time) {
    return getTrack(track)->patternRect().getValue(frameOf(time));
}

GenRect<double> TrTrackListShot::getSearchRect(int track, float time) {
    return getTrack(track)->searchRect().getValue(frameOf(time));
}

GenRect<double> TrTrackListShot::getSearchedRect(int track, float time) {
    return getTrack(track)->searchedRect().getValue(frameOf(time));
}

void TrTrackListShot::setPatternRect(int track, const GenRect<double>& rect) {
    getTrack(track)->patternRect().setValue(rect);
}

void TrTrackListShot::setSearchRect(int track, const GenRect<double>& rect) {
    getTrack(track)->searchRect().setValue(rect);
}

void TrTrackListShot::setSearchedRect(int track, float time, const GenRect<double>& rect) {
    getTrack(track)->searchedRect().setValue(frameOf(time), rect);
}

GenPoint<double> TrTrackListShot::getPosition(int track, float time) {
    return getTrack(track)->position().getValue(frameOf(time));
}

void TrTrackListShot::setPosition(int track, float time, const GenPoint<double>& p) {
    getTrack(track)->position().setValue(frameOf(time), p);
}

bool TrTrackListShot::isPositionKeyed(int track, float time) {
    return getTrack(track)->position().isKeyed(frameOf(time));
}

bool TrTrackListShot::isPositionKeyedByUser(int track, float time) {
    return getTrack(track)->isPositionKeyedByUser(frameOf(time));
}

void TrTrackListShot::setQuality(int track, float time, double quality) {
    getTrack(track)->quality().setValue(frameOf(time), quality);
}

double TrTrackListShot::getQuality(int track, float time) {
    return getTrack(track)->quality().getValue(frameOf(time));
}

bool TrTrackListShot::isQualityKeyed(int track, float time) {
    return getTrack(track)->quality().isKeyed(frameOf(time));
}

AffineTransform TrTrackListShot::getTransform(int track, float time) {
    return getTrack(track)->transform().getValue(frameOf(time));
}

void TrTrackListShot::setTransform(int track, float time, const AffineTransform& t) {
    getTrack(track)->transform().setValue(frameOf(time), t);
}

dstring TrTrackListShot::getColorMode(int track) {
    return getTrack(track)->getColorMode();
}

void TrTrackListShot::setColorMode(int track, const dstring& mode) {
    getTrack(track)->setColorMode(mode);
}

double TrTrackListShot::getFailureTolerance(int track) {
    return getTrack(track)->getFailureTolerance();
}

void TrTrackListShot::setFailureTolerance(int track, double tolerance) {
    getTrack(track)->setFailureTolerance(tolerance);
}

dstring TrTrackListShot::getFailureBehavior(int track) {
    return getTrack(track)->getFailureBehavior();
}

void TrTrackListShot::setFailureBehavior(int track, const dstring& behavior) {
    getTrack(track)->setFailureBehavior(behavior);
}

// ---------------------------------------------------------------------------
// Use-switches: one set for the whole shot

bool& TrTrackListShot::useSwitch(bool UseSwitches::*which, int track) {
    checkShotWideIndex(track);
    return use.*which;
}

bool TrTrackListShot::getUseScale(int track) {
    return useSwitch(&UseSwitches::scale, track);
}

void TrTrackListShot::setUseScale(int track, bool on) {
    useSwitch(&UseSwitches::scale, track) = on;
}

bool TrTrackListShot::getUseRotate(int track) {
    return useSwitch(&UseSwitches::rotate, track);
}

void TrTrackListShot::setUseRotate(int track, bool on) {
    useSwitch(&UseSwitches::rotate, track) = on;
}

bool TrTrackListShot::getUseStretch(int track) {
    return useSwitch(&UseSwitches::stretch, track);
}

void TrTrackListShot::setUseStretch(int track, bool on) {
    useSwitch(&UseSwitches::stretch, track) = on;
}
