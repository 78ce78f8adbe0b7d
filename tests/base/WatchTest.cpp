#include "base/Watch.h"

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <thread>

using Orvane::getClock;

TEST(Watch, FreshAndSetWatchesKeepTheirValue) {
    Orvane::Watch w;
    w.stop();
    EXPECT_EQ(0, w());
    EXPECT_FALSE(w.reset()) << "already stopped at zero";
    w.set(5);
    int before = getClock();
    w.go();
    w.stop();
    EXPECT_GE(w(), 5);
    EXPECT_LE(w(), 5 + getClock() - before);
    EXPECT_TRUE(w.reset());
}

TEST(Watch, MeasuresASleep) {
    using Clock = std::chrono::steady_clock;
    Orvane::Watch w;
    Clock::time_point before = Clock::now();
    w.start();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    w.stop();
    auto bound = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - before);
    // Each end of a millisecond reading may lose up to one tick.
    EXPECT_GE(w(), 19);
    EXPECT_LE(w(), bound.count() + 2);
}

TEST(Watch, ExtremeValuesWrapInsteadOfOverflowing) {
    // Run under the undefined-behaviour sanitizer: clock minus INT_MIN must wrap.
    Orvane::Watch w;
    w.start();
    unsigned before = getClock();
    w.set(INT_MIN);
    EXPECT_LE(unsigned(w()) - unsigned(INT_MIN), unsigned(getClock()) - before);
    w.stop();
    w.set(INT_MAX);
    EXPECT_EQ(INT_MAX, w());
}
