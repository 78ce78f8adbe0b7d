#pragma once

#include "base/dstring.h"

#include <exception>

/// Root of the library's exceptions. The message is a fixed text that
/// callers and tests match exactly.
class Exception : public std::exception {
public:
    explicit Exception(const dstring& message) : message(message) {}
    ~Exception() override = default;

    virtual dstring className() const { return "Exception"; }
    const dstring& getMessage() const { return message; }
    int getCode() const { return code; }
    const char* what() const noexcept override { return message.c_str(); }

private:
    dstring message;
    int code = 0;
};

class IllegalArgumentException : public Exception {
public:
    using Exception::Exception;
    dstring className() const override { return "IllegalArgumentException"; }
};

class BadIndexException : public IllegalArgumentException {
public:
    using IllegalArgumentException::IllegalArgumentException;
    dstring className() const override { return "BadIndexException"; }
};

class UnsupportedOperationException : public Exception {
public:
    using Exception::Exception;
    dstring className() const override { return "UnsupportedOperationException"; }
};

class NullPointerException : public Exception {
public:
    using Exception::Exception;
    dstring className() const override { return "NullPointerException"; }
};

namespace Orvane {

/// Refuses a case the caller does not handle: throws
/// UnsupportedOperationException "<file> line <line>: <message>". Pass
/// literal unit names and lines, never __FILE__ or __LINE__.
[[noreturn]] void _unsupported(const char* file, int line, const char* message);

} // namespace Orvane
