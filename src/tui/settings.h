// The terminal settings under termbox2.
#pragma once

#include <termios.h>

// Stands for tcsetattr() in termbox2, which sets its own at its start and those that it found at
// its end: without waiting for a stopped line, and leaving alone what is another job's by then.
int settings_set(int terminal, int when, const termios *settings);

// In a signal handler: what termbox2 found, again.
void settings_rescue();
