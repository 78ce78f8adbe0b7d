#include "tools/python/TrPyFrames.h"

#include "base/Exception.h"
#include "image/DatatypeSwitch.h"
#include "image/Format.h"
#include "image/ImageRows.h"

#include <cstdint>
#include <cstring>

namespace py = pybind11;

namespace {

[[noreturn]] void refuse(const std::string& what) {
    throw IllegalArgumentException(dstring(what));
}

int datatypeOf(const py::array& a) {
    if (py::array_t<unsigned char>::check_(a))
        return Orvane::UB1;
    if (py::array_t<unsigned short>::check_(a))
        return Orvane::UB2;
    if (py::array_t<float>::check_(a))
        return Orvane::FLOAT;
    return Orvane::UNKNOWN;
}

const char* channelsOf(int count) {
    switch (count) {
    case 1:
        return "l";
    case 2:
        return "la";
    case 3:
        return "rgb";
    case 4:
        return "rgba";
    }
    return nullptr;
}

std::string shapeText(const py::array& a) {
    std::string s = "(";
    for (py::ssize_t i = 0; i < a.ndim(); ++i)
        s += (i ? ", " : "") + std::to_string(a.shape(i));
    return s + (a.ndim() == 1 ? ",)" : ")");
}

namespace TrPyCopy {

// Row by row through typed pointers; a row whose pixels lie packed, as
// numpy's usual C order gives them, is one memcpy.
template <class T> void _fromView(const TrPyFrames::View& v, Orvane::Image& img) {
    const Orvane::ImageRows<T> rows(img);
    const std::size_t packed = std::size_t(v.width) * v.channels * sizeof(T);
    const bool contiguous = v.channelStride == std::ptrdiff_t(sizeof(T)) &&
                            v.pixelStride == std::ptrdiff_t(v.channels * sizeof(T));
    for (int y = 0; y < v.height; ++y) {
        const unsigned char* src = v.data + y * v.rowStride;
        T* dst = rows.row(y);
        if (contiguous) {
            std::memcpy(dst, src, packed);
            continue;
        }
        for (int x = 0; x < v.width; ++x, src += v.pixelStride)
            for (int c = 0; c < v.channels; ++c)
                std::memcpy(dst++, src + c * v.channelStride, sizeof(T));
    }
}

template <class T> void _toPacked(const Orvane::Image& img, unsigned char* out) {
    const Orvane::ImageRows<const T> rows(img);
    const std::size_t packed =
        std::size_t(rows.width()) * img.getFormat().getNumChannels() * sizeof(T);
    for (int y = 0; y < rows.height(); ++y, out += packed)
        std::memcpy(out, rows.row(y), packed);
}

} // namespace TrPyCopy

} // namespace

TrPyFrames::View TrPyFrames::describe(const py::array& a, const std::string& what,
                                      bool twoChannels) {
    View v;
    v.datatype = datatypeOf(a);
    if (v.datatype == Orvane::UNKNOWN)
        refuse(what + ": unsupported dtype " + py::str(a.dtype()).cast<std::string>() +
               " (frames are uint8, uint16 or float32)");
    if (a.ndim() != 2 && a.ndim() != 3)
        refuse(what + ": shape " + shapeText(a) + " is not H×W or H×W×C");
    v.channels = a.ndim() == 3 ? int(a.shape(2)) : 1;
    if (v.channels != 1 && v.channels != 3 && v.channels != 4 && !(twoChannels && v.channels == 2))
        refuse(what + ": " + std::to_string(v.channels) + " channels (frames have " +
               (twoChannels ? "1, 2, 3 or 4)" : "1, 3 or 4)"));
    if (a.shape(0) <= 0 || a.shape(1) <= 0 || a.shape(0) > INT32_MAX / 4 ||
        a.shape(1) > INT32_MAX / 4)
        refuse(what + ": shape " + shapeText(a) + " holds no frame");
    v.height = int(a.shape(0));
    v.width = int(a.shape(1));
    v.rowStride = a.strides(0);
    v.pixelStride = a.strides(1);
    v.channelStride = a.ndim() == 3 ? a.strides(2) : py::ssize_t(a.itemsize());
    v.data = static_cast<const unsigned char*>(a.data());
    return v;
}

Orvane::Image TrPyFrames::copy(const View& v) {
    const Orvane::Format format(channelsOf(v.channels), v.datatype, false);
    Orvane::Image img(Orvane::GenRect<int>(0, 0, v.width, v.height), format);
    Orvane::switchDatatype(v.datatype, "frame datatype unknown", [&](auto s) {
        using T = typename decltype(s)::type;
        TrPyCopy::_fromView<T>(v, img);
    });
    return img;
}

py::dtype TrPyFrames::dtypeOf(int datatype) {
    return Orvane::switchDatatype(datatype, "image datatype unknown", [](auto s) {
        using T = typename decltype(s)::type;
        return py::dtype::of<T>();
    });
}

void TrPyFrames::copyInto(const Orvane::Image& image, unsigned char* out) {
    Orvane::switchDatatype(image.getFormat().getDatatype(), "image datatype unknown", [&](auto s) {
        using T = typename decltype(s)::type;
        TrPyCopy::_toPacked<T>(image, out);
    });
}
