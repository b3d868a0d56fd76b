#include "tui/output/terminal.h"

#include "text/digits.h"
#include "tui/output/move.h"

namespace {

// Takes the margins off, on any terminal that a rewriter is used for. The cursor goes home.
constexpr std::string_view MARGINS_OFF = "\033[r";

constexpr std::string_view ERASE_TO_END = "\033[K";

// Differs from every pen in everything, so that any change from it sets all attributes.
constexpr Pen NO_PEN = {0xff, 0xff, 0xff};

// A character was printed; cells is the most that a terminal may give it.
void advance(Rewriter &rewriter, int cells, bool certain)
{
    rewriter.column_limit += cells;
    rewriter.x += cells;
    // In the last column the cursor waits to wrap: relative moves from there differ.
    rewriter.column_known =
        rewriter.column_known && certain && rewriter.column_limit < rewriter.width;
    rewriter.row_known = rewriter.row_known && rewriter.column_limit <= rewriter.width;
}

// The row of the picture, when a jump in it may be made by printing its cells again.
const tb_cell *printable_row(const Rewriter &rewriter, int y)
{
    return rewriter.pen_cell_known && rewriter.pen_known
               ? rewriter.cells + static_cast<size_t>(y) * static_cast<size_t>(rewriter.width)
               : nullptr;
}

// Where the next character goes, as far as termbox2 is concerned; false when that is not known.
bool next_place(const Rewriter &rewriter, int &x, int &y)
{
    x = (rewriter.moved ? rewriter.to_x : rewriter.x) + rewriter.blanks;
    y = rewriter.moved ? rewriter.to_y : rewriter.y;
    return rewriter.cells != nullptr && x < rewriter.width &&
           (rewriter.moved || (rewriter.column_known && rewriter.row_known));
}

const tb_cell &cell_at(const Rewriter &rewriter, int x, int y)
{
    return rewriter.cells[static_cast<size_t>(y) * static_cast<size_t>(rewriter.width) +
                          static_cast<size_t>(x)];
}

bool row_ends_blank(const Rewriter &rewriter, int x, int y)
{
    for (; x < rewriter.width; x++) {
        const tb_cell &cell = cell_at(rewriter, x, y);
        if (cell.ch != ' ' || (cell.fg & 0xff00) != 0 || cell.bg != TB_DEFAULT) {
            return false;
        }
    }
    return true;
}

void erase_to_end(Rewriter &rewriter, int x, int y)
{
    if (!rewriter.pen_known || !pen_is_plain(rewriter.pen)) {
        terminal_sync_pen(rewriter); // blanks take its background
    }
    terminal_sync_position(rewriter);
    terminal_put(rewriter, ERASE_TO_END);
    rewriter.erased_x = x;
    rewriter.erased_y = y;
}

// The terminal's cursor is here.
void set_position(Rewriter &rewriter, int x, int y)
{
    rewriter.x = rewriter.column_limit = x;
    rewriter.y = y;
    rewriter.column_known = rewriter.row_known = true;
}

} // namespace

void terminal_put(Rewriter &rewriter, std::string_view bytes)
{
    for (const char byte : bytes) {
        if (rewriter.length == sizeof rewriter.bytes) {
            terminal_flush(rewriter);
        }
        rewriter.bytes[rewriter.length++] = byte;
    }
}

void terminal_flush(Rewriter &rewriter)
{
    if (rewriter.length > 0 && !rewriter.send(rewriter.bytes, rewriter.length)) {
        rewriter.lost = true;
    }
    rewriter.length = 0;
}

void terminal_forget(Rewriter &rewriter)
{
    rewriter.column_known = rewriter.row_known = false;
    rewriter.moved = rewriter.left_known = false;
    rewriter.pen_known = rewriter.pen_cell_known = false;
    rewriter.charset = Charset::UNKNOWN;
    rewriter.erased_y = -1;
    rewriter.margins_certain = false;
    rewriter.forgotten = true;
}

void terminal_take_margins_off(Rewriter &rewriter)
{
    if (rewriter.margins) {
        terminal_put(rewriter, MARGINS_OFF);
        rewriter.margins = false;
        rewriter.column_known = rewriter.row_known = false;
    }
}

