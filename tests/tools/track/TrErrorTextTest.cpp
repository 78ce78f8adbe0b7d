#include "tools/track/TrErrorText.h"

#include "base/Exception.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

template <class E> std::string textOf(const E& thrown) {
    try {
        throw thrown;
    } catch (...) {
        return errorText(std::current_exception());
    }
}

} // namespace

// Whatever reaches the tool's boundary becomes one line of text: our
// exceptions by their message, the image library's bare strings as they are.
TEST(TrErrorText, EveryKindOfThrowGivesItsText) {
    EXPECT_EQ("bad index", textOf(BadIndexException("bad index")));
    EXPECT_EQ("no such file", textOf(std::runtime_error("no such file")));
    EXPECT_EQ("red channel failed", textOf("red channel failed"));
    EXPECT_EQ("unknown error", textOf(static_cast<const char*>(nullptr)));
    EXPECT_EQ("unknown error", textOf(42));
    EXPECT_EQ("", errorText(nullptr));
}

TEST(TrErrorText, SeveralLinesBecomeOne) {
    EXPECT_EQ("cannot read \"a; b.png\": PNG read error; PNG library error",
              textOf(IllegalArgumentException("cannot read \"a\nb.png\": PNG read error\r\n"
                                              "PNG library error\n")));
    EXPECT_EQ("unknown error", textOf(std::runtime_error(" \n")));
    EXPECT_EQ("unknown error", textOf(""));
}
