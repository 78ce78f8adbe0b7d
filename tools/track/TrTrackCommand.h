#pragma once

#include <string>
#include <vector>

/// The whole tavrix-track command: reads the arguments (without the program
/// name), tracks, writes the results and returns the exit status: 0 when
/// done (lost tracks included), 1 when tracking failed part way (everything
/// tracked before is written), 2 for bad arguments or input. Errors are one
/// line on standard error, "tavrix-track: <what>".
int runTrackCommand(const std::vector<std::string>& args);
