// Brings the terminal UI up and takes it down.
#pragma once

#include "link/connection.h"

// Starts the terminal UI on /dev/tty. Returns 0 when it runs; otherwise nothing has changed and the
// caller uses the basic interface.
[[nodiscard]] int tui_start(DaemonConnection &connection);

// The same on another terminal.
[[nodiscard]] int tui_start_on(const char *terminal, DaemonConnection &connection);

// Gives the terminal back; does nothing when the terminal UI does not run.
void tui_stop();

// Give the terminal to somebody else for a while and take it back, with the same picture.
void tui_suspend();
void tui_resume();
