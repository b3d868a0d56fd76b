// The terminal under termbox2: its start and end, and its output, which never blocks the client.
//
// termbox2 writes to the terminal with a plain write, which waits for a terminal that takes
// nothing. Its writes come here instead (display_write) and go out through a stream on a descriptor
// of our own, whose O_NONBLOCK nobody else sees. A picture is made only when the one before has
// gone out, so that a slow terminal gets fewer pictures and never a backlog of them.
#pragma once

#include "tui/key_modes.h"

// Opens the terminal and starts termbox2 on it. Returns 0, or another value when there is no
// terminal that can be used; nothing is left open then.
[[nodiscard]] int display_start(const char *path);

// The same after a stop, on the same terminal. (The path is not copied.)
[[nodiscard]] int display_restart();

// Restores the terminal. Waits at most a second for a terminal that takes nothing, then drops what
// it has not taken. Does nothing when it is not started.
void display_stop();

// The same in a signal handler, when the program crashes.
void display_rescue();

// Undoes every mode that the client ever sets on the terminal, whatever was being sent: whoever
// sets another one adds it here. (In the ordinary end termbox2 undoes its own modes by itself.)
constexpr char DISPLAY_UNDO[] =
    "\x18\033[r\033[?2004l\033[?25h\033[m\033[H\033[2J\033[?1049l\033[?1l\033>";

// Has the back buffer shown before the loop waits again, once however often it is asked for.
void display_present();

// Where the cursor is when the next picture is shown. A hidden one waits there on a terminal that
// cannot hide it.
void display_set_cursor(int x, int y, bool shown);

// What the terminal sends from the next picture on; none of them at first. They last beyond the
// stop, until the next start.
void display_set_modes(const KeyModes &modes);
