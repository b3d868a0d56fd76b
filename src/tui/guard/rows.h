// Text whose places on the screen are known without libvterm: rows of characters, with sequences
// that change the pen, erase the rest of a row or select ASCII. Used by the guard alone.
#pragma once

#include <stdint.h>

#include "dep/vterm.h"
#include "tui/guard/state.h"

// A row as libvterm would save it.
struct GuardLine {
    VTermScreenCell cells[GUARD_MAX_COLS];
    VTermScreenCell blank; // a cell that nothing was put into
    VTermScreenCell pen;   // one that something is put into now
    VTermScreenCell first_pen;
    int used;  // columns
    bool wide; // some character takes two columns
};

// A walk over text, row by row.
struct GuardRows {
    VTerm *vt;
    const char *at;
    const char *end;
    int cols;            // of the screen
    bool resets;         // the pen was at first what a reset makes it
    bool steady;         // it is as it was at first
    bool joins;          // the last character stands in front of the cursor
    int column;          // of the next character; the width of the screen when it wraps
    int filled;          // columns of this row, from the first, that hold nothing of before
    uint8_t selections;  // that were passed, a bit each
    const char *row_end; // of the row passed last
    const char *last;    // the last character with columns of its own; null without one
};

// Whether the places are known in the modes that the port has set.
[[nodiscard]] bool guard_knows_rows(const Guard &guard);

// A walk that begins in the first column, with a pen as a reset makes it.
[[nodiscard]] GuardRows guard_rows_at(VTerm *vt, const char *at, const char *end);

// Passes text up to where the next row begins, and puts it into a line if one is given. Returns
// false when that does not come: at the end, or where it is not known what libvterm would do.
[[nodiscard]] bool guard_pass_row(GuardRows &rows, GuardLine *into);

// Gives libvterm those selections of ASCII that were passed, in place of the text.
void guard_send_selections(const GuardRows &rows);

// A cell as libvterm would print it now: prints one in the first column of the cursor's row.
[[nodiscard]] VTermScreenCell guard_sample_pen(VTerm *vt);
