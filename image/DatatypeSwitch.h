#pragma once

#include "base/Exception.h"
#include "image/Format.h"

namespace Orvane {

/// Carries a sample type into a generic lambda: `typename decltype(s)::type`.
template <class T> struct Sample { using type = T; };

/// Runs body(Sample<T>()) for the sample type of `datatype`; an unknown code
/// throws IllegalArgumentException with the caller's text. This is the one
/// switch over the datatypes: per-datatype loops dispatch through it once,
/// never per sample.
template <class Body>
decltype(auto) switchDatatype(int datatype, const char* unknown, Body&& body) {
    switch (datatype) {
    case UB1:
        return body(Sample<unsigned char>());
    case UB2:
        return body(Sample<unsigned short>());
    case UB4:
        return body(Sample<unsigned int>());
    case FLOAT:
        return body(Sample<float>());
    case DOUBLE:
        return body(Sample<double>());
    }
    throw IllegalArgumentException(unknown);
}

} // namespace Orvane
