// tavrix-track: follows features through a numbered image sequence (or the
// built-in synthetic clip) and writes their paths. See --help.

#include "tools/track/TrTrackCommand.h"

#include <string>
#include <vector>

int main(int argc, char** argv) {
    return runTrackCommand(std::vector<std::string>(argv + 1, argv + argc));
}
