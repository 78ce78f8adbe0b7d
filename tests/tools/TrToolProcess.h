#pragma once

// Runs the built tavrix-track program through the shell, its standard output
// and error caught in files of the test's folder. The including test defines
// TAVRIX_TRACK_COMMAND, the program's path.

#include "tools/track/TrMovingPlate.h"

#include <sys/wait.h>

#include <cstdlib>
#include <string>

namespace tooltest {

using movingplate::readFile;

struct Result {
    int status;
    std::string out, err;
};

// The output files are quoted, as arguments holding "%", "#" or "@" must be.
inline Result run(const movingplate::TempDir& dir, const std::string& args) {
    const std::string cmd = "'" TAVRIX_TRACK_COMMAND "' " + args + " >'" + dir / "stdout.txt" +
                            "' 2>'" + dir / "stderr.txt" + "'";
    const int raw = std::system(cmd.c_str());
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, readFile(dir / "stdout.txt"),
            readFile(dir / "stderr.txt")};
}

} // namespace tooltest
