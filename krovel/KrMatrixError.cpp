#include "krovel/KrMatrixError.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

KrMatrixError::Handler KrMatrixError::sHandler = nullptr;

void KrMatrixError::err(const char* format, ...) {
    // The longest message is a fixed text and two ints; this leaves ample room.
    char message[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(message, sizeof message, format, args);
    va_end(args);

    if (sHandler) {
        sHandler(message);
        return;
    }
    // Read once: the echo is a debugging switch set before the process starts.
    static const bool echo = std::getenv("KREXCEPTION") != nullptr;
    if (echo) {
        std::fprintf(stderr, "Matrix exception - %s\n", message);
        std::fflush(stderr);
    }
    throw KrMatrixError(message);
}

KrMatrixError::Handler KrMatrixError::setErrorHandler(Handler handler) {
    Handler previous = sHandler;
    sHandler = handler;
    return previous;
}
