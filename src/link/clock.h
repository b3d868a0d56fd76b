// The time that patience is measured with.
#pragma once

#include <stdint.h>
#include <time.h>

// Milliseconds of a clock that nobody sets.
inline int64_t monotonic_ms()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}
