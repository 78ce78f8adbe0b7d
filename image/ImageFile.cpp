#include "image/ImageFile.h"

#include "base/Exception.h"
#include "image/DatatypeSwitch.h"
#include "image/Format.h"
#include "image/GenRect.h"
#include "image/PngCheck.h"

#include <OpenImageIO/imageio.h>
#include <OpenImageIO/typedesc.h>

#include <algorithm>
#include <cctype>
#include <exception>
#include <memory>
#include <string>
#include <vector>

namespace Orvane {

namespace {

// OpenImageIO's messages may run over several lines, end in a newline or be
// empty; the exception text is one line.
std::string reasonText(std::string reason) {
    while (!reason.empty() && std::isspace(static_cast<unsigned char>(reason.back())))
        reason.pop_back();
    for (size_t i = reason.find('\n'); i != std::string::npos; i = reason.find('\n', i))
        reason.replace(i, 1, "; ");
    return reason.empty() ? "unknown error" : reason;
}

dstring readError(const dstring& path, const std::string& reason) {
    return dstring("cannot read \"" + path.str() + "\": " + reasonText(reason));
}

[[noreturn]] void writeFailure(const dstring& path, const std::string& reason) {
    throw IllegalArgumentException("cannot write \"" + path.str() + "\": " + reasonText(reason));
}

// The datatype a file's samples are read as; UNKNOWN for none.
int datatypeOf(const OIIO::TypeDesc& type) {
    switch (type.basetype) {
    case OIIO::TypeDesc::UINT8:
    case OIIO::TypeDesc::INT8:
        return UB1;
    case OIIO::TypeDesc::UINT16:
    case OIIO::TypeDesc::INT16:
        return UB2;
    case OIIO::TypeDesc::UINT32:
    case OIIO::TypeDesc::INT32:
        return UB4;
    case OIIO::TypeDesc::HALF:
    case OIIO::TypeDesc::FLOAT:
        return FLOAT;
    case OIIO::TypeDesc::DOUBLE:
        return DOUBLE;
    default:
        return UNKNOWN;
    }
}

OIIO::TypeDesc typeOf(int datatype) {
    return switchDatatype(datatype, "datatype", [](auto s) {
        using T = typename decltype(s)::type;
        return OIIO::TypeDesc(OIIO::BaseTypeFromC<T>::value);
    });
}

const char* const layouts[] = {"", "l", "la", "rgb", "rgba"};

// The library starts no threads: OpenImageIO's worker pool and OpenEXR's
// are both kept at zero workers, so files are coded in the caller's thread.
// These settings are process-wide, so they are made once, before any file.
void keepToCallerThread() {
    static const bool done = [] {
        OIIO::attribute("threads", 1);
        OIIO::attribute("exr_threads", -1);
        return true;
    }();
    (void)done;
}

bool readFile(const dstring& path, Image& out, std::string& reason) {
    keepToCallerThread();
    // libpng would print its own line about a damaged file before ours.
    if (!checkPngChunks(path.str(), reason))
        return false;
    // Straight alpha stays as stored instead of being premultiplied on read.
    OIIO::ImageSpec config;
    config.attribute("oiio:UnassociatedAlpha", 1);
    std::unique_ptr<OIIO::ImageInput> in = OIIO::ImageInput::open(path.str(), &config);
    if (!in) {
        reason = OIIO::geterror();
        return false;
    }
    in->threads(1);
    const OIIO::ImageSpec& spec = in->spec();
    if (spec.deep) {
        reason = "deep images are not supported";
        return false;
    }
    if (spec.depth > 1) {
        reason = "volume images are not supported";
        return false;
    }
    if (spec.width <= 0 || spec.height <= 0 || spec.nchannels <= 0) {
        reason = "the file holds no pixels";
        return false;
    }
    int datatype = datatypeOf(spec.format);
    if (datatype == UNKNOWN) {
        reason = std::string("unsupported sample type ") + spec.format.c_str();
        return false;
    }
    int nc = std::min(spec.nchannels, 4);
    bool straight = spec.get_int_attribute("oiio:UnassociatedAlpha", 0) != 0;
    bool alpha = spec.alpha_channel >= 0 && spec.alpha_channel < nc;

    Image img;
    try {
        img = Image(GenRect<int>(0, 0, spec.width, spec.height),
                    Format(layouts[nc], datatype, alpha && !straight));
    } catch (const std::bad_alloc&) {
        reason = "image too large";
        return false;
    }
    bool read = in->read_image(0, 0, 0, nc, typeOf(datatype), img.getBuffer(), OIIO::AutoStride,
                               img.getStride());
    // Some readers note a damaged file (a TIFF strip cut short) as an error
    // yet report success, so any error at all counts.
    reason = in->geterror();
    if (!read || !reason.empty())
        return false;
    out = img;
    return true;
}

// What one output format can hold: a bit per datatype code, and whether
// alpha may be written.
struct Writer {
    const char* name;
    unsigned datatypes;
    bool alpha;
};

const Writer* writerFor(const std::string& extension) {
    static const Writer png = {"png", 1u << UB1 | 1u << UB2, true};
    static const Writer tiff = {
        "tiff", 1u << UB1 | 1u << UB2 | 1u << UB4 | 1u << FLOAT | 1u << DOUBLE, true};
    static const Writer exr = {"exr", 1u << FLOAT, true};
    static const Writer jpeg = {"jpeg", 1u << UB1, false};
    if (extension == "png")
        return &png;
    if (extension == "tif" || extension == "tiff")
        return &tiff;
    if (extension == "exr")
        return &exr;
    if (extension == "jpg" || extension == "jpeg")
        return &jpeg;
    return nullptr;
}

std::string extensionOf(const std::string& path) {
    size_t slash = path.find_last_of('/');
    size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
        return std::string();
    std::string extension = path.substr(dot + 1);
    for (char& c : extension)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return extension;
}

} // namespace

bool loadFromFile(const dstring& path, Image& out) {
    std::string reason;
    return readFile(path, out, reason);
}

bool loadFromFile(const dstring& path, Image& out, dstring& error) {
    std::string reason;
    if (readFile(path, out, reason))
        return true;
    error = readError(path, reason);
    return false;
}

Image readImage(const dstring& path) {
    Image img;
    std::string reason;
    if (!readFile(path, img, reason))
        throw IllegalArgumentException(readError(path, reason));
    return img;
}

void saveToFile(const dstring& path, const Image& img) {
    if (!img.exists())
        writeFailure(path, "the image is empty");
    const std::string extension = extensionOf(path.str());
    const Writer* writer = writerFor(extension);
    if (!writer)
        writeFailure(path, "no writer for the extension \"" + extension +
                               "\"; use png, tif, tiff, exr, jpg or jpeg");

    const Format& f = img.getFormat();
    const std::string order = f.getChannelOrder().str();
    const int nc = f.getNumChannels();
    const std::vector<std::string> names[] = {
        {}, {"Y"}, {"Y", "A"}, {"R", "G", "B"}, {"R", "G", "B", "A"}};
    const char* const orders[] = {"", "L", "LA", "RGB", "RGBA"};
    if (nc < 1 || nc > 4 || order != orders[nc])
        writeFailure(path, "channels must be l, la, rgb or rgba, not " + f.str().str());
    const int datatype = f.getDatatype();
    if (datatype < UB1 || datatype > DOUBLE || !(writer->datatypes & 1u << datatype))
        writeFailure(path, std::string(writer->name) + " files cannot hold " +
                               datatypeString(datatype).str() + " samples");
    const bool alpha = nc == 2 || nc == 4;
    if (alpha && !writer->alpha)
        writeFailure(path, std::string(writer->name) + " files cannot hold alpha");

    const GenRect<int>& bounds = img.getBounds();
    if (bounds.isEmpty())
        writeFailure(path, "the image has no pixels");
    const OIIO::TypeDesc type = typeOf(datatype);
    OIIO::ImageSpec spec(bounds.w, bounds.h, nc, type);
    spec.channelnames = names[nc];
    spec.alpha_channel = alpha ? nc - 1 : -1;
    // Without this mark straight samples would be divided by alpha on the
    // way out, as if they were premultiplied.
    if (alpha && !f.isPremult())
        spec.attribute("oiio:UnassociatedAlpha", 1);

    keepToCallerThread();
    std::unique_ptr<OIIO::ImageOutput> out = OIIO::ImageOutput::create(path.str());
    if (!out)
        writeFailure(path, OIIO::geterror());
    out->threads(1);
    if (!out->open(path.str(), spec))
        writeFailure(path, out->geterror());
    bool written = out->write_image(type, img.getBuffer(), OIIO::AutoStride, img.getStride());
    std::string reason = written ? std::string() : out->geterror();
    if (!out->close() && written) {
        written = false;
        reason = out->geterror();
    }
    if (!written)
        writeFailure(path, reason);
}

} // namespace Orvane
