// The power menu: runs the power script for the port's outlets with the user's keys as its input.
#pragma once

#include <stdint.h>

#include "dep/ubox.h"

// Starts the power script and hands it the keyboard until it exits; tells the user where there are
// no outlets or no script.
void power_menu_open();

// Input hook while the menu is open: to the script, echoed to the user.
void power_input_hook(const char *chunk, int32_t length);

// Read callback of the script's output.
void power_output_cb(ustream *stream, int available);

// SIGCHLD action: only notes the signal; the menu is closed from the event loop.
void power_sigchld_handler(int signal_number);

// Lets the event loop see what the SIGCHLD handler notes; after uloop_init. Returns 0, or -1 with
// the reason in the log.
[[nodiscard]] int power_watch_children();
