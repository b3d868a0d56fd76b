// The clock for turns of the loop and for how long something is waited for.
#pragma once

#include <stdint.h>
#include <time.h>

// Microseconds of the monotonic clock, which changes of the date do not touch.
inline int64_t monotonic_us()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

inline int64_t monotonic_ms()
{
    return monotonic_us() / 1000;
}
