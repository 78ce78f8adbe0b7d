#pragma once

#include "base/Exception.h"
#include "image/Format.h"
#include "image/GenRect.h"
#include "image/Image.h"
#include "image/ImageRows.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace Orvane {

// ---- Sample conversion table
//
// Fixed-point samples stand for 0..1 as 0..maximum. Float to fixed clamps
// (larger of 0 and the value first, so a NaN reads as 0) and truncates.

/// One sample of type S as type D. Only the identity and the twenty
/// specialisations below exist; any other pair fails to compile.
template <class S, class D> inline D _convertSample(S v) {
    static_assert(std::is_same<S, D>::value, "no conversion between these sample types");
    return v;
}

template <> inline unsigned short _convertSample<unsigned char, unsigned short>(unsigned char v) {
    return static_cast<unsigned short>((v << 8) | v);
}
template <> inline unsigned int _convertSample<unsigned char, unsigned int>(unsigned char v) {
    return v * 0x01010101u;
}
template <> inline float _convertSample<unsigned char, float>(unsigned char v) {
    return static_cast<float>(v) / 255.0f;
}
template <> inline double _convertSample<unsigned char, double>(unsigned char v) {
    return v / 255.0;
}

template <> inline unsigned char _convertSample<unsigned short, unsigned char>(unsigned short v) {
    return static_cast<unsigned char>(v >> 8);
}
template <> inline unsigned int _convertSample<unsigned short, unsigned int>(unsigned short v) {
    return (static_cast<unsigned int>(v) << 16) | v;
}
template <> inline float _convertSample<unsigned short, float>(unsigned short v) {
    return static_cast<float>(v) / 65535.0f;
}
template <> inline double _convertSample<unsigned short, double>(unsigned short v) {
    return v / 65535.0;
}

template <> inline unsigned char _convertSample<unsigned int, unsigned char>(unsigned int v) {
    return static_cast<unsigned char>(v >> 24);
}
template <> inline unsigned short _convertSample<unsigned int, unsigned short>(unsigned int v) {
    return static_cast<unsigned short>(v >> 16);
}
// Scaled by 2^-32 (the single-precision constant 0x2F800000), not divided by
// 2^32 - 1 as the double conversion is: the maximum still reads as 1.0
// because 4294967295 rounds up to 2^32 in single precision.
template <> inline float _convertSample<unsigned int, float>(unsigned int v) {
    return static_cast<float>(v) * 2.3283064e-10f;
}
template <> inline double _convertSample<unsigned int, double>(unsigned int v) {
    return v / 4294967295.0;
}

template <> inline unsigned char _convertSample<float, unsigned char>(float f) {
    return static_cast<unsigned char>(std::min(std::max(0.0f, f * 255.0f), 255.0f));
}
template <> inline unsigned short _convertSample<float, unsigned short>(float f) {
    return static_cast<unsigned short>(std::min(std::max(0.0f, f * 65535.0f), 65535.0f));
}
// Scaled and clamped to 2^32 in single precision, so 1.0 and above land on
// 2^32, whose low 32 bits are 0: a full float sample becomes UB4 0.
template <> inline unsigned int _convertSample<float, unsigned int>(float f) {
    float c = std::min(std::max(0.0f, f * 4294967296.0f), 4294967296.0f);
    return static_cast<unsigned int>(static_cast<int64_t>(c));
}
template <> inline double _convertSample<float, double>(float f) {
    return f;
}

template <> inline unsigned char _convertSample<double, unsigned char>(double d) {
    return static_cast<unsigned char>(std::min(std::max(0.0, d * 255.0), 255.0));
}
template <> inline unsigned short _convertSample<double, unsigned short>(double d) {
    return static_cast<unsigned short>(std::min(std::max(0.0, d * 65535.0), 65535.0));
}
template <> inline unsigned int _convertSample<double, unsigned int>(double d) {
    return static_cast<unsigned int>(std::min(std::max(0.0, d * 4294967295.0), 4294967295.0));
}
template <> inline float _convertSample<double, float>(double d) {
    return static_cast<float>(d);
}

