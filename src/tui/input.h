// The keyboard of the terminal UI: keys and escape commands from termbox2's events.
#pragma once

#include "dep/ubox.h"

// Watches the terminal and termbox2's resize pipe. Returns 0, or -1 when the loop refuses them.
[[nodiscard]] int tui_input_start();
void tui_input_stop();

// Delivers the keys that were typed before a signal ended the session and have not been read yet.
void tui_input_finish();

// The descriptor that termbox2 reads keys from; -1 while it is not watched.
int tui_terminal_descriptor();

// Callback of both watches.
void tui_input_cb(uloop_fd *fd, unsigned int events);

// Raw input from the extract hook. A NUL follows the bytes.
void tui_raw_input(const char *bytes, int length);
