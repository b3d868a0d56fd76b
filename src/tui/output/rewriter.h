// Rewrites what termbox2 sends during a present into fewer bytes with the same effect.
//
// termbox2 moves absolutely, resets before each change of attributes, overwrites with blanks and
// does not know that a terminal scrolls. This knows where the terminal's cursor is, its attributes
// and its margins: it leaves out what is true already, moves by the shortest way, prints a few
// cells again instead of jumping over them, and erases the ends of rows. What it does not know
// passes as it came and makes it forget all that it knew.
//
// For terminals with the control sequences of a VT100, whose cursor stays in the last column until
// the next character wraps.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string_view>

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
    bool pen_cell_known; // a cell printed in this pen had these
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

// Takes the margins off, on any terminal that a rewriter is used for. The cursor goes home.
constexpr std::string_view MARGINS_OFF = "\033[r";

// Nothing is known about the terminal.
void rewriter_start(Rewriter &rewriter, bool (*send)(const char *bytes, size_t count));

// Something else than a present is sent: the margins are taken off before, and nothing is known
// after. False when bytes are lost.
bool rewriter_pass(Rewriter &rewriter, const char *bytes, size_t count);

// A present of the cells begins. They are read until it ends.
void rewriter_begin(Rewriter &rewriter, const tb_cell *cells, int width, int height,
                    bool cursor_shown);

// Moves rows top to bottom, both included, up by so many lines, or down by a negative number, and
// leaves blanks in the terminal's own colours. Only before what termbox2 writes. False, with
// nothing sent, when termbox2's cursor could not be put back.
[[nodiscard]] bool rewriter_scroll(Rewriter &rewriter, int top, int bottom, int lines);

// What termbox2 writes. False when bytes are lost.
bool rewriter_write(Rewriter &rewriter, const char *bytes, size_t count);

// The present is over and termbox2's cursor, if it is shown, is here.
bool rewriter_end(Rewriter &rewriter, int cursor_x, int cursor_y);
