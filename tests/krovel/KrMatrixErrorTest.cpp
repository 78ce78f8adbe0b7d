#include "krovel/KrMatrixError.h"
#include "krovel/KrGenMatrix.h"

#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

std::vector<std::string> reported;

void record(const char* message) {
    reported.push_back(message);
}

// Installs the recording handler for one test and restores throwing after.
struct Recording {
    Recording() {
        reported.clear();
        previous = KrMatrixError::setErrorHandler(record);
    }
    ~Recording() { KrMatrixError::setErrorHandler(previous); }
    KrMatrixError::Handler previous;
};

// Runs in the death-test child: raise one error, catch it, leave quietly.
void raiseAndExit() {
    try {
        KrGenVector<double> v(2);
        v(5) = 1;
    } catch (const KrMatrixError&) {
        _exit(0);
    }
    _exit(1);
}

} // namespace

TEST(KrMatrixError, ThrowsTheFormattedMessageWithoutAHandler) {
    expectThrows<KrMatrixError>([] { KrMatrixError::err("a %d b %s", 7, "c"); }, "a 7 b c");
    try {
        KrMatrixError::err("x");
    } catch (const Exception& e) {
        EXPECT_EQ("KrMatrixError", e.className().str());
    }
}

TEST(KrMatrixError, AHandlerReceivesTheMessageAndTheAccessGoesAhead) {
    KrGenMatrix<int> m(4, 4, KrGenMatrix<int>::RowMajor);
    m(2, 0) = 42;
    KrGenMatrix<int> corner = m(KrRange(0, 1), KrRange(0, 1));
    Recording recording;
    EXPECT_EQ(record, KrMatrixError::setErrorHandler(record));
    // Row 2 lies outside the view but inside its parent, at the computed address.
    EXPECT_EQ(42, corner(2, 0));
    EXPECT_EQ(&m(2, 0), &corner(2, 0));
    ASSERT_EQ(2u, reported.size());
    EXPECT_EQ("KrMatrix row 2 out of range 0..1", reported[0]);

    KrGenVector<int> row = m.row(2);
    EXPECT_EQ(&m(2, 1), &row.data()[1]);
    reported.clear();
    KrGenVector<int> shorter(3);
    shorter.set(row);
    EXPECT_EQ(std::vector<std::string>{"KrVector length mismatch 3 != 4"}, reported);
    EXPECT_EQ(42, shorter(0)) << "the common part is copied";
}

TEST(KrMatrixError, RemovingTheHandlerRestoresThrowing) {
    {
        Recording recording;
        KrMatrixError::err("quiet");
        EXPECT_EQ(std::vector<std::string>{"quiet"}, reported);
    }
    EXPECT_EQ(nullptr, KrMatrixError::setErrorHandler(nullptr));
    expectThrows<KrMatrixError>([] { KrMatrixError::err("loud"); }, "loud");
}

TEST(KrMatrixError, KrexceptionEchoesTheMessageToStandardError) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    setenv("KREXCEPTION", "", 1);
    EXPECT_EXIT(raiseAndExit(), ::testing::ExitedWithCode(0),
                "^Matrix exception - KrVector index 5 out of range 1\n$");
    unsetenv("KREXCEPTION");
}

TEST(KrMatrixError, WithoutKrexceptionNothingIsPrinted) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    unsetenv("KREXCEPTION");
    EXPECT_EXIT(raiseAndExit(), ::testing::ExitedWithCode(0), "^$");
}
