// The command-line parser of tavrix-track on arbitrary arguments: the input
// split at NUL and newline bytes. Errors must be one line, as the tool
// promises; what parses must be a usable set of tracks; and any number the
// strict readers accept must read back the same from the text that messages
// show it as.

#include "FuzzScratch.h"

#include "base/Exception.h"
#include "tools/track/TrCommandOptions.h"
#include "tools/track/TrNumbers.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

// Track files for --tracks to find by bare name: two that load, one whose
// name the first --track takes, and one that does not parse.
const fuzzsupport::Scratch& trackFiles() {
    static const fuzzsupport::Scratch s;
    static const bool made = [] {
        s.write("a.json", R"({"tracks": [{"name": "corner", "position": [812.5, 440.5],
            "pattern": [21, 21], "search": [61, 61], "colorMode": "red"},
            {"position": [3, 4], "pattern": [9, 9]}]})");
        s.write("b.json", R"({"tracks": [{"name": "3", "position": [1, 2]}]})");
        s.write("c.json", R"({"tracks": [{"position": [1, 2],}]})");
        return true;
    }();
    (void)made;
    return s;
}

// The track files' folder is the working directory while the arguments are
// read; the fuzzer's own paths (its corpus) are relative to the one before.
class InFolder {
public:
    explicit InFolder(const std::string& dir) : home(open(".", O_RDONLY | O_DIRECTORY)) {
        if (home < 0 || chdir(dir.c_str()) != 0)
            std::abort();
    }
    ~InFolder() {
        if (fchdir(home) != 0)
            std::abort();
        close(home);
    }
    InFolder(const InFolder&) = delete;
    InFolder& operator=(const InFolder&) = delete;

private:
    int home;
};

std::vector<std::string> splitArguments(const uint8_t* data, size_t size) {
    std::vector<std::string> args(1);
    for (size_t i = 0; i < size; ++i) {
        if (data[i] == 0 || data[i] == '\n')
            args.emplace_back();
        else
            args.back() += static_cast<char>(data[i]);
    }
    return args;
}

void checkNumber(const std::string& text) {
    double v = 0;
    try {
        v = TrNumbers::parseDouble(text, "n");
    } catch (const IllegalArgumentException&) {
        return;
    }
    if (TrNumbers::parseDouble(TrNumbers::text(v), "n") != v)
        std::abort();
}

void checkParsed(const TrCommandOptions& o) {
    // --help and --version answer without anything to track.
    if (o.help || o.version)
        return;
    if (o.tracks.empty() && !o.demo)
        std::abort();
    for (const TrTrackSpec& s : o.tracks)
        if (s.name.empty() || s.colorMode.empty() || s.patternWidth < 1 || s.patternHeight < 1 ||
            s.searchWidth <= s.patternWidth || s.searchHeight <= s.patternHeight)
            std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::vector<std::string> args = splitArguments(data, size);
    // Files are read by name: a path elsewhere could name a device that
    // never ends, which says nothing about the parser.
    for (const std::string& arg : args) {
        if (arg.find('/') != std::string::npos)
            return 0;
        checkNumber(arg);
    }
    const InFolder in(trackFiles().dir);
    try {
        checkParsed(TrCommandOptions::parse(args));
    } catch (const IllegalArgumentException& e) {
        if (e.getMessage().str().find('\n') != std::string::npos)
            std::abort();
    }
    return 0;
}
