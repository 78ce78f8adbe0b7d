#include "tools/track/TrHandedSequence.h"

#include "base/Exception.h"

#include <cmath>
#include <string>

namespace {

int frameNumber(float t) {
    return static_cast<int>(std::roundf(t));
}

} // namespace

TrHandedSequence::TrHandedSequence(int first, int last, int keep)
    : first(first), last(last), keep(keep < 1 ? 1 : keep) {}

void TrHandedSequence::hand(float frame, Orvane::Image image) {
    const int n = frameNumber(frame);
    for (auto it = frames.begin(); it != frames.end(); ++it)
        if (it->first == n) {
            frames.erase(it);
            break;
        }
    frames.emplace_back(n, std::move(image));
    while (int(frames.size()) > keep)
        frames.pop_front();
}

bool TrHandedSequence::holds(float t) const {
    const int n = frameNumber(t);
    for (const auto& f : frames)
        if (f.first == n)
            return true;
    return false;
}

const Orvane::Image& TrHandedSequence::held(float t) const {
    const int n = frameNumber(t);
    // Newest first: the tracker asks for the frame just handed.
    for (auto it = frames.rbegin(); it != frames.rend(); ++it)
        if (it->first == n)
            return it->second;
    throw IllegalArgumentException(
        dstring("frame " + std::to_string(n) + " was not handed to this sequence"));
}

Orvane::GenRect<int> TrHandedSequence::getBounds(float t) {
    return held(t).getBounds();
}

Orvane::Image TrHandedSequence::getFrame(float t) {
    return held(t);
}
