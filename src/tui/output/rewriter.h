// Rewrites what termbox2 sends during a present into fewer bytes with the same effect.
//
// termbox2 moves absolutely, resets before each change of attributes, overwrites with blanks and
// does not know that a terminal scrolls. This knows where the terminal's cursor is, its attributes
// and its margins: it leaves out what is true already, moves by the shortest way, prints a few
// cells again instead of jumping over them, and erases the ends of rows. What it does not know
// passes as it came and makes it forget all that it knew.
//
// For terminals with the control sequences of a VT100, whose cursor stays in the last column until
// the next character wraps.
#pragma once

#include <stddef.h>

#include "dep/termbox.h"
#include "tui/output/state.h"

// Nothing is known about the terminal.
void rewriter_start(Rewriter &rewriter, bool (*send)(const char *bytes, size_t count));

// Something else than a present is sent: the margins are taken off before, and nothing is known
// after. False when bytes are lost.
bool rewriter_pass(Rewriter &rewriter, const char *bytes, size_t count);

// A present of the cells begins. They are read until it ends.
void rewriter_begin(Rewriter &rewriter, const tb_cell *cells, int width, int height,
                    bool cursor_shown);

// Moves rows top to bottom, both included, up by so many lines, or down by a negative number, and
// leaves blanks in the terminal's own colours. Only before what termbox2 writes. False, with
// nothing sent, when termbox2's cursor could not be put back.
[[nodiscard]] bool rewriter_scroll(Rewriter &rewriter, int top, int bottom, int lines);

// What termbox2 writes. False when bytes are lost.
bool rewriter_write(Rewriter &rewriter, const char *bytes, size_t count);

// The present is over and termbox2's cursor, if it is shown, is here.
bool rewriter_end(Rewriter &rewriter, int cursor_x, int cursor_y);
