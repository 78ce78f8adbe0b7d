#include "base/Watch.h"

#include <chrono>

namespace Orvane {

namespace {

// Clock arithmetic wraps like the 32-bit clock itself instead of
// overflowing a signed int.
int32_t minus(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

} // namespace

int getClock() {
    using std::chrono::steady_clock;
    // The first call fixes the epoch.
    static const steady_clock::time_point epoch = steady_clock::now();
    auto elapsed =
        std::chrono::duration_cast<std::chrono::milliseconds>(steady_clock::now() - epoch);
    return static_cast<int32_t>(static_cast<uint32_t>(elapsed.count()));
}

void Watch::start() {
    if (ticks != 0 || running)
        reset();
    ticks = minus(getClock(), 0);
    running = true;
}

bool Watch::reset() {
    if (ticks == 0 && !running)
        return false;
    ticks = 0;
    running = false;
    return true;
}

void Watch::go() {
    if (running)
        return;
    ticks = minus(getClock(), ticks);
    running = true;
}

void Watch::stop() {
    if (!running)
        return;
    ticks = minus(getClock(), ticks);
    running = false;
}

int Watch::operator()() const {
    return running ? minus(getClock(), ticks) : ticks;
}

void Watch::set(int t) {
    ticks = running ? minus(getClock(), t) : t;
}

} // namespace Orvane
