#include "track/TrShotImpl.h"

#include "base/Exception.h"

#include <cmath>

TrShotImpl::TrShotImpl() : TrTrackListShot({false, true, false}) {}

TrShotImpl::~TrShotImpl() = default;

int TrShotImpl::intTime(float time) {
    // std::round takes halves away from zero: 2.5 -> 3, -2.5 -> -3.
    return static_cast<int>(std::round(time));
}

int TrShotImpl::frameOf(float time) const {
    return intTime(time);
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
    return clip ? clipView.clip(frame, rect) : frame;
}

void TrShotImpl::checkShotWideIndex(int track) {
    getTrack(track);
}

double TrShotImpl::getFailureTolerance(int track) {
    checkShotWideIndex(track);
    return failureTolerance;
}

void TrShotImpl::setFailureTolerance(int track, double tolerance) {
    checkShotWideIndex(track);
    failureTolerance = tolerance;
}

dstring TrShotImpl::getFailureBehavior(int track) {
    checkShotWideIndex(track);
    return failureBehavior;
}

void TrShotImpl::setFailureBehavior(int track, const dstring& behavior) {
    checkShotWideIndex(track);
    failureBehavior = behavior;
}

void TrShotImpl::setSequence(TrSequence* s) {
    sequence = s;
}

TrSequence* TrShotImpl::getSequence() {
    return sequence.get();
}

TrTrack* TrShotImpl::addTrack(double x, double y) {
    return insertTrack(getTrackCount(), x, y);
}

int TrShotImpl::getFirstFrame() {
    return requireSequence().getFirstFrame();
}

int TrShotImpl::getLastFrame() {
    return requireSequence().getLastFrame();
}
