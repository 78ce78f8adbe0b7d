#pragma once

#include <ctime>

/// The calling thread's CPU time in seconds, for benchmarks that time their
/// iterations themselves. On a machine shared with other work the wall clock
/// also counts the waits for a core; the thread's own time counts only the
/// work. It suits code that starts no threads, such as ours and OpenCV's
/// with its thread count set to 1.
inline double threadSeconds() {
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + 1e-9 * double(ts.tv_nsec);
}
