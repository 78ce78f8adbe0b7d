#pragma once

#include "image/GenRect.h"
#include "image/Image.h"
#include "track/Sequence/TrSequence.h"

#include <vector>

/// Frames held in memory, numbered from 1, so that a pass times the tracker
/// and not a renderer or a decoder. The frames are shared, not copied.
class TrMemorySequence : public TrSequence {
public:
    explicit TrMemorySequence(std::vector<Orvane::Image> frames);

    int getFirstFrame() override { return 1; }
    int getLastFrame() override { return int(frames.size()); }
    Orvane::GenRect<int> getBounds(float t) override;
    /// Frame `t`, rounded; outside 1..getLastFrame() throws
    /// BadIndexException "TrMemorySequence: no such frame".
    Orvane::Image getFrame(float t) override;

private:
    std::vector<Orvane::Image> frames;
};
