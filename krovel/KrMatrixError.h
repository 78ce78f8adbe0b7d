#pragma once

#include "base/Exception.h"

/// The error of the numeric code: range and shape errors of matrices and
/// vectors, and the LU inverse's failures. Everything is raised through
/// `err`, so one installed handler can turn every such error into a report.
class KrMatrixError : public Exception {
public:
    using Handler = void (*)(const char* message);

    explicit KrMatrixError(const dstring& message) : Exception(message) {}
    dstring className() const override { return "KrMatrixError"; }

    /// Formats the message printf-style. With a handler installed, calls it
    /// with the message and returns, so the caller's operation continues
    /// (an unchecked index is then the caller's risk). Otherwise throws
    /// KrMatrixError, first writing "Matrix exception - " and the message to
    /// standard error when the environment variable KREXCEPTION was set (read
    /// once per process).
    static void err(const char* format, ...) __attribute__((format(printf, 1, 2)));

    /// Installs `handler` (null restores throwing) and returns the previous one.
    static Handler setErrorHandler(Handler handler);

private:
    static Handler sHandler;
};
