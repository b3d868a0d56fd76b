// What the guard knows of a port's output so far.
#pragma once

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

// The state of one port. Zero-filled but for the callbacks is the start.
struct Guard {
    // The same as libvterm's screen has, for lines that are saved without it; null for none. One
    // for the cursor is to call guard_note_cursor.
    const VTermScreenCallbacks *callbacks;
    bool started;
    uint8_t margins;   // that the port may have set since they were last reset, a GuardMargins each
    bool side_margins; // it has switched those on the left and right on
    uint8_t designated; // the character sets that do not hold ASCII, a bit each
    bool autowrap_off;  // the cursor stays in the last column
    bool insert_mode;   // a character moves what is on its right
    bool newline_mode;  // a line feed goes to the first column as well
    bool lines_doubled; // some lines may have half the columns
    int blank_from;     // from this row on all is blank, with a reset pen; 0 when that is not known
    bool alternate;     // the alternate screen is shown, of which no lines are saved
    KeyModes modes;     // as the port has set them
    // The last character printed and its combining marks.
    bool joins;     // a mark that comes now would join it
    bool at_margin; // it stands in the last column
    uint8_t marks;
    uint8_t glyph_length;
    char glyph[4 * (1 + GUARD_MAX_MARKS)];
    // The end of the last chunk: a character or a sequence that is cut, or an OSC string so far.
    uint16_t string_left; // how long the control string may still become; 0 outside of one
    uint16_t tail_length;
    char tail[512];
};
static_assert(std::is_trivial_v<Guard> && std::is_standard_layout_v<Guard>);
