#pragma once

#include "image/GenRect.h"
#include "tools/track/TrTrackRun.h"

#include <cstdio>
#include <vector>

class TrTestSequence;
struct TrCommandOptions;

/// The synthetic clip's known motion, computed from its definition rather
/// than read from any image: the saddle's centre starts mid-frame and steps
/// by (dx, dy) turned by dth more each frame, and the saddle turns by da a
/// frame about it.
namespace TrDemo {

/// The saddle's centre at frame `n`.
Orvane::GenPoint<double> saddleCentre(TrTestSequence& seq, int n);
/// Where the point that sits at `offset` from the centre in the first frame
/// is at frame `n`.
Orvane::GenPoint<double> saddlePoint(TrTestSequence& seq, int n,
                                     const Orvane::GenPoint<double>& offset);

/// The demo's tracks: the centre first, then four points around it whose
/// patterns still hold the centre, with the command's sizes and colour mode.
std::vector<TrTrackSpec> tracks(TrTestSequence& seq, const TrCommandOptions& o);

/// Prints the centre track's path against the known one, frame by frame,
/// and every track's largest error. Returns the centre's largest error in
/// pixels, or a negative number when the centre track was lost.
double report(std::FILE* out, TrTestSequence& seq, const std::vector<TrTrackResult>& results);

} // namespace TrDemo
