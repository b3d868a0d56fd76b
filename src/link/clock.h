// The time that turns and patience are measured with.
#pragma once

#include <stdint.h>
#include <time.h>

// Microseconds of a clock that nobody sets.
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
