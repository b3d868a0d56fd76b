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
#include <stdint.h>

#include <type_traits>

#include "dep/vterm.h"
#include "tui/key_modes.h"
#include "tui/widget/layout.h"

// The sizes that the emulator is kept within.
constexpr int GUARD_MIN_ROWS = 1;
constexpr int GUARD_MAX_ROWS = SCREEN_MAX_ROWS;
constexpr int GUARD_MIN_COLS = 2;
constexpr int GUARD_MAX_COLS = SCREEN_MAX_COLS;

// As many marks as a cell has room for beside its character.
constexpr int GUARD_MAX_MARKS = VTERM_MAX_CHARS_PER_CELL - 1;

enum GuardMargins : uint8_t {
    GUARD_ROWS = 1,    // above and below
    GUARD_COLUMNS = 2, // on the left and the right
};

// The state of one port. Zero-filled is the start.
struct Guard {
    bool started;
    uint8_t margins;   // that the port may have set since they were last reset, a GuardMargins each
    bool side_margins; // it has switched those on the left and right on
    uint8_t designated; // the character sets that do not hold ASCII, a bit each
    bool wraps_not;     // the cursor stays in the last column
    bool feeds_return;  // a line feed goes to the first column as well
    bool lines_doubled; // some lines may have half the columns
    KeyModes modes;     // as the port has set them
    // The last character printed and its combining marks.
    bool joins;     // a mark that comes now would join it
    bool at_margin; // it stands in the last column
    uint8_t marks;
    uint8_t glyph_length;
    char glyph[4 * (1 + GUARD_MAX_MARKS)];
    // The end of the last chunk: a character or a sequence that is cut, or an OSC string so far.
    uint16_t string_left; // how long the control string may still become; 0 outside of one
    uint16_t held_length;
    char held[512];
};
static_assert(std::is_trivial_v<Guard> && std::is_standard_layout_v<Guard>);

// An emulator of the size asked for, brought within the limits above. Null when there is no memory
// for its screens. What libvterm asks for later and does not get ends the process by SIGABRT, with
// a line in the log: it would write to what it has not got.
[[nodiscard]] VTerm *guard_new_vterm(int rows, int cols);

// In place of vterm_input_write.
void guard_write(Guard &guard, VTerm *vt, const char *bytes, size_t length);

// In place of vterm_set_size: any two numbers, brought within the limits above. Margins that the
// port has set are reset when the terminal shrinks; the cursor is kept, within the new size.
// Without memory for the new screens they keep the old size, with a line in the log.
void guard_set_size(Guard &guard, VTerm *vt, int rows, int cols);
