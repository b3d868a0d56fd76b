// What a rewriter knows of the terminal and of what termbox2 means it to show.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "dep/termbox.h"
#include "tui/output/pen.h"

// termbox2 resets the character set with the attributes. Once is enough.
enum class Charset : uint8_t { UNKNOWN, RESETTING, RESET };

struct Rewriter {
    // Takes bytes for the terminal; false when they are lost.
    bool (*send)(const char *bytes, size_t count);

    // The picture that is being presented: height rows of width cells, null between presents.
    const tb_cell *cells;
    int width;
    int height;
    bool cursor_shown;

    // Where the terminal's cursor is. Terminals differ about the width of characters: behind one
    // beyond ASCII the column is not known, but at most column_limit.
    int x;
    int y;
    int column_limit;
    bool column_known;
    bool row_known;

    // Where termbox2 has moved it, when the terminal has not been told.
    bool moved;
    int to_x;
    int to_y;
    // Where termbox2 left it after the present before.
    bool left_known;
    int left_x;
    int left_y;
    int blanks; // that termbox2 has printed there and the terminal has not seen

    // The row that was erased last, from this column on: nothing else is to be shown there.
    int erased_x;
    int erased_y;

    Pen pen; // the terminal's
    bool pen_known;
    Pen wanted; // termbox2's
    bool wanted_known;
    Charset charset;
    bool pen_cell_known; // the colours of a cell that was printed in this pen are known:
    uintattr_t pen_foreground;
    uintattr_t pen_background;

    // The rows that scroll, where not all do; whether that is so is certain or not.
    int top;
    int bottom;
    bool margins;
    bool margins_certain;

    bool forgotten; // something passed after which the screen may show anything
    bool lost;      // bytes were lost: it shows something else

    size_t length;
    char bytes[2048];
};
