// The lines that scrolled off the top of the emulated screen, newest first. They only serve the
// emulator, which takes them back when the screen grows taller.
#pragma once

#include <stdint.h>

#include "dep/ubox.h"
#include "dep/vterm.h"

constexpr int32_t TERM_SCROLLBACK_MAX = 1000;

struct ScrollbackLine {
    list_head list;
    int32_t cols;            // the screen's width when the line was saved
    VTermScreenCell cells[]; // cols of them
};

// Saves a copy of the line, dropping the oldest of TERM_SCROLLBACK_MAX. Returns 1, or 0 with a line
// in the log when memory is short; the oldest line is gone all the same.
int scrollback_push(list_head &lines, int32_t &count, int cols, const VTermScreenCell *cells);

// Moves the newest line to cells, cut or filled with blanks to cols. Returns 1, or 0 when none is
// saved.
int scrollback_pop(list_head &lines, int32_t &count, int cols, VTermScreenCell *cells);

void scrollback_free(list_head &lines, int32_t &count);
