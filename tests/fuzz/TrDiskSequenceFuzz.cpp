// The "#" pattern of the disk sequence: the scan of a folder of numbered
// names for a pattern from the input, then the file name of a frame number
// from the input. A pattern that scans must name the same series again
// through getFilename, and a frame's name must hold the frame's number.
// The "@" and printf forms: a name they write for a frame must read back as
// that frame, and parsing their name back gives the same pattern.

#include "FuzzScratch.h"

#include "base/Exception.h"
#include "track/Sequence/TrDiskSequence.h"
#include "track/Sequence/TrFramePattern.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

namespace {

// Names that fit some patterns and not others: padded and unpadded numbers,
// signs, no digits, letters, a number past int, hashes in a name, a folder.
const fuzzsupport::Scratch& folder() {
    static const fuzzsupport::Scratch s;
    static const bool made = [] {
        for (const char* name :
             {"plate.0001.png", "plate.0002.png", "plate.0120.png", "plate.7.png", "a1.png",
              "a10.png", "shot.png", "x-5.tif", "x+3.tif", "xab.tif", "x99999999999.tif",
              "h#1#.exr", "2147483647", "-2147483648"})
            s.write(name, "");
        std::filesystem::create_directory(s.path("sub"));
        s.write("sub/s01.dpx", "");
        return true;
    }();
    (void)made;
    return s;
}

void checkSeries(TrDiskSequence& seq) {
    TrDiskSequence again(seq.getFilename());
    if (again.getFilename() != seq.getFilename() || again.getFirstFrame() != seq.getFirstFrame() ||
        again.getLastFrame() != seq.getLastFrame())
        std::abort();
}

// The name of `frame` built from getFilename's form (directory, an extra
// "/", prefix, one "#" per digit, suffix): the number, rounded, with zeros
// in front up to the width (a sign too counts) and never cut, in place of
// the hashes.
std::string expectedPath(const TrDiskSequence& seq, float t) {
    const std::string form = seq.getFilename().str();
    const size_t hashes = form.find_last_of('#') + 1 - static_cast<size_t>(seq.getWidth());
    const size_t extraSlash = form.find_last_of('/', hashes);
    std::string digits = std::to_string(std::lround(t));
    if (static_cast<int>(digits.size()) < seq.getWidth())
        digits.insert(0, seq.getWidth() - digits.size(), '0');
    return form.substr(0, extraSlash) + form.substr(extraSlash + 1, hashes - extraSlash - 1) +
           digits + form.substr(hashes + seq.getWidth());
}

void checkOtherForms(const std::string& pattern, int frame) {
    TrFramePattern form;
    try {
        form = TrFramePattern::parse(pattern);
    } catch (const IllegalArgumentException&) {
        return;
    }
    if (TrFramePattern::parse(form.directory + form.name()).name() != form.name())
        std::abort();
    if (form.marker == '#' || frame < 0)
        return;
    const std::string path = form.expand(frame);
    int back = 0;
    int digits = 0;
    if (!form.match(path.substr(form.directory.size()), back, digits) || back != frame)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4)
        return 0;
    int32_t frame = 0;
    std::memcpy(&frame, data, 4);
    const std::string name(reinterpret_cast<const char*>(data) + 4, size - 4);
    // The scan stays in the folder made for it: elsewhere it would depend on
    // whatever the machine holds.
    if (name.find("..") != std::string::npos || name.find('\0') != std::string::npos)
        return 0;
    checkOtherForms(name, frame);
    TrDiskSequence seq;
    try {
        seq.setFilename(dstring(folder().path(name)));
    } catch (const IllegalArgumentException&) {
        return 0;
    }
    checkSeries(seq);
    // Past 2^31 - 128 the frame rounds, as a float, to 2^31, which no int holds.
    const float t = static_cast<float>(frame);
    const bool inRange = t < 2147483648.0f;
    try {
        if (seq.getFramePath(t).str() != expectedPath(seq, t) || !inRange)
            std::abort();
    } catch (const IllegalArgumentException&) {
        if (inRange)
            std::abort();
    }
    // Bounds look the frame up in a table from the first frame on: frames
    // before it are refused, the others read their (empty, unreadable) file.
    try {
        seq.getBounds(t);
        std::abort();
    } catch (const IllegalArgumentException&) {
    }
    return 0;
}
