#pragma once

#include "base/Array.h"
#include "krovel/KrGenMatrix.h"
#include "krovel/KrGenVector.h"

#include <cstdint>

/// One tracked point through a clip: its position and a confidence weight in
/// every frame.
struct KrMatchmoveTrack {
    /// An empty track (no frames).
    KrMatchmoveTrack() = default;
    /// Shares the caller's storage; KrMatchmove::addTrack takes its own copy.
    KrMatchmoveTrack(const KrGenMatrix<float>& positions, const KrGenVector<float>& weights)
        : positions(positions), weights(weights) {}

    /// One row per frame: (x, y).
    KrGenMatrix<float> positions;
    /// One weight per frame. A weight of 0 or less (or NaN) means that the
    /// track is absent from that frame, and its position there is not read.
    KrGenVector<float> weights;
};

/// Fits, for every frame of a clip, the planar projective transform (a 3 by 3
/// homography, H(2, 2) = 1) that carries the tracks' positions in a base
/// frame onto their positions in that frame.
///
/// Use: `addTrack` for each track (all of one frame count), `setBaseFrame`,
/// `solve`, then read `getHomography` or map points with `project`. Each
/// frame is fitted by KrLMSolver from its neighbour's result, outward from
/// the base frame in both directions; an observation's squared error counts
/// with its weight squared. A frame in which no track is present both there
/// and in the base frame keeps its neighbour's homography.
///
/// With fewer than four present tracks (or with degenerate ones, such as
/// three in a line) a frame is underdetermined: the damped solve moves from
/// the neighbour's homography towards one that fits those tracks, and the
/// solver may stop on "inverse: singular matrix" once its damping has faded.
/// Such a frame keeps the last step the solver accepted and is listed by
/// `getFailedFrames`; the solve goes on with the next frame.
class KrMatchmove {
public:
    KrMatchmove() = default;
    virtual ~KrMatchmove() = default;

    /// Appends a private copy of `track`, so later writes to the caller's
    /// matrices do not reach the fit. Throws IllegalArgumentException when
    /// the track has no frames, when its positions are not frames by 2 (one
    /// row per weight), when its frame count differs from the first track's,
    /// when a weight is infinite, or when a position is not finite in a frame
    /// where the track is present. Nothing is added then.
    void addTrack(const KrMatchmoveTrack& track);
    /// Removes every track and every result.
    void clearTracks();
    int getTrackCount() const { return tracks.size(); }
    /// The track `i` as stored; a bad index throws BadIndexException.
    const KrMatchmoveTrack& getTrack(int i) const { return tracks[i]; }

    /// The frame whose homography is the identity; 0 by default. A negative
    /// frame, or with tracks added one at or past their frame count, throws
    /// IllegalArgumentException; `solve` checks it again.
    void setBaseFrame(int frame);
    int getBaseFrame() const { return baseFrame; }
    /// The frame count of the tracks, 0 before the first one is added.
    int getFrameCount() const { return frameCount; }

    /// Fits every frame. Without tracks, or with a base frame past the last
    /// frame, throws IllegalArgumentException before anything changes.
    /// Results of an earlier solve are replaced by fresh matrices, so handles
    /// a caller holds on them keep the old values.
    void solve();

    /// After `solve`: the frames, in solving order, whose fit the solver
    /// ended with an error ("inverse: singular matrix" or "nan"). Each holds
    /// the last state the solver accepted, which may be its neighbour's.
    const Array<int>& getFailedFrames() const { return failedFrames; }

    /// The homography of `frame` after `solve`, 3 by 3, H(2, 2) = 1. It maps
    /// a position in the base frame to the position in `frame`. A frame
    /// outside the solved range throws BadIndexException.
    const KrGenMatrix<float>& getHomography(int frame) const;

    /// Maps `p` = (x, y) in the base frame into `frame`: `out`, resized to 2,
    /// is (h0 / h2, h1 / h2) with (h0, h1, h2) = H · (x, y, 1), computed in
    /// double. A frame outside the solved range throws BadIndexException.
    void project(int frame, const KrGenVector<float>& p, KrGenVector<float>& out) const;

    /// After `solve`: each track's position in the base frame, track count
    /// by 2, and its weight there.
    const KrGenMatrix<float>& getBasePoints() const { return basePoints; }
    const KrGenVector<float>& getBaseWeights() const { return baseWeights; }

protected:
    /// Fits `frame` from the homography already stored for it (its
    /// neighbour's copy). `solve` calls it once per frame other than the base
    /// frame, in solving order; a subclass may observe or replace it.
    virtual void solveFrame(int frame);

private:
    const KrGenMatrix<float>& solvedHomography(const char* caller, int frame) const;

    Array<KrMatchmoveTrack> tracks;
    int32_t baseFrame = 0;
    int32_t trackCount = 0;
    int32_t frameCount = 0;
    KrGenMatrix<float> basePoints;
    KrGenVector<float> baseWeights;
    Array<KrGenMatrix<float>> homographies;
    Array<int> failedFrames;
};
