#pragma once

#include "base/SmartObject.h"

#include <string>
#include <vector>

class TrDiskSequence;

/// The whole tavrix-track command: reads the arguments (without the program
/// name), tracks, writes the results and returns the exit status: 0 when
/// done (lost tracks included), 1 when tracking failed part way (everything
/// tracked before is written), 2 for bad arguments or input. Errors are one
/// line on standard error, "tavrix-track: <what>".
int runTrackCommand(const std::vector<std::string>& args);

/// Opens the image sequence `pattern` names, in any of the tool's frame-name
/// forms ("####", "@@@@", "%04d"). Throws IllegalArgumentException with the
/// tool's one-line message when no file matches or the name is malformed.
Orvane::SmartPtr<TrDiskSequence> openFrameSequence(const std::string& pattern);