void terminal_set_margins(Rewriter &rewriter, int top, int bottom)
{
    const bool all = top == 0 && bottom == rewriter.height - 1;
    const bool same = all ? !rewriter.margins
                          : rewriter.margins && rewriter.top == top && rewriter.bottom == bottom;
    if (same && rewriter.margins_certain) {
        return;
    }
    char bytes[sizeof("\033[65535;65535r")] = "\033[";
    size_t length = 2;
    length += put_number(bytes + length, top + 1);
    bytes[length++] = ';';
    length += put_number(bytes + length, bottom + 1);
    bytes[length++] = 'r';
    terminal_put(rewriter, all ? MARGINS_OFF : std::string_view(bytes, length));
    rewriter.margins = !all;
    rewriter.margins_certain = true;
    rewriter.top = top;
    rewriter.bottom = bottom;
    set_position(rewriter, 0, 0);
}

void terminal_change_pen(Rewriter &rewriter, const Pen &pen)
{
    if (rewriter.pen_known && rewriter.pen == pen) {
        return;
    }
    char bytes[PEN_CHANGE_MAX];
    terminal_put(rewriter,
                 {bytes, pen_change(rewriter.pen_known ? rewriter.pen : NO_PEN, pen, bytes)});
    rewriter.pen = pen;
    rewriter.pen_known = true;
    rewriter.pen_cell_known = false;
}

void terminal_sync_pen(Rewriter &rewriter)
{
    if (rewriter.wanted_known) { // else it has passed as it came
        terminal_change_pen(rewriter, rewriter.wanted);
    }
}

void terminal_sync_position(Rewriter &rewriter)
{
    if (!rewriter.moved) {
        return;
    }
    rewriter.moved = false;
    const MoveContext context = {rewriter.x,
                                 rewriter.y,
                                 rewriter.column_known,
                                 rewriter.row_known,
                                 rewriter.margins ? rewriter.top : 0,
                                 rewriter.margins ? rewriter.bottom : rewriter.height - 1,
                                 printable_row(rewriter, rewriter.to_y),
                                 rewriter.pen_foreground,
                                 rewriter.pen_background};
    char bytes[MOVE_MAX];
    terminal_put(rewriter, {bytes, shortest_move(context, rewriter.to_x, rewriter.to_y, bytes)});
    set_position(rewriter, rewriter.to_x, rewriter.to_y);
}

// Sends the blanks that were kept: the end of a row is erased where that is shorter.
void terminal_release_blanks(Rewriter &rewriter)
{
    const int count = rewriter.blanks;
    if (count == 0) {
        return;
    }
    rewriter.blanks = 0;
    int x = 0;
    int y = 0;
    (void)next_place(rewriter, x, y); // it was known when they were kept
    const bool erased = y == rewriter.erased_y && x >= rewriter.erased_x;
    if (erased || (count > 1 && row_ends_blank(rewriter, x, y))) {
        if (!erased) {
            erase_to_end(rewriter, x, y);
        }
        rewriter.moved = x + count < rewriter.width;
        rewriter.to_x = x + count;
        rewriter.to_y = y;
        return;
    }
    terminal_sync_pen(rewriter);
    terminal_sync_position(rewriter);
    for (int i = 0; i < count; i++) {
        terminal_put(rewriter, " ");
    }
    advance(rewriter, count, true);
}

void terminal_print(Rewriter &rewriter, char character)
{
    int x = 0;
    int y = 0;
    bool placed = next_place(rewriter, x, y);
    if (character == ' ' && placed && rewriter.wanted_known && pen_is_plain(rewriter.wanted)) {
        rewriter.blanks++;
        return;
    }
    terminal_release_blanks(rewriter);
    terminal_sync_pen(rewriter);
    if (rewriter.charset == Charset::RESETTING) {
        rewriter.charset = Charset::RESET;
    }
    placed = placed && next_place(rewriter, x, y);
    if (placed && character != ' ' &&
        cell_at(rewriter, x, y).ch == static_cast<unsigned char>(character)) {
        const tb_cell &cell = cell_at(rewriter, x, y);
        rewriter.pen_cell_known = true;
        rewriter.pen_foreground = cell.fg;
        rewriter.pen_background = cell.bg;
    }
    terminal_sync_position(rewriter);
    terminal_put(rewriter, {&character, 1});
    advance(rewriter, 1, true);
}

// A byte of a character beyond ASCII.
void terminal_print_byte(Rewriter &rewriter, char byte)
{
    terminal_release_blanks(rewriter);
    terminal_sync_pen(rewriter);
    terminal_sync_position(rewriter);
    terminal_put(rewriter, {&byte, 1});
    const bool leads = static_cast<unsigned char>(byte) >= 0xc0;
    advance(rewriter, leads ? 2 : 0, false);
}
