// What joins the terminal UI to termbox2's insides: input that it has not parsed, and events
// together with the bytes they were made from.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

struct tb_cell;
struct tb_event;

// The bytes behind one key event, as the terminal sent them. (termbox2 decodes bytes that are not
// UTF-8 into something else.)
struct KeyBytes {
    char bytes[8];
    size_t length;
};

// Stands for write() in termbox2. Its caller is there, its definition in tui/display.
ssize_t display_write(int descriptor, const void *bytes, size_t count);

// Fetches an event without waiting: true when there is one. bytes is filled for key events.
[[nodiscard]] bool tui_next_event(tb_event *event, KeyBytes *bytes);

// Whether the terminal has a way to hide the cursor.
[[nodiscard]] bool tui_can_hide_cursor();

// The bytes that termbox2 has read and made no event of yet. There is room for a NUL behind them.
struct UnparsedInput {
    char *bytes;
    size_t length;
};
UnparsedInput tui_unparsed_input();

// The cells of a row: of the front buffer, which termbox2 believes to be shown, or of the back
// buffer, which it is to show. The rows of a buffer lie one behind the other. The row may be
// written to: the next present looks at it. Null when there is no such row.
tb_cell *tui_front_row(int y);
tb_cell *tui_back_row(int y);
