#include "tui/guard/gather.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "text/printable.h"
#include "tui/guard/character.h"
#include "tui/guard/scan.h"
#include "tui/guard/sequence.h"

namespace {

struct Size {
    int rows;
    int cols;
};

// A row as libvterm would save it.
struct Line {
    VTermScreenCell cells[GUARD_MAX_COLS];
    VTermScreenCell blank; // a cell that nothing was put into
    VTermScreenCell pen;   // one that something is put into now
    VTermScreenCell first_pen;
    int used;  // columns
    bool wide; // some character takes two columns
};
Line line;

// A walk over text, row by row, that knows the place of every character.
struct Rows {
    VTerm *vt;
    const char *at;
    const char *end;
    bool resets;         // the pen was at first what a reset makes it
    bool steady;         // it is as it was at first
    bool joins;          // the last character stands in front of the cursor
    int column;          // of the next character; the width of the screen when it wraps
    const char *row_end; // of the row passed last
    const char *last;    // the last character with columns of its own; null without one
};

// Characters that stand side by side.
struct Text {
    ptrdiff_t length;    // in bytes; 0 when libvterm is not given them as they are
    int columns;         // of all of them
    uint32_t code_point; // of a single one beyond ASCII
};

Text read_character(const char *at, const char *end)
{
    Text text = {end - at >= 3 ? guard_common_length(at) : 0, 0, 0};
    const Character character = decode_character({at, static_cast<size_t>(end - at)});
    text.code_point = character.code_point;
    if (text.length > 0) {
        text.columns = guard_common_width(at);
    } else if (character.valid && character.code_point != 0xfffe &&
               character.code_point != 0xffff && // for these libvterm shows another one
               guard_judge_character(character.code_point, 0) == GuardVerdict::PASS) {
        text.columns = character_width(character.code_point);
        text.length = text.columns > 0 ? character.length : 0;
    }
    return text;
}

// The next character, or as many of ASCII as there are in a row.
Text read_text(const Rows &rows, int cols)
{
    if (static_cast<unsigned char>(*rows.at) >= 0x80) {
        return read_character(rows.at, rows.end);
    }
    const ptrdiff_t room = std::max(1, cols - rows.column);
    const char *end = rows.at + std::min(rows.end - rows.at, room);
    const ptrdiff_t length = guard_skip<guard_mark_not_printed>(rows.at, end) - rows.at;
    return {length, static_cast<int>(length), 0};
}

void put_text(Line &into, const char *bytes, const Text &text, int column)
{
    VTermScreenCell *cell = into.cells + column;
    std::fill(cell, cell + (text.code_point == 0 ? text.length : 1), into.pen);
    if (text.code_point == 0) {
        for (ptrdiff_t i = 0; i < text.length; i++) {
            cell[i].chars[0] = static_cast<unsigned char>(bytes[i]);
        }
    } else {
        cell[0].chars[0] = text.code_point;
        if (text.columns == 2) {
            cell[1].chars[0] = UINT32_MAX;
            into.wide = true;
        }
    }
    into.used = std::max(into.used, column + text.columns);
}

// A cell as libvterm would print it now: prints one in the first column of the cursor's row.
VTermScreenCell sample_pen(VTerm *vt)
{
    VTermScreenCell cell = {};
    guard_send_bytes(vt, "\rx");
    (void)vterm_screen_get_cell(vterm_obtain_screen(vt), {guard_cursor(vt).row, 0}, &cell);
    return cell;
}

// The end of a sequence that changes nothing but the pen, else null.
const char *pen_sequence_end(const char *at, const char *end)
{
    end = guard_plain_csi_end(at, end);
    const bool changes_pen = end != nullptr && end[-1] == 'm' && !(at[2] >= '<' && at[2] <= '?');
    return changes_pen ? end : nullptr;
}

// Passes such a sequence. Returns false when it is none.
bool pass_pen(Rows &rows, Line *into)
{
    const char *begin = rows.at;
    const char *end = pen_sequence_end(begin, rows.end);
    if (end == nullptr) {
        return false;
    }
    const std::string_view sequence(begin, static_cast<size_t>(end - begin));
    rows.steady = rows.resets && (sequence == "\x1b[m" || sequence == "\x1b[0m");
    rows.at = end;
    if (into != nullptr) {
        guard_send_bytes(rows.vt, sequence);
        into->pen = rows.steady ? into->first_pen : sample_pen(rows.vt);
    }
    return true;
}

// Passes an erasure of the rest of the row, which compilers write behind each colour. Returns false
// when there is none, or libvterm might erase something else.
bool pass_erasure(Rows &rows, int cols, Line *into)
{
    constexpr std::string_view ERASE = "\x1b[K";
    const std::string_view bytes(rows.at, static_cast<size_t>(rows.end - rows.at));
    if (rows.column == cols || !bytes.starts_with(ERASE)) {
        return false;
    }
    if (into != nullptr) {
        VTermScreenCell erased = into->pen;
        erased.chars[0] = 0;
        std::fill(into->cells + rows.column, into->cells + cols, erased);
        into->used = cols;
    }
    rows.joins = false;
    rows.at += ERASE.size();
    return true;
}

// Passes characters of one row. Returns false when there are none that fit into it.
bool pass_text(Rows &rows, const Text &text, int cols, Line *into)
{
    if (text.length == 0 || rows.column + text.columns > cols) {
        return false;
    }
    if (into != nullptr) {
        put_text(*into, rows.at, text, rows.column);
    }
    rows.last = text.code_point == 0 ? rows.at + text.length - 1 : rows.at;
    rows.joins = true;
    rows.column += text.columns;
    rows.at += text.length;
    return true;
}

// Passes text up to where the next row begins, and puts it into a line if one is given. Returns
// false when that does not come: at the end, or where it is not known what libvterm would do.
bool pass_row(Rows &rows, int cols, Line *into)
{
    while (rows.at < rows.end) {
        const char byte = *rows.at;
        if (byte == GUARD_ESCAPE) {
            if (!pass_erasure(rows, cols, into) && !pass_pen(rows, into)) {
                return false;
            }
        } else if (byte == '\r') {
            rows.joins = false;
            rows.column = 0;
            rows.at++;
        } else if (byte == '\n') {
            // In the bottom row a line feed does not keep the next character from wrapping.
            if (rows.column == cols || !rows.steady) {
                return false;
            }
            rows.joins = false;
            rows.row_end = rows.at++;
            return true;
        } else {
            const Text text = read_text(rows, cols);
            if (!pass_text(rows, text, cols, into)) {
                if (text.length == 0 || !rows.steady) {
                    return false;
                }
                rows.column = 0;
                rows.row_end = rows.at;
                return true;
            }
        }
    }
    return false;
}

bool can_gather(const Guard &guard)
{
    return guard.margins == 0 && guard.designated == 0 && !guard.autowrap_off &&
           !guard.newline_mode && !guard.lines_doubled;
}

void send_sequences(VTerm *vt, int first, char final, int second, char second_final)
{
    char both[64];
    const int length =
        snprintf(both, sizeof both, "\x1b[%d%c\x1b[%d%c", first, final, second, second_final);
    guard_send_bytes(vt, {both, static_cast<size_t>(length)});
}

void send_until(GuardWalk &walk, const char *end)
{
    while (walk.at < end) {
        walk.at += std::min(end - walk.at, GUARD_PIECE);
        while (walk.at < end && continues_character(*walk.at)) {
            walk.at--;
        }
        guard_send(walk);
    }
}

// libvterm tells a cell's width by what is in the next one.
void set_widths(Line &of, int cols)
{
    for (int col = 0; col < cols - 1; col++) {
        of.cells[col].width = of.cells[col + 1].chars[0] == UINT32_MAX ? 2 : 1;
    }
}

// Has rows saved, of text in front of which the screen is blank.
void save_rows(const GuardWalk &walk, Rows &rows, int count, const Size &size)
{
    const VTermScreenCallbacks *callbacks = walk.guard.callbacks;
    VTermScreen *screen = vterm_obtain_screen(walk.vt);
    if (callbacks == nullptr || callbacks->sb_pushline == nullptr || walk.guard.alternate) {
        while (count-- > 0) {
            (void)pass_row(rows, size.cols, nullptr); // the caller has counted them
        }
        return;
    }
    line.blank = {};
    (void)vterm_screen_get_cell(screen, {0, 0}, &line.blank); // inside the screen
    line.pen = line.first_pen = sample_pen(walk.vt);
    std::fill(line.cells, line.cells + size.cols, line.blank);
    while (count-- > 0) {
        (void)pass_row(rows, size.cols, &line);
        if (line.wide) {
            set_widths(line, size.cols);
        }
        callbacks->sb_pushline(size.cols, line.cells, vterm_screen_get_cbdata(screen));
        std::fill(line.cells, line.cells + (line.wide ? size.cols : line.used), line.blank);
        line.used = 0;
        line.wide = false;
    }
    guard_send_bytes(walk.vt, "\x1b[2K"); // erases what sample_pen printed
}

// Text of more lines than there are rows: all that the screen holds scrolls off, and so do the
// first of the lines, which libvterm needs not be given.
void skip_lines(GuardWalk &walk, Rows rows, int count, const Size &size)
{
    (void)pass_row(rows, size.cols, nullptr);
    send_until(walk, rows.row_end);
    // In two steps: libvterm saves nothing of a screen that scrolls by all of its rows at once.
    send_sequences(walk.vt, size.rows - 1, 'S', 1, 'S');
    save_rows(walk, rows, count - size.rows, size);
    send_sequences(walk.vt, size.rows - 1, 'A', rows.column + 1, 'G');
    walk.at = walk.unsent = rows.at;
}

// Whether the text goes on for two lines more, as far as can be seen at once: one line costs the
// same either way.
bool is_worth_it(Rows rows, int cols)
{
    // Without text the cursor would not have moved.
    return pass_row(rows, cols, nullptr) && pass_row(rows, cols, nullptr) && rows.last != nullptr;
}

} // namespace

