// The image-file loader on arbitrary bytes, read as the disk sequence reads
// a frame: the input after its first byte becomes a file whose extension the
// first byte picks, so that each format's reader sees it first (OpenImageIO
// tries the others when that one refuses it). A file that cannot be read
// must say so with the loader's exception, naming the file.

#include "FuzzScratch.h"

#include "base/Exception.h"
#include "image/ImageFile.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

// OpenImageIO's PNG reader loses a small error string when a file ends
// early or is damaged: libpng jumps out of PNGInput::PngReadCallback over
// the string. The leak is the dependency's, so the leak checker passes over
// that one function; the full unwind lets it see the reader's frame under
// the string's.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:PNGInput::PngReadCallback\n";
}
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
    return "fast_unwind_on_malloc=0";
}

namespace {

const char* const kExtensions[] = {"png", "tif", "exr", "dpx", "jpg"};

const fuzzsupport::Scratch& scratch() {
    static const fuzzsupport::Scratch s;
    return s;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    const size_t count = sizeof kExtensions / sizeof kExtensions[0];
    const std::string name = std::string("frame.") + kExtensions[data[0] % count];
    scratch().write(name, data + 1, size - 1);
    const std::string path = scratch().path(name);
    try {
        const Orvane::Image img = Orvane::readImage(dstring(path));
        if (img.getBounds().isEmpty())
            std::abort();
    } catch (const IllegalArgumentException& e) {
        const std::string message = e.getMessage().str();
        const std::string named = "cannot read \"" + path + "\": ";
        if (message.compare(0, named.size(), named) != 0 ||
            message.find('\n') != std::string::npos) {
            std::fprintf(stderr, "unexpected message: %s\n", message.c_str());
            std::abort();
        }
    }
    return 0;
}