/// Converts `count` samples by the table; samples of the same type are
/// moved bytewise (overlap allowed).
template <class S, class D> inline void _convertSamples(const S* src, D* dst, int count) {
    if (count <= 0)
        return;
    if constexpr (std::is_same<S, D>::value) {
        std::memmove(dst, src, sizeof(S) * static_cast<size_t>(count));
    } else {
        for (int i = 0; i < count; ++i)
            dst[i] = _convertSample<S, D>(src[i]);
    }
}

// ---- Raw sample arrays

/// Converts `count` samples from `src` into `dst`, whose datatype is
/// `dstDatatype`. IllegalArgumentException "dst datatype unknown" for a code
/// outside UB1..DOUBLE. The caller owns both arrays.
void convertData(const unsigned char* src, void* dst, int dstDatatype, int count);
void convertData(const unsigned short* src, void* dst, int dstDatatype, int count);
void convertData(const unsigned int* src, void* dst, int dstDatatype, int count);
void convertData(const float* src, void* dst, int dstDatatype, int count);
void convertData(const double* src, void* dst, int dstDatatype, int count);

/// Converts `count` samples of datatype `srcDatatype` into `dst`.
/// IllegalArgumentException "src datatype unknown" for a code outside
/// UB1..DOUBLE.
void convertData(const void* src, int srcDatatype, unsigned char* dst, int count);
void convertData(const void* src, int srcDatatype, unsigned short* dst, int count);
void convertData(const void* src, int srcDatatype, unsigned int* dst, int count);
void convertData(const void* src, int srcDatatype, float* dst, int count);
void convertData(const void* src, int srcDatatype, double* dst, int count);

/// Converts between two untyped arrays; "src datatype unknown" or "dst
/// datatype unknown" for codes outside UB1..DOUBLE.
void convertData(const void* src, int srcDatatype, void* dst, int dstDatatype, int count);

// ---- Whole images

/// Converts every sample of `src` into `dst` by the table, sample k of a
/// pixel into sample k; channel meanings are ignored and positions may
/// differ. Width and height must be equal (IllegalArgumentException "image
/// bounds mismatch"), and so must the channel counts ("image nc mismatch").
/// Sends no change notification.
void copyImageData(const Image& src, const Image& dst);

/// copyImageData for known sample types; the images' datatypes must match S
/// and D (else the typed-access error of Image::getBuffer).
template <class S, class D> void _copyImageData(const Image& src, const Image& dst) {
    const GenRect<int>& sb = src.getBounds();
    const GenRect<int>& db = dst.getBounds();
    if (sb.w != db.w || sb.h != db.h)
        throw IllegalArgumentException("image bounds mismatch");
    const int nc = src.getFormat().getNumChannels();
    if (nc != dst.getFormat().getNumChannels())
        throw IllegalArgumentException("image nc mismatch");
    if (sb.w < 1 || sb.h < 1)
        return;

    const ImageRows<const S> in(src);
    const ImageRows<D> out(dst);
    // Two views of one store may overlap; walking upwards when the target
    // lies further on keeps each source row intact until it has been read.
    const bool upwards = std::is_same<S, D>::value && reinterpret_cast<uintptr_t>(out.row(0)) >
                                                          reinterpret_cast<uintptr_t>(in.row(0));
    const int count = sb.w * nc;
    for (int i = 0; i < sb.h; ++i) {
        const int y = upwards ? sb.h - 1 - i : i;
        _convertSamples(in.row(y), out.row(y), count);
    }
}

/// `src` in format `f`: the same store when the format already equals `f`
/// (all eight fields), otherwise a new image of the same bounds filled by
/// copy().
Image convert(const Image& src, const Format& f);

/// convert() to the source format with only the datatype replaced.
Image convertToDatatype(const Image& src, int datatype);

} // namespace Orvane
