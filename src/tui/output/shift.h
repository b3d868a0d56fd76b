// What moved between the picture that is shown and the one that is wanted.
#pragma once

#include <stdint.h>

#include <bit>

#include "dep/termbox.h"

// A taller screen is sent as termbox2 does it.
constexpr int PICTURE_MAX_ROWS = 512;

// All of a cell as one number, which is compared at once.
inline uint64_t cell_bits(const tb_cell &cell)
{
    return std::bit_cast<uint64_t>(cell);
}

// A cell as the terminal widget paints it where nothing is.
constexpr tb_cell BLANK_CELL = {' ', TB_WHITE, TB_DEFAULT};

inline bool is_blank(const tb_cell &cell)
{
    return cell_bits(cell) == std::bit_cast<uint64_t>(BLANK_CELL);
}

// Two pictures of height rows of width cells. Rows are compared by their hashes: equal ones look
// the same.
struct Pictures {
    int width;
    int height;
    const tb_cell *wanted;
    const tb_cell *shown;
    const uint64_t *wanted_hashes;
    const uint64_t *shown_hashes;
    const int *costs; // of the wanted rows, in bytes where nothing is shown
};

// Rows from top to bottom - 1 move up by so many lines, or down by a negative number. 0 for none.
struct Shift {
    int top;
    int bottom;
    int lines;
};

// The shift after which the least has to be sent, or none when all of them cost more than they
// save. The margins that are set cost nothing.
Shift find_shift(const Pictures &pictures, int margin_top, int margin_bottom);
