#include "support/screen.h"

#include "support/text.h"

#include <algorithm>

namespace support {

namespace {

int colour_number(const VTermColor &colour)
{
    if (VTERM_COLOR_IS_DEFAULT_FG(&colour) || VTERM_COLOR_IS_DEFAULT_BG(&colour)) {
        return -1;
    }
    return VTERM_COLOR_IS_INDEXED(&colour) ? colour.indexed.idx : -2;
}

// How many bytes at the end are the beginning of a longer UTF-8 sequence. (libvterm 0.1.4 writes
// past an array of its own when the bytes it is given end within one.)
size_t unfinished_length(std::string_view bytes)
{
    const size_t most = std::min<size_t>(bytes.size(), 3);
    for (size_t back = 1; back <= most; ++back) {
        const auto byte = static_cast<unsigned char>(bytes[bytes.size() - back]);
        if (byte >= 0xc0) {
            const size_t length = byte >= 0xf0 ? 4 : byte >= 0xe0 ? 3 : 2;
            return length > back ? back : 0;
        }
        if (byte < 0x80) {
            return 0;
        }
    }
    return 0;
}

// Characters of two columns, as far as the tests print any.
bool is_wide(uint32_t code)
{
    return (code >= 0x1100 && code <= 0x115f) || (code >= 0x2e80 && code <= 0xa4cf) ||
           (code >= 0xac00 && code <= 0xd7a3) || (code >= 0xf900 && code <= 0xfaff) ||
           (code >= 0xff00 && code <= 0xff60) || (code >= 0x1f300 && code <= 0x1faff) ||
           (code >= 0x20000 && code <= 0x3fffd);
}

int on_property(VTermProp property, VTermValue *value, void *user)
{
    auto *screen = static_cast<Screen *>(user);
    if (property == VTERM_PROP_CURSORVISIBLE) {
        screen->cursor_visible = value->boolean != 0;
    } else if (property == VTERM_PROP_ALTSCREEN) {
        screen->alternate = value->boolean != 0;
    }
    return 1;
}

const VTermScreenCallbacks CALLBACKS{.settermprop = on_property};

std::string describe(const Cell &cell)
{
    std::string text = "'" + cell.text + "'";
    text += cell.bold ? " bold" : "";
    text += cell.underline ? " underline" : "";
    text += cell.italic ? " italic" : "";
    text += cell.blink ? " blink" : "";
    text += cell.reverse ? " reverse" : "";
    return text + " " + std::to_string(cell.foreground) + " on " + std::to_string(cell.background);
}

std::string cursor_text(const Picture &picture)
{
    return !picture.cursor_visible ? "hidden"
                                   : "row " + std::to_string(picture.cursor_row) + " column " +
                                         std::to_string(picture.cursor_column);
}

Cell as_seen(Cell cell, bool colours)
{
    if (!colours || (cell.text == " " && !cell.reverse && !cell.underline)) {
        cell.foreground = -1;
    }
    if (!colours) {
        cell.background = -1;
    }
    if (cell.text == " " && !cell.underline) {
        cell.bold = cell.italic = cell.blink = false;
    }
    return cell;
}

} // namespace

Screen::Screen(int rows, int columns) : Screen(vterm_new(std::max(rows, 1), std::max(columns, 2)))
{
}

Screen::Screen(VTerm *given) : terminal(given), screen(vterm_obtain_screen(terminal))
{
    vterm_set_utf8(terminal, 1);
    vterm_screen_enable_altscreen(screen, 1);
    vterm_screen_set_callbacks(screen, &CALLBACKS, this);
    vterm_screen_reset(screen, 1);
}

Screen::~Screen()
{
    vterm_free(terminal);
}

void Screen::feed(std::string_view bytes)
{
    partial += bytes;
    const size_t length = partial.size() - unfinished_length(partial);
    vterm_input_write(terminal, partial.data(), length);
    partial.erase(0, length);
}

void Screen::resize(int rows, int columns)
{
    resized = true;
    const int row = std::min(cursor_row(), rows - 1);
    const int column = std::min(cursor_column(), columns - 1);
    // libvterm does not survive margins and cursors outside the new size.
    feed("\033[r");
    vterm_set_size(terminal, std::max(rows, 1), std::max(columns, 2));
    feed("\033[1;1H\0337\033[" + std::to_string(std::max(row, 0) + 1) + ";" +
         std::to_string(std::max(column, 0) + 1) + "H");
}

VTermPos Screen::size() const
{
    VTermPos size;
    vterm_get_size(terminal, &size.row, &size.col);
    return size;
}

Cell Screen::cell(int row, int column) const
{
    VTermScreenCell raw{};
    if (vterm_screen_get_cell(screen, {row, column}, &raw) == 0) {
        return {"outside"};
    }
    Cell cell;
    // libvterm keeps the half of a wide character whose other half is overwritten; a terminal shows
    // a blank there. The second half looks like the first, whatever its own attributes were.
    VTermScreenCell left{};
    const bool is_right_half = raw.chars[0] == UINT32_MAX && column > 0 &&
                               vterm_screen_get_cell(screen, {row, column - 1}, &left) != 0 &&
                               is_wide(left.chars[0]);
    const bool is_cut = raw.width == 1 && is_wide(raw.chars[0]);
    if (is_right_half) {
        raw = left;
    } else if (raw.chars[0] == 0 || raw.chars[0] == UINT32_MAX || is_cut) {
        cell.text = " ";
    } else {
        for (int index = 0; index < VTERM_MAX_CHARS_PER_CELL && raw.chars[index] != 0; ++index) {
            cell.text += utf8(raw.chars[index]);
        }
    }
    cell.bold = raw.attrs.bold != 0;
    cell.underline = raw.attrs.underline != 0;
    cell.italic = raw.attrs.italic != 0;
    cell.blink = raw.attrs.blink != 0;
    cell.reverse = raw.attrs.reverse != 0;
    cell.foreground = colour_number(raw.fg);
    cell.background = colour_number(raw.bg);
    return cell;
}

std::string Screen::span(int row, int column, int column_end) const
{
    std::string text;
    for (; column < column_end; ++column) {
        text += cell(row, column).text;
    }
    return text;
}

std::string Screen::row(int row) const
{
    std::string text = span(row, 0, columns());
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

std::string Screen::text() const
{
    std::string text;
    for (int index = 0; index < rows(); ++index) {
        text += row(index) + "\n";
    }
    return text;
}

int Screen::cursor_row() const
{
    VTermPos position;
    vterm_state_get_cursorpos(vterm_obtain_state(terminal), &position);
    return position.row;
}

int Screen::cursor_column() const
{
    VTermPos position;
    vterm_state_get_cursorpos(vterm_obtain_state(terminal), &position);
    return position.col;
}

Picture Screen::picture() const
{
    Picture picture{rows(), columns(), {}, cursor_row(), cursor_column(), cursor_visible};
    for (int row = 0; row < picture.rows; ++row) {
        for (int column = 0; column < picture.columns; ++column) {
            picture.cells.push_back(cell(row, column));
        }
    }
    return picture;
}

std::string Picture::text() const
{
    std::string text;
    for (int row = 0; row < rows; ++row) {
        for (int column = 0; column < columns; ++column) {
            text += cell(row, column).text;
        }
        text += "|\n";
    }
    return text;
}

std::string compare(const Picture &expected, const Picture &actual, Comparison what)
{
    std::string differences;
    int count = 0;
    const int rows = what.rows < 0 ? expected.rows : what.rows;
    if (actual.columns != expected.columns || actual.rows < rows) {
        return "screens of different sizes";
    }
    for (int row = 0; row < rows; ++row) {
        for (int column = 0; column < expected.columns; ++column) {
            const Cell wanted = as_seen(expected.cell(row, column), what.colours);
            const Cell found = as_seen(actual.cell(row, column), what.colours);
            if (wanted != found && ++count <= 10) {
                differences += "  row " + std::to_string(row) + " column " +
                               std::to_string(column) + ": " + describe(found) + ", expected " +
                               describe(wanted) + "\n";
            }
        }
    }
    if (what.cursor && cursor_text(expected) != cursor_text(actual)) {
        ++count;
        differences +=
            "  cursor " + cursor_text(actual) + ", expected " + cursor_text(expected) + "\n";
    }
    if (count == 0) {
        return "";
    }
    return "screens differ in " + std::to_string(count) + " places\n" + differences +
           "--- expected\n" + expected.text() + "--- actual\n" + actual.text() + "---\n";
}

} // namespace support
