// Stands between the port and libvterm and keeps libvterm's faults out of reach: some byte
// sequences and some resizes make it write outside its memory, loop for ever or grow without bound
// (0.1.4 and 0.3.3; the tests name each one). What cannot do harm passes untouched, straight from
// the caller's buffer.
//
// libvterm is only ever given whole characters and whole sequences, wherever the port's chunks are
// cut, so that it is at rest between any two calls and a resize never lands inside a sequence. It
// must be in UTF-8 mode and get its input from here alone.
#pragma once

#include <stddef.h>

#include "dep/vterm.h"
#include "tui/guard/state.h"

// An emulator of the size asked for, brought within GUARD_MIN_ROWS to GUARD_MAX_COLS. Null when
// there is no memory for its screens. What libvterm asks for later and does not get ends the
// process by SIGABRT, with a line in the log: it would write to what it has not got.
[[nodiscard]] VTerm *guard_new_vterm(int rows, int cols);

// In place of vterm_input_write.
void guard_write(Guard &guard, VTerm *vt, const char *bytes, size_t length);

// In place of vterm_set_size: any two numbers, brought within the same limits. Margins that the
// port has set are reset when the terminal shrinks; the cursor is kept, within the new size.
// Without memory for the new screens they keep the old size, with a line in the log.
void guard_set_size(Guard &guard, VTerm *vt, int rows, int cols);

// To be called by the callback that libvterm tells of its cursor's place.
void guard_note_cursor(Guard &guard, int row);
