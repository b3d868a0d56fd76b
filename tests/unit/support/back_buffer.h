// termbox2 on a terminal of the test's own, and its back buffer as text.
#pragma once

#include <string>

#include "dep/termbox.h"

struct BackBuffer {
    int terminal = -1; // the user's end

    // A terminal of this size with termbox2 on it.
    BackBuffer(int columns, int rows);
    ~BackBuffer();
    BackBuffer(const BackBuffer &) = delete;
    BackBuffer &operator=(const BackBuffer &) = delete;

    tb_cell cell(int x, int y) const;
    // Columns x0 to x1 - 1 of a row; a character beyond ASCII is a "#".
    std::string text(int x0, int x1, int y) const;
    // A row without the blanks at its end.
    std::string row(int y) const;
};
