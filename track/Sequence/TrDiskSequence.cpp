#include "track/Sequence/TrDiskSequence.h"

#include "base/Exception.h"
#include "image/ImageFile.h"
#include "track/Sequence/TrFramePattern.h"
#include "track/Sequence/TrImageCache.h"

#include <dirent.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace {

struct DirCloser {
    void operator()(DIR* d) const { closedir(d); }
};

// The frame number of time `t`. A time whose rounding lies past the range of
// int, or is not a number, names no file: converting it would be undefined.
int frameNumber(float t) {
    const float n = std::roundf(t);
    if (!(n >= static_cast<float>(INT_MIN) && n < -static_cast<float>(INT_MIN)))
        throw IllegalArgumentException(dstring("frame ") + dstring::formatDouble(t) +
                                       " out of range");
    return static_cast<int>(n);
}

// The resolved directory with its trailing "/". The pattern names no
// existing file, so only its directory is resolved.
std::string resolveDirectory(const std::string& given) {
    char resolved[PATH_MAX];
    resolved[0] = 0;
    if (!realpath(given.c_str(), resolved)) {
        // On failure the C library leaves the part of the path that failed.
        std::string failing = resolved[0] ? std::string(resolved) : given;
        throw IllegalArgumentException(dstring("bad filename \"" + failing + "\""));
    }
    std::string dir = resolved;
    if (dir.empty() || dir.back() != '/')
        dir += '/';
    return dir;
}

// How the file name splits around its field. A "#" name keeps the original
// rule: the prefix ends at the first "#", the suffix starts after the last,
// and whatever lies between must convert to a number.
TrFramePattern splitName(const std::string& pattern, const std::string& name, bool allForms) {
    const bool other = name.find_first_of("@%") != std::string::npos;
    if (allForms && other && name.find('#') == std::string::npos) {
        TrFramePattern form = TrFramePattern::parse(pattern);
        form.directory.clear();
        return form;
    }
    TrFramePattern form;
    const size_t firstHash = name.find('#');
    if (firstHash != std::string::npos) {
        form.prefix = name.substr(0, firstHash);
        form.suffix = name.substr(name.find_last_of('#') + 1);
    } else {
        form.suffix = name;
    }
    return form;
}

// The frame numbers and the shortest digit count of the files that fit.
struct Scan {
    bool found = false;
    int first = 0;
    int last = 0;
    int digits = 0;

    void add(int frame, int count) {
        first = !found || frame < first ? frame : first;
        last = !found || frame > last ? frame : last;
        digits = !found || count < digits ? count : digits;
        found = true;
    }
};

// The frame of one directory entry under the "#" rule, or false when the
// entry does not fit around the number.
bool hashFrame(const TrFramePattern& form, const char* entry, int& frame, int& count) {
    const std::string& pre = form.prefix;
    const std::string& post = form.suffix;
    const size_t n = std::strlen(entry);
    if (n < pre.size() + post.size() || pre.compare(0, pre.size(), entry, pre.size()) ||
        post.compare(0, post.size(), entry + n - post.size(), post.size()))
        return false;
    count = static_cast<int>(n - pre.size() - post.size());
    frame = static_cast<int>(dstring(entry + pre.size(), count).toLong(10));
    return true;
}

Scan scanDirectory(const std::string& dir, const std::string& given, const TrFramePattern& form) {
    std::unique_ptr<DIR, DirCloser> d(opendir(dir.c_str()));
    if (!d)
        throw IllegalArgumentException(dstring("bad filename \"" + given + "\""));
    Scan scan;
    for (;;) {
        // readdir signals an error only through errno; the end leaves it alone.
        errno = 0;
        const dirent* ent = readdir(d.get());
        if (!ent) {
            if (errno != 0)
                throw Exception(dstring::format("readdir_r error %d", errno));
            break;
        }
        int frame = 0;
        int count = 0;
        if (form.marker == '#' ? hashFrame(form, ent->d_name, frame, count)
                               : form.match(ent->d_name, frame, count))
            scan.add(frame, count);
    }
    return scan;
}

} // namespace

TrDiskSequence::TrDiskSequence(const dstring& pattern) {
    setFilename(pattern);
}

void TrDiskSequence::setFilename(const dstring& pattern) {
    const std::string text = pattern.str();
    const size_t slash = text.find_last_of('/');
    const std::string given = slash == std::string::npos ? std::string(".")
                              : slash == 0               ? std::string("/")
                                                         : text.substr(0, slash);
    const std::string name = slash == std::string::npos ? text : text.substr(slash + 1);

    const std::string dir = resolveDirectory(given);
    const TrFramePattern form = splitName(text, name, allForms);
    const Scan scan = scanDirectory(dir, given, form);
    if (!scan.found)
        throw IllegalArgumentException("not found");

    directory = dir;
    prefix = form.prefix;
    suffix = form.suffix;
    firstFrame = scan.first;
    lastFrame = scan.last;
    // "@" and printf fields say their width; "#" takes the shortest number.
    width = form.marker == '#' ? scan.digits : form.width;
    marker = form.marker;
    bounds.clear();
}

dstring TrDiskSequence::getFilename() const {
    return directory + "/" + dstring(form().name());
}

TrFramePattern TrDiskSequence::form() const {
    TrFramePattern f;
    f.prefix = prefix.str();
    f.suffix = suffix.str();
    f.marker = marker;
    f.width = width;
    return f;
}

void TrDiskSequence::setFirstFrame(int frame) {
    if (frame != firstFrame)
        bounds.clear();
    firstFrame = frame;
}

dstring TrDiskSequence::getFramePath(float t) const {
    const int n = frameNumber(t);
    if (marker != '#')
        return directory + dstring(form().expand(n));
    std::string digits = std::to_string(n);
    if (static_cast<int>(digits.size()) < width)
        digits.insert(0, width - digits.size(), '0');
    return directory + prefix + dstring(digits) + suffix;
}

Orvane::Image TrDiskSequence::getFrame(float t) {
    const dstring path = getFramePath(t);
    TrImageCache& cache = TrImageCache::getInstance();
    TrCacheEntry entry;
    if (cache.get(path, entry)) {
        entry.stamp();
        return entry.getImage();
    }
    Orvane::Image img = Orvane::readImage(path);
    cache.put(path, img);
    return img;
}

Orvane::GenRect<int> TrDiskSequence::getBounds(float t) {
    // Two frame numbers can lie further apart than an int reaches: such a
    // frame is as far outside the table as one before the first.
    const int n = frameNumber(t);
    const long long offset = static_cast<long long>(n) - firstFrame;
    if (offset < INT_MIN || offset >= INT_MAX)
        throw BadIndexException("Array::operator[]");
    const int i = static_cast<int>(offset);
    if (i < bounds.getCount() && !bounds[i].isEmpty())
        return bounds[i];
    // The frame is read before the table grows, so a frame that cannot be
    // read leaves the table as it was.
    const Orvane::GenRect<int> r = getFrame(static_cast<float>(n)).getBounds();
    if (bounds.getCount() <= i)
        bounds.resize(i + 1);
    bounds[i] = r;
    return r;
}
