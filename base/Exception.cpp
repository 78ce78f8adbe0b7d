#include "base/Exception.h"

#include <cstdio>

namespace Orvane {

void _unsupported(const char* file, int line, const char* message) {
    // One buffer for every call: the text is copied into the exception at once.
    static char buffer[1024];
    std::snprintf(buffer, sizeof buffer, "%s line %d: %s", file, line, message);
    throw UnsupportedOperationException(buffer);
}

} // namespace Orvane
