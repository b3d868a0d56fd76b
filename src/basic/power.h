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

// SIGCHLD action: only hands the signal to the event loop.
void power_sigchld_handler(int signal_number);

// What the event loop does then: reaps every child that has ended, and closes the script's menu.
void power_reap_children();