bool guard_gather(GuardWalk &walk, const char *end)
{
    Size size;
    if (!can_gather(walk.guard)) {
        return false;
    }
    const void *found = memchr(walk.at, '\r', static_cast<size_t>(end - walk.at));
    if (found == nullptr) {
        return false;
    }
    vterm_get_size(walk.vt, &size.rows, &size.cols);
    const char *begin = static_cast<const char *>(found) + 1;
    Rows rows = {walk.vt, begin, walk.end, true, true, false, 0, nullptr, nullptr};
    if (size.rows < 2 || size.cols < 3 || !is_worth_it(rows, size.cols)) {
        return false;
    }
    walk.guard.joins = false;
    walk.at = begin;
    guard_send(walk);
    if (guard_cursor(walk.vt).row != size.rows - 1) {
        return false;
    }
    rows.resets = guard_pen_is_reset(walk.vt);
    const Rows first = rows;
    int count = 0;
    while (pass_row(rows, size.cols, nullptr)) {
        count++;
    }
    if (count == 0 || rows.last == nullptr) {
        return false;
    }
    if (count < size.rows) {
        send_sequences(walk.vt, count, 'S', count, 'A');
    } else {
        skip_lines(walk, first, count, size);
    }
    send_until(walk, rows.at);
    walk.glyph = rows.last;
    walk.guard.at_margin = rows.column == size.cols;
    walk.guard.marks = 0;
    walk.guard.joins = rows.joins;
    return true;
}
