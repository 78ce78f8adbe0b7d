#include "track/Sequence/TrDiskSequence.h"

#include "base/Exception.h"
#include "image/ImageFile.h"
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

} // namespace

TrDiskSequence::TrDiskSequence(const dstring& pattern) {
    setFilename(pattern);
}

void TrDiskSequence::setFilename(const dstring& pattern) {
    // The pattern names no existing file, so only its directory is resolved.
    const std::string text = pattern.str();
    const size_t slash = text.find_last_of('/');
    const std::string given = slash == std::string::npos ? std::string(".")
                              : slash == 0               ? std::string("/")
                                                         : text.substr(0, slash);
    const std::string name = slash == std::string::npos ? text : text.substr(slash + 1);

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

    const size_t firstHash = name.find('#');
    const std::string pre =
        firstHash == std::string::npos ? std::string() : name.substr(0, firstHash);
    const std::string post =
        firstHash == std::string::npos ? name : name.substr(name.find_last_of('#') + 1);

    std::unique_ptr<DIR, DirCloser> d(opendir(dir.c_str()));
    if (!d)
        throw IllegalArgumentException(dstring("bad filename \"" + given + "\""));

    bool found = false;
    int first = 0;
    int last = 0;
    int digits = 0;
    for (;;) {
        // readdir signals an error only through errno; the end leaves it alone.
        errno = 0;
        const dirent* ent = readdir(d.get());
        if (!ent) {
            if (errno != 0)
                throw Exception(dstring::format("readdir_r error %d", errno));
            break;
        }
        const size_t n = std::strlen(ent->d_name);
        if (n < pre.size() + post.size() || pre.compare(0, pre.size(), ent->d_name, pre.size()) ||
            post.compare(0, post.size(), ent->d_name + n - post.size(), post.size()))
            continue;
        const int count = static_cast<int>(n - pre.size() - post.size());
        const int frame = static_cast<int>(dstring(ent->d_name + pre.size(), count).toLong(10));
        if (!found) {
            found = true;
            first = last = frame;
            digits = count;
        } else {
            first = frame < first ? frame : first;
            last = frame > last ? frame : last;
            digits = count < digits ? count : digits;
        }
    }
    if (!found)
        throw IllegalArgumentException("not found");

    directory = dir;
    prefix = pre;
    suffix = post;
    firstFrame = first;
    lastFrame = last;
    width = digits;
    bounds.clear();
}

dstring TrDiskSequence::getFilename() const {
    return directory + "/" + prefix + dstring(std::string(width, '#')) + suffix;
}

void TrDiskSequence::setFirstFrame(int frame) {
    if (frame != firstFrame)
        bounds.clear();
    firstFrame = frame;
}

dstring TrDiskSequence::getFramePath(float t) const {
    std::string digits = std::to_string(frameNumber(t));
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
