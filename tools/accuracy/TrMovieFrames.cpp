#include "tools/accuracy/TrMovieFrames.h"

#include "base/Exception.h"
#include "image/Format.h"

#include <OpenImageIO/imageio.h>

#include <memory>

namespace {

[[noreturn]] void _fail(const std::string& path, const std::string& reason) {
    throw IllegalArgumentException(
        dstring(("cannot read movie \"" + path + "\": " + reason).c_str()));
}

} // namespace

std::vector<Orvane::Image> readMovieFrames(const std::string& path, int first, int count) {
    std::unique_ptr<OIIO::ImageInput> in = OIIO::ImageInput::open(path);
    if (!in)
        _fail(path, OIIO::geterror());
    std::vector<Orvane::Image> frames;
    for (int k = first; k < first + count; ++k) {
        if (!in->seek_subimage(k, 0))
            _fail(path, "it has no frame " + std::to_string(k));
        const OIIO::ImageSpec& spec = in->spec();
        if (spec.nchannels != 3)
            _fail(path, "frames are not rgb");
        Orvane::Image frame(Orvane::GenRect<int>(0, 0, spec.width, spec.height),
                            Orvane::Format::getRGB());
        if (!in->read_image(k, 0, 0, 3, OIIO::TypeDesc::UINT8, frame.getBuffer(), OIIO::AutoStride,
                            frame.getStride()))
            _fail(path, in->geterror());
        frames.push_back(frame);
    }
    return frames;
}
