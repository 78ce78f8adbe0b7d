#include "track/TrTrack.h"

TrTrack::TrTrack()
    : positionAttr(this), patternRectAttr(this), searchRectAttr(this), searchedRectAttr(this),
      userPositionAttr(this), transformAttr(this), qualityAttr(this) {
    add(&positionAttr);
    add(&userPositionAttr);
    add(&patternRectAttr);
    add(&searchRectAttr);
    add(&searchedRectAttr);
    add(&transformAttr);
    add(&qualityAttr);
    positionAttr.setValue(Orvane::GenPoint<double>(0, 0));
    patternRectAttr.setValue(Orvane::GenRect<double>(-5, -5, 10, 10));
    searchRectAttr.setValue(Orvane::GenRect<double>(-10, -10, 20, 20));
    searchedRectAttr.setValue(Orvane::GenRect<double>(-10, -10, 20, 20));
    colorMode = "luminance";
}

TrTrack::~TrTrack() = default;

bool TrTrack::isPositionKeyedByUser(int frame) {
    if (!positionAttr.isKeyed(frame) || !userPositionAttr.isKeyed(frame))
        return false;
    // Exact comparison: the user's key counts only until the tracker
    // overwrites it with any other value.
    const Orvane::GenPoint<double> p = positionAttr.getValue(frame);
    const Orvane::GenPoint<double> u = userPositionAttr.getValue(frame);
    return p.x == u.x && p.y == u.y;
}
