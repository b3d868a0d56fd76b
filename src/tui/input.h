// The keyboard of the terminal UI: keys and escape commands from termbox2's events.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "dep/ubox.h"

struct tb_event;

// Watches the terminal and termbox2's resize pipe. Returns 0, or -1 when the loop refuses them.
[[nodiscard]] int tui_input_start();
void tui_input_stop();

// Delivers the keys that were typed before a signal ended the session and have not been read yet.
void tui_input_finish();

// The descriptor that termbox2 reads keys from; -1 while it is not watched.
int tui_terminal_descriptor();

// Callback of both watches.
void tui_input_cb(uloop_fd *fd, unsigned int events);

// Type of the event left by the hook: its input was delivered already.
constexpr uint8_t TUI_EVENT_RAW_INPUT = 4;

// termbox2's extract-pre hook: hands all unparsed input to the top widget as it came, and has
// termbox2 drop it. An unfinished character at its end stays, unless only an ESC is before it.
int tui_extract_hook(tb_event *event, size_t *consumed);
