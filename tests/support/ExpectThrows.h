#pragma once

#include "base/Exception.h"

#include <gtest/gtest.h>

#include <string>
#include <typeinfo>

namespace testsupport {

inline std::string messageOf(const Exception& e) {
    return e.getMessage().str();
}
inline std::string messageOf(const char* text) {
    return text ? text : "";
}
template <class E> std::string messageOf(const E& e) {
    return e.what();
}

/// Runs `body` and expects it to throw exactly class E (not a subclass) with
/// exactly `text`. E may be `const char*` for the bare-string throws.
template <class E, class Body> void expectThrows(Body&& body, const std::string& text) {
    try {
        body();
        ADD_FAILURE() << "expected " << typeid(E).name() << " \"" << text
                      << "\", nothing was thrown";
    } catch (const E& e) {
        EXPECT_EQ(typeid(E), typeid(e)) << "thrown a subclass of the expected class";
        EXPECT_EQ(text, messageOf(e));
    } catch (...) {
        // Rethrown here rather than caught above, so that E = Exception
        // does not leave an unreachable handler.
        try {
            throw;
        } catch (const Exception& e) {
            ADD_FAILURE() << "expected " << typeid(E).name() << ", got " << e.className() << " \""
                          << e.getMessage() << "\"";
        } catch (...) {
            ADD_FAILURE() << "expected " << typeid(E).name() << ", got another exception";
        }
    }
}

} // namespace testsupport

using testsupport::expectThrows;
