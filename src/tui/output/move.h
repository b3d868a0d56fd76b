// The shortest way of the terminal's cursor from one place to another.
#pragma once

#include <stddef.h>

#include "dep/termbox.h"

struct MoveContext {
    // Where the cursor is, as far as it is known.
    int x;
    int y;
    bool column_known;
    bool row_known;
    // The rows at which a line feed and its reverse scroll.
    int top;
    int bottom;
    // The row that it goes to, when a jump may be made by printing its cells again, and the colours
    // in which the terminal prints now. Else null.
    const tb_cell *cells;
    uintattr_t foreground;
    uintattr_t background;
};

constexpr size_t MOVE_MAX = 32;

// Stores the bytes of the move; returns how many, at most MOVE_MAX.
size_t shortest_move(const MoveContext &context, int to_x, int to_y, char *bytes);
