#pragma once

#include "base/SmartObject.h"
#include "image/Image.h"
#include "tools/track/TrHandedSequence.h"
#include "tools/track/TrTrackRun.h"

#include <deque>
#include <memory>
#include <string>
#include <vector>

/// A tracking pass driven one frame at a time by its caller: the engine of
/// the Python module. It places its tracks as tavrix-track does
/// (`placeTrack`, the same settings, groups of at most
/// TrTrackRun::groupSize tracks), is handed each frame in pass order, and
/// keeps each frame's values once the driver's lagged refinement has passed
/// it, so its results equal the tool's for the same frames.
///
/// Frames are `width` × `height` pixels with bounds at (0, 0); positions are
/// pixels, origin top-left, pixel centres at +0.5. It starts no threads and
/// is used by one thread at a time.
class TrPyTracker {
public:
    /// Throws IllegalArgumentException for a non-positive size, a tolerance
    /// outside -1 to 1 or an unknown failure behaviour.
    TrPyTracker(int width, int height, const TrRunSettings& settings);
    ~TrPyTracker();
    TrPyTracker(const TrPyTracker&) = delete;
    TrPyTracker& operator=(const TrPyTracker&) = delete;

    /// Adds a track for the next pass; an empty name becomes its number
    /// counted from 1. Throws IllegalArgumentException, with the texts of
    /// tavrix-track, for a point outside the frame, sizes that are not
    /// positive, a search area not larger than the pattern, an unknown colour
    /// mode, a name already taken, or a pass still open. Returns its index.
    int addTrack(TrTrackSpec spec);

    /// Opens a pass whose first frame is numbered `from`, going backward
    /// when `direction` is negative, from the tracks' placed positions.
    /// Forgets the results of the last pass.
    void start(int from, int direction);
    /// Tracks every living track into the next frame of the pass. `frame`
    /// must be the only handle on its pixels and have the tracker's bounds.
    /// A library error of one track loses that track; anything else ends
    /// the pass, keeping what was final, and is passed on.
    void step(Orvane::Image frame);
    /// Ends the pass: every frame stepped becomes final.
    void finish();

    bool isOpen() const { return open; }
    int getWidth() const { return width; }
    int getHeight() const { return height; }
    int getFrom() const { return from; }
    int getDirection() const { return direction; }
    /// Frames stepped in the current or last pass.
    int getSteps() const { return steps; }
    const TrRunSettings& getSettings() const { return settings; }
    const std::vector<TrTrackSpec>& getSpecs() const { return specs; }
    /// One per track: the final samples in pass order, and the loss.
    const std::vector<TrTrackResult>& getResults() const { return results; }
    /// Frames whose values are final, in pass order.
    int getFinalCount() const { return finalCount; }

private:
    struct Group;
    struct Lane {
        std::deque<TrSample> pending;
        bool alive = true;
    };

    void checkClosed(const char* what) const;
    void stepGroup(Group& g, int frame, const Orvane::GenRect<int>& bounds);
    bool isFinal(int i, int frame, bool passOver) const;
    TrSample finalSample(int i, const TrSample& estimate) const;
    void emit(bool passOver);

    int width;
    int height;
    TrRunSettings settings;
    std::vector<TrTrackSpec> specs;

    Orvane::SmartPtr<TrHandedSequence> sequence;
    std::vector<std::unique_ptr<Group>> groups;
    std::vector<Lane> lanes;
    std::vector<TrTrackResult> results;
    bool open = false;
    int from = 0;
    int direction = 1;
    int steps = 0;
    int finalCount = 0;
};
