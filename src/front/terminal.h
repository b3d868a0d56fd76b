// The settings of the user's terminal: taken at once, and given back to nobody but their owner. All
// of it may be called in a signal handler.
#pragma once

#include <termios.h>

// Whether another process group has the terminal; false for what is no terminal of this session.
bool is_another_jobs(int terminal);

// Drops what was typed and sets the settings, without waiting for output that a stopped line may
// never send. Returns 0, or -1 with errno.
int set_terminal(int terminal, const termios &settings);

// Sets `found` again. Where another job has the terminal and has changed the settings that the
// client made (`own`), they are that job's, and stay.
void give_terminal_back(int terminal, const termios &found, const termios &own);
