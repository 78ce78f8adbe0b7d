#pragma once

#include <cstdint>

namespace Orvane {

/// Milliseconds of a monotonic clock elapsed since the first call, which
/// reads 0. The count is 32-bit and wraps after about 24 days; differences
/// of readings stay right across the wrap.
int getClock();

/// A pausable stopwatch counting getClock() ticks (milliseconds).
///
/// One number serves both states: while stopped it is the elapsed time;
/// while running it is the clock reading at which an elapsed time of zero
/// would have started.
class Watch {
public:
    /// Restarts from zero and runs.
    void start();
    /// Stops and zeroes the watch; false (and nothing changed) when it
    /// already was stopped at zero.
    bool reset();
    /// Runs on from the elapsed time kept; does nothing while running.
    void go();
    /// Keeps the elapsed time and stops; does nothing while stopped.
    void stop();
    /// The elapsed ticks.
    int operator()() const;
    /// Sets the elapsed time, running or not.
    void set(int t);
    bool isRunning() const { return running; }

private:
    int32_t ticks = 0;
    bool running = false;
};

} // namespace Orvane
