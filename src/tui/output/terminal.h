// What a rewriter tells the terminal, as late and in as few bytes as it can.
#pragma once

#include <stddef.h>

#include <string_view>

#include "tui/output/state.h"

// Bytes as they are, which leave what is known as it is; they are gathered.
void terminal_put(Rewriter &rewriter, std::string_view bytes);
void terminal_flush(Rewriter &rewriter);

// Nothing is known any more.
void terminal_forget(Rewriter &rewriter);

void terminal_take_margins_off(Rewriter &rewriter);

// Lets rows top to bottom scroll, both included.
void terminal_set_margins(Rewriter &rewriter, int top, int bottom);

void terminal_change_pen(Rewriter &rewriter, const Pen &pen);

// What termbox2 has set, moved to and printed without the terminal having been told.
void terminal_sync_pen(Rewriter &rewriter);
void terminal_sync_position(Rewriter &rewriter);
void terminal_release_blanks(Rewriter &rewriter);

// A character of ASCII. Blanks are kept until something follows them.
void terminal_print(Rewriter &rewriter, char character);

// A byte of a character beyond ASCII.
void terminal_print_byte(Rewriter &rewriter, char byte);
