#include "base/Exception.h"

#include "support/ExpectThrows.h"

TEST(Exception, UnsupportedFormatsFileLineAndMessage) {
    expectThrows<UnsupportedOperationException>(
        [] { Orvane::_unsupported("image/ops", 42, "bad type"); }, "image/ops line 42: bad type");
}
