#include "tools/accuracy/TrMemorySequence.h"

#include "base/Exception.h"

#include <cmath>
#include <utility>

TrMemorySequence::TrMemorySequence(std::vector<Orvane::Image> frames) : frames(std::move(frames)) {}

Orvane::GenRect<int> TrMemorySequence::getBounds(float t) {
    return getFrame(t).getBounds();
}

Orvane::Image TrMemorySequence::getFrame(float t) {
    const long n = std::lround(t);
    if (n < 1 || n > long(frames.size()))
        throw BadIndexException("TrMemorySequence: no such frame");
    return frames[std::size_t(n - 1)];
}
