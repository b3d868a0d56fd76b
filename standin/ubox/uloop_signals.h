// The signals that the event loop takes, and the pipe through which their handlers wake it.
#pragma once

#include "dep/ubox.h"

// The last SIGINT or SIGTERM, 0 when there was none.
extern volatile sig_atomic_t loop_stop_signal;

// Puts the read end of a new pipe under the loop's watch; 0 or -1.
int loop_waker_open();
// Closes what loop_waker_open has opened, if anything.
void loop_waker_close();

// Takes the signals, each only when its action is the default one.
void loop_signals_install();
// Gives back those that were taken and are still ours.
void loop_signals_restore();

// Reaps all ended children when a SIGCHLD has been caught since the last call.
void loop_reap_children();
