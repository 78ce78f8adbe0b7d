#include "base/Watch.h"

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <cstdint>
#include <thread>

using Orvane::getClock;
using Orvane::Watch;

namespace {

using Clock = std::chrono::steady_clock;

// Whole milliseconds between two instants, rounded up, as an upper bound
// for a reading of the millisecond clock taken between them.
int msCeil(Clock::time_point from, Clock::time_point to) {
    auto us = std::chrono::duration_cast<std::chrono::microseconds>(to - from).count();
    return static_cast<int>((us + 999) / 1000);
}

void sleepMs(int ms) {
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

} // namespace

TEST(Watch, FreshWatchReadsZeroAndCannotReset) {
    Watch w;
    w.stop(); // stopping a stopped watch changes nothing
    EXPECT_EQ(0, w());
    EXPECT_FALSE(w.isRunning());
    EXPECT_FALSE(w.reset());
    EXPECT_EQ(0, w());
}

TEST(Watch, SetOnAStoppedWatchKeepsTheValueThroughGoAndStop) {
    Watch w;
    w.set(5);
    EXPECT_EQ(5, w());
    EXPECT_FALSE(w.isRunning());
    int before = getClock();
    w.go();
    EXPECT_TRUE(w.isRunning());
    w.stop();
    int after = getClock();
    // Exactly 5 when the clock did not move; never less, never more than it moved.
    EXPECT_GE(w(), 5);
    EXPECT_LE(w(), 5 + (after - before));
    EXPECT_TRUE(w.reset());
    EXPECT_EQ(0, w());
}

TEST(Watch, MeasuresASleep) {
    Watch w;
    w.set(1000); // start() discards this
    Clock::time_point before = Clock::now();
    w.start();
    Clock::time_point started = Clock::now();
    sleepMs(20);
    Clock::time_point readStart = Clock::now();
    int elapsed = w();
    Clock::time_point after = Clock::now();
    // Each end of a millisecond reading may lose up to one tick.
    EXPECT_GE(elapsed, msCeil(started, readStart) - 2);
    EXPECT_GE(elapsed, 19);
    EXPECT_LE(elapsed, msCeil(before, after) + 1);
    EXPECT_TRUE(w.isRunning());
}

TEST(Watch, PauseKeepsTheElapsedTime) {
    Watch w;
    w.start();
    sleepMs(20);
    w.stop();
    int firstRun = w();
    EXPECT_GE(firstRun, 19);
    sleepMs(20);
    EXPECT_EQ(firstRun, w()) << "a stopped watch does not advance";

    Clock::time_point before = Clock::now();
    w.go();
    sleepMs(20);
    w.stop();
    Clock::time_point after = Clock::now();
    EXPECT_GE(w(), firstRun + 19);
    EXPECT_LE(w(), firstRun + msCeil(before, after) + 1);
}

TEST(Watch, SetWhileRunningMovesTheOrigin) {
    Watch w;
    w.start();
    int before = getClock();
    w.set(5000);
    int reading = w();
    EXPECT_GE(reading, 5000);
    EXPECT_LE(reading, 5000 + (getClock() - before));
    EXPECT_TRUE(w.isRunning());
}

TEST(Watch, ExtremeValuesWrapInsteadOfOverflowing) {
    // Runs under the undefined-behaviour sanitizer: clock minus INT_MIN
    // must wrap like the 32-bit clock, not overflow.
    Watch w;
    w.start();
    int before = getClock();
    w.set(INT_MIN);
    int reading = w();
    int advance = getClock() - before;
    EXPECT_LE(static_cast<uint32_t>(reading) - static_cast<uint32_t>(INT_MIN),
              static_cast<uint32_t>(advance));
    w.stop();
    w.set(INT_MAX);
    EXPECT_EQ(INT_MAX, w());
}

TEST(getClock, IsMonotonicMilliseconds) {
    int first = getClock();
    EXPECT_GE(first, 0);
    Clock::time_point before = Clock::now();
    int start = getClock();
    sleepMs(20);
    int end = getClock();
    Clock::time_point after = Clock::now();
    EXPECT_GE(end - start, 19);
    EXPECT_LE(end - start, msCeil(before, after) + 1);
    EXPECT_GE(start, first);
}
