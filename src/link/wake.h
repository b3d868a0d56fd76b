// Carries a signal into the event loop: the handler notes it and writes a byte to a pipe that the
// loop watches. (A handler that runs just before the loop waits would go unnoticed otherwise.)
#pragma once

#include <signal.h>

#include "dep/ubox.h"

struct Wake {
    uloop_fd reader;               // watched by the loop
    int writer;                    // the handler's end; valid once open
    volatile sig_atomic_t is_open; // the handler may run before wake_open
    void (*on_wake)(void);         // called by the loop, once for any number of signals
};

// Opens the pipe and watches it. Returns 0, or -1 with a line in the log.
[[nodiscard]] int wake_open(Wake &wake, void (*on_wake)(void));

// Async-signal-safe; keeps errno.
void wake_notify(Wake &wake);
