// Which rows of the emulator's screen differ from what was painted of them, and which of those were
// painted elsewhere and only moved.
#pragma once

#include <stdint.h>

#include "tui/guard/guard.h"

struct RowDamage {
    // For each row the one that it was painted in, or ROW_DAMAGED.
    int16_t painted_in[GUARD_MAX_ROWS];
    // The emulator reports a move, and then damages where it went: the rows from dest_start on.
    int dest_start;
    int dest_end; // no move is reported when this is 0
    int distance; // from the row to the one that it comes from
};

constexpr int16_t ROW_DAMAGED = -1;

// All is painted where it is.
void row_damage_clear(RowDamage &damage);

// Rows start to end - 1 changed.
void row_damage_note(RowDamage &damage, int start, int end);

// The next note, of rows start to end - 1, stands for rows that come whole from so many rows below.
void row_damage_expect_move(RowDamage &damage, int start, int end, int distance);

// Rows that moved count as changed.
void row_damage_forget_moves(RowDamage &damage);

// -1 when all that moved went down, 1 when all went up, 0 when nothing did. Where rows went both
// ways, they count as changed.
int row_damage_direction(RowDamage &damage);
