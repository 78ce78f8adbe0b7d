#include "base/Exception.h"

#include "support/ExpectThrows.h"

TEST(Exception, ClassNamesFollowTheHierarchy) {
    BadIndexException bad("b");
    IllegalArgumentException& asIllegal = bad;
    EXPECT_STREQ("BadIndexException", asIllegal.className().c_str());
    EXPECT_STREQ("Exception", Exception("e").className().c_str());
    EXPECT_STREQ("UnsupportedOperationException",
                 UnsupportedOperationException("u").className().c_str());
    EXPECT_STREQ("NullPointerException", NullPointerException("n").className().c_str());
    EXPECT_EQ(0, bad.getCode());
}

TEST(Exception, MessageSharesTheCallersString) {
    dstring text("shared");
    Exception e(text);
    EXPECT_EQ(text.data(), e.getMessage().data());
    EXPECT_STREQ("shared", e.what());
}

TEST(Exception, UnsupportedFormatsFileLineAndMessage) {
    expectThrows<UnsupportedOperationException>(
        [] { Orvane::_unsupported("image/ops", 42, "bad type"); }, "image/ops line 42: bad type");
    // The static buffer is reused; each exception keeps its own copy.
    try {
        Orvane::_unsupported("a", 1, "first");
    } catch (const UnsupportedOperationException& first) {
        try {
            Orvane::_unsupported("b", 2, "second");
        } catch (const UnsupportedOperationException&) {
        }
        EXPECT_STREQ("a line 1: first", first.getMessage().c_str());
    }
}
