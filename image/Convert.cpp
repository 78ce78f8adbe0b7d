#include "image/Convert.h"

#include "image/Copy.h"
#include "image/DatatypeSwitch.h"

namespace Orvane {

namespace {

template <class S> void convertFrom(const S* src, void* dst, int dstDatatype, int count) {
    switchDatatype(dstDatatype, "dst datatype unknown", [&](auto d) {
        using D = typename decltype(d)::type;
        _convertSamples(src, static_cast<D*>(dst), count);
    });
}

template <class D> void convertInto(const void* src, int srcDatatype, D* dst, int count) {
    switchDatatype(srcDatatype, "src datatype unknown", [&](auto s) {
        using S = typename decltype(s)::type;
        _convertSamples(static_cast<const S*>(src), dst, count);
    });
}

} // namespace

void convertData(const unsigned char* src, void* dst, int dstDatatype, int count) {
    convertFrom(src, dst, dstDatatype, count);
}
void convertData(const unsigned short* src, void* dst, int dstDatatype, int count) {
    convertFrom(src, dst, dstDatatype, count);
}
void convertData(const unsigned int* src, void* dst, int dstDatatype, int count) {
    convertFrom(src, dst, dstDatatype, count);
}
void convertData(const float* src, void* dst, int dstDatatype, int count) {
    convertFrom(src, dst, dstDatatype, count);
}
void convertData(const double* src, void* dst, int dstDatatype, int count) {
    convertFrom(src, dst, dstDatatype, count);
}

void convertData(const void* src, int srcDatatype, unsigned char* dst, int count) {
    convertInto(src, srcDatatype, dst, count);
}
void convertData(const void* src, int srcDatatype, unsigned short* dst, int count) {
    convertInto(src, srcDatatype, dst, count);
}
void convertData(const void* src, int srcDatatype, unsigned int* dst, int count) {
    convertInto(src, srcDatatype, dst, count);
}
void convertData(const void* src, int srcDatatype, float* dst, int count) {
    convertInto(src, srcDatatype, dst, count);
}
void convertData(const void* src, int srcDatatype, double* dst, int count) {
    convertInto(src, srcDatatype, dst, count);
}

void convertData(const void* src, int srcDatatype, void* dst, int dstDatatype, int count) {
    switchDatatype(srcDatatype, "src datatype unknown", [&](auto s) {
        using S = typename decltype(s)::type;
        convertFrom(static_cast<const S*>(src), dst, dstDatatype, count);
    });
}

void copyImageData(const Image& src, const Image& dst) {
    switchDatatype(src.getFormat().getDatatype(), "src datatype unknown", [&](auto s) {
        switchDatatype(dst.getFormat().getDatatype(), "dst datatype unknown", [&](auto d) {
            using S = typename decltype(s)::type;
            using D = typename decltype(d)::type;
            _copyImageData<S, D>(src, dst);
        });
    });
}

Image convert(const Image& src, const Format& f) {
    if (src.getFormat() == f)
        return src;
    Image out(src.getBounds(), f);
    copy(src, out);
    return out;
}

Image convertToDatatype(const Image& src, int datatype) {
    return convert(src, src.getFormat().withDatatype(datatype));
}

} // namespace Orvane
