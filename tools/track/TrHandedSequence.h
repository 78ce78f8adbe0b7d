#pragma once

#include "image/GenRect.h"
#include "image/Image.h"
#include "track/Sequence/TrSequence.h"

#include <deque>
#include <utility>

/// The frames of a pass as they are handed over, for a tracker that runs on
/// a thread of its own. It holds the last few frames handed to it, never
/// reads a file and never touches the image cache, so the thread that uses
/// it shares nothing with the others.
///
/// The tracker reads the frame it steps into and, at the first frame of the
/// pass, that frame again; the last `keep` frames cover both with room for
/// any later reader that lags a frame or two.
class TrHandedSequence : public TrSequence {
public:
    /// Frames `first` to `last`, as the disk sequence names them, holding at
    /// most `keep` (at least 1) of them at a time.
    TrHandedSequence(int first, int last, int keep = 8);

    /// Takes frame `frame` (rounded). The handle must be the only one on its
    /// pixels: images count references with plain integers, so the pixels
    /// of another thread's handle must never be shared. A frame handed again
    /// replaces the one held; past `keep` frames the oldest handed goes.
    void hand(float frame, Orvane::Image image);
    /// Whether frame `t` (rounded) is held.
    bool holds(float t) const;
    /// Lets go of every frame held.
    void clear() { frames.clear(); }
    int getKeep() const { return keep; }

    int getFirstFrame() override { return first; }
    int getLastFrame() override { return last; }
    /// The bounds of a held frame; any other throws as getFrame does.
    Orvane::GenRect<int> getBounds(float t) override;
    /// A held frame, shared with the sequence. Any other throws
    /// IllegalArgumentException "frame <n> was not handed to this sequence".
    Orvane::Image getFrame(float t) override;

private:
    const Orvane::Image& held(float t) const;

    int first;
    int last;
    int keep;
    /// Oldest handed first.
    std::deque<std::pair<int, Orvane::Image>> frames;
};
