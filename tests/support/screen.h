// A terminal emulator that shows what a program has drawn.
#pragma once

#include <compare>
#include <string>
#include <string_view>
#include <vector>

#include <vterm.h>

namespace support {

struct Cell {
    // UTF-8, " " for a blank; empty in the right half of a wide character.
    std::string text;
    bool bold = false, underline = false, italic = false, blink = false, reverse = false;
    // Palette index, -1 for the terminal's own colour, -2 for any other.
    int foreground = -1, background = -1;

    bool operator==(const Cell &) const = default;
};

// What a screen showed at one moment.
struct Picture {
    int rows = 0, columns = 0;
    std::vector<Cell> cells; // row by row
    int cursor_row = 0, cursor_column = 0;
    bool cursor_visible = true;

    bool operator==(const Picture &) const = default;
    const Cell &cell(int row, int column) const { return cells[size_t(row * columns + column)]; }
    // All rows, blanks included, each ended by "|".
    std::string text() const;
};

class Screen {
public:
    Screen(int rows, int columns);
    // Shows this terminal and owns it; it may be fed and resized from outside too.
    explicit Screen(VTerm *given);
    ~Screen();
    Screen(const Screen &) = delete;
    Screen &operator=(const Screen &) = delete;

    void feed(std::string_view bytes);
    void resize(int rows, int columns);

    int rows() const { return size().row; }
    int columns() const { return size().col; }
    Cell cell(int row, int column) const;
    // Without the blanks at its end.
    std::string row(int row) const;
    // All rows, each ended by a line feed.
    std::string text() const;
    // From column to column_end - 1, blanks included.
    std::string span(int row, int column, int column_end) const;

    Picture picture() const;

    int cursor_row() const;
    int cursor_column() const;
    bool cursor_visible = true;
    bool alternate = false;
    bool resized = false; // and with it what the terminal had saved lost

private:
    VTermPos size() const;

    VTerm *terminal;
    VTermScreen *screen;
    std::string partial;
};

struct Comparison {
    // Rows from the top; -1 for all.
    int rows = -1;
    bool colours = true;
    bool cursor = true;
};

// Empty when both look the same, else what differs, with both pictures. The foreground of a blank
// that shows none of it does not count.
std::string compare(const Picture &expected, const Picture &actual, Comparison what = {});

} // namespace support
