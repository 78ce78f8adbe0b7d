#include "krovel/KrMatchmove.h"

#include "base/Exception.h"
#include "base/dstring.h"
#include "krovel/KrLMSolver.h"
#include "krovel/KrMatchmoveProblem.h"

#include <cmath>

void KrMatchmove::addTrack(const KrMatchmoveTrack& track) {
    const int frames = track.weights.length();
    if (frames <= 0)
        throw IllegalArgumentException("KrMatchmove::addTrack: track has no frames");
    if (track.positions.rows() != frames || track.positions.cols() != 2)
        throw IllegalArgumentException(
            dstring::format("KrMatchmove::addTrack: positions are %d by %d, not %d by 2",
                            track.positions.rows(), track.positions.cols(), frames));
    if (tracks.size() > 0 && frames != frameCount)
        throw IllegalArgumentException(
            dstring::format("KrMatchmove::addTrack: track has %d frames, not %d like the first",
                            frames, frameCount));
    for (int f = 0; f < frames; ++f) {
        const float w = track.weights(f);
        if (std::isinf(w))
            throw IllegalArgumentException(
                dstring::format("KrMatchmove::addTrack: weight of frame %d is infinite", f));
        // A lost track's position is commonly left as garbage; only present
        // frames are read.
        if (w > 0 &&
            !(std::isfinite(track.positions(f, 0)) && std::isfinite(track.positions(f, 1))))
            throw IllegalArgumentException(
                dstring::format("KrMatchmove::addTrack: position of frame %d is not finite", f));
    }
    KrMatchmoveTrack own;
    own.positions = track.positions.copy(KrGenMatrix<float>::ColumnMajor);
    own.weights = track.weights.copy();
    tracks.append(own);
    trackCount = tracks.size();
    frameCount = frames;
}

void KrMatchmove::clearTracks() {
    tracks.clear();
    trackCount = 0;
    frameCount = 0;
    basePoints = KrGenMatrix<float>();
    baseWeights = KrGenVector<float>();
    homographies.clear();
    failedFrames.clear();
}

void KrMatchmove::setBaseFrame(int frame) {
    if (frame < 0 || (tracks.size() > 0 && frame >= frameCount))
        throw IllegalArgumentException(dstring::format(
            "KrMatchmove::setBaseFrame: frame %d outside the %d frames of the tracks", frame,
            frameCount));
    baseFrame = frame;
}

void KrMatchmove::solve() {
    if (tracks.size() == 0)
        throw IllegalArgumentException("KrMatchmove::solve: no tracks");
    // Tracks may have been added after the base frame was chosen.
    if (baseFrame >= tracks[0].weights.length())
        throw IllegalArgumentException(
            dstring::format("KrMatchmove::solve: base frame %d outside the %d frames of the tracks",
                            baseFrame, tracks[0].weights.length()));

    trackCount = tracks.size();
    frameCount = tracks[0].weights.length();
    // Fresh storage throughout: handles on an earlier solve's results keep them.
    basePoints = KrGenMatrix<float>(trackCount, 2);
    baseWeights = KrGenVector<float>(trackCount);
    homographies.clear();
    homographies.resize(frameCount);
    failedFrames.clear();

    KrGenMatrix<float> identity(3, 3);
    identity(0, 0) = identity(1, 1) = identity(2, 2) = 1;
    homographies[baseFrame] = identity;
    for (int t = 0; t < trackCount; ++t) {
        const KrMatchmoveTrack& track = tracks[t];
        basePoints(t, 0) = track.positions(baseFrame, 0);
        basePoints(t, 1) = track.positions(baseFrame, 1);
        baseWeights(t) = track.weights(baseFrame);
    }

    for (int f = baseFrame + 1; f < frameCount; ++f) {
        homographies[f] = homographies[f - 1].copy(KrGenMatrix<float>::ColumnMajor);
        solveFrame(f);
    }
    for (int f = baseFrame - 1; f >= 0; --f) {
        homographies[f] = homographies[f + 1].copy(KrGenMatrix<float>::ColumnMajor);
        solveFrame(f);
    }
}

void KrMatchmove::solveFrame(int frame) {
    KrMatchmoveProblem problem(this, frame);
    if (problem.getActiveCount() == 0)
        return;
    KrGenMatrix<float>& H = homographies[frame];
    KrGenVector<float> state;
    KrMatchmoveProblem::xToVector(H, state);
    KrLMSolver solver;
    solver.setProblem(&problem);
    solver.setGoal(problem.getGoal());
    solver.setState(state);
    try {
        solver.solve();
    } catch (const Exception&) {
        // Too few or degenerate tracks make the normal matrix singular once
        // the damping has faded. The state holds the last accepted step,
        // which only ever improved on the neighbour, so the clip goes on.
        failedFrames.append(frame);
    }
    H.unique();
    KrMatchmoveProblem::xToMatrix(solver.getState(), H);
}

const KrGenMatrix<float>& KrMatchmove::solvedHomography(const char* caller, int frame) const {
    if (frame < 0 || frame >= homographies.size())
        throw BadIndexException(dstring::format("%s: frame %d outside the %d solved frames", caller,
                                                frame, homographies.size()));
    return homographies[frame];
}

const KrGenMatrix<float>& KrMatchmove::getHomography(int frame) const {
    return solvedHomography("KrMatchmove::getHomography", frame);
}

void KrMatchmove::project(int frame, const KrGenVector<float>& p, KrGenVector<float>& out) const {
    const KrGenMatrix<float>& H = solvedHomography("KrMatchmove::project", frame);
    const double x = p(0);
    const double y = p(1);
    const double h0 = H(0, 0) * x + H(0, 1) * y + H(0, 2);
    const double h1 = H(1, 0) * x + H(1, 1) * y + H(1, 2);
    const double h2 = H(2, 0) * x + H(2, 1) * y + H(2, 2);
    out.resize(2);
    out(0) = float(h0 / h2);
    out(1) = float(h1 / h2);
}
