#include "track/Sequence/TrSequence.h"

#include "base/Exception.h"

int TrSequence::getFirstFrame() {
    return 1;
}

Orvane::Image TrSequence::getImage(float t, const Orvane::GenRect<int>& r) {
    return getFrame(t).clip(r);
}

Orvane::Image TrSequence::getFrame(float) {
    Orvane::_unsupported("track/Sequence", 183, "subclass must implement");
}
