#include "tui/guard/rows.h"

#include <algorithm>

#include "text/printable.h"
#include "tui/guard/character.h"
#include "tui/guard/scan.h"
#include "tui/guard/sequence.h"
#include "tui/guard/walk.h"

namespace {

// Sequences that select ASCII.
constexpr std::string_view SELECTIONS[] = {"\x1b(B", "\x0f"};

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
Text read_text(const GuardRows &rows)
{
    if (static_cast<unsigned char>(*rows.at) >= 0x80) {
        return read_character(rows.at, rows.end);
    }
    const ptrdiff_t room = std::max(1, rows.cols - rows.column);
    const char *end = rows.at + std::min(rows.end - rows.at, room);
    const ptrdiff_t length = guard_skip<guard_mark_not_printed>(rows.at, end) - rows.at;
    return {length, static_cast<int>(length), 0};
}

void put_text(GuardLine &into, const char *bytes, const Text &text, int column)
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

// The end of a sequence that changes nothing but the pen, else null.
const char *pen_sequence_end(const char *at, const char *end)
{
    end = guard_plain_csi_end(at, end);
    const bool changes_pen = end != nullptr && end[-1] == 'm' && !(at[2] >= '<' && at[2] <= '?');
    return changes_pen ? end : nullptr;
}

// Passes such a sequence. Returns false when it is none.
bool pass_pen(GuardRows &rows, GuardLine *into)
{
    const char *begin = rows.at;
    const char *end = pen_sequence_end(begin, rows.end);
    if (end == nullptr) {
        return false;
    }
    const std::string_view sequence(begin, static_cast<size_t>(end - begin));
    const bool resets = sequence == "\x1b[m" || sequence == "\x1b[0m";
    const bool keeps = rows.steady && sequence == "\x1b[39;49m"; // has top write behind each reset
    rows.steady = rows.resets && (resets || keeps);
    rows.at = end;
    if (into != nullptr) {
        guard_send_bytes(rows.vt, sequence);
        into->pen = rows.steady ? into->first_pen : guard_sample_pen(rows.vt);
    }
    return true;
}

// Passes what full-screen programs write with each reset of the pen: the selection of ASCII, where
// no other characters are selected. Returns false when there is none.
bool pass_selection(GuardRows &rows)
{
    for (size_t i = 0; i < std::size(SELECTIONS); i++) {
        if (guard_begins_with(SELECTIONS[i], rows.at, rows.end)) {
            rows.selections |= static_cast<uint8_t>(1 << i);
            rows.joins = rows.joins && *rows.at == GUARD_ESCAPE;
            rows.at += SELECTIONS[i].size();
            return true;
        }
    }
    return false;
}

// Passes an erasure of the rest of the row, which compilers write behind each colour. Returns false
// when there is none, or libvterm might erase something else.
bool pass_erasure(GuardRows &rows, GuardLine *into)
{
    constexpr std::string_view ERASE = "\x1b[K";
    if (rows.column == rows.cols || !guard_begins_with(ERASE, rows.at, rows.end)) {
        return false;
    }
    if (into != nullptr) {
        VTermScreenCell erased = into->pen;
        erased.chars[0] = 0;
        std::fill(into->cells + rows.column, into->cells + rows.cols, erased);
        into->used = rows.cols;
    }
    rows.filled = rows.filled >= rows.column ? rows.cols : rows.filled;
    rows.joins = false;
    rows.at += ERASE.size();
    return true;
}

// Passes characters of one row. Returns false when there are none that fit into it.
bool pass_text(GuardRows &rows, const Text &text, GuardLine *into)
{
    if (text.length == 0 || rows.column + text.columns > rows.cols) {
        return false;
    }
    if (into != nullptr) {
        put_text(*into, rows.at, text, rows.column);
    }
    rows.last = text.code_point == 0 ? rows.at + text.length - 1 : rows.at;
    rows.joins = true;
    // The second cell of a wide character keeps attributes of what it held before.
    const bool narrow = text.code_point == 0 || text.columns == 1;
    if (narrow && rows.filled >= rows.column) {
        rows.filled = std::max(rows.filled, rows.column + text.columns);
    }
    rows.column += text.columns;
    rows.at += text.length;
    return true;
}

} // namespace

bool guard_knows_rows(const Guard &guard)
{
    return guard.margins == 0 && guard.designated == 0 && !guard.autowrap_off &&
           !guard.insert_mode && !guard.newline_mode && !guard.lines_doubled;
}

GuardRows guard_rows_at(VTerm *vt, const char *at, const char *end)
{
    GuardRows rows = {};
    rows.vt = vt;
    rows.at = at;
    rows.end = end;
    rows.resets = rows.steady = true;
    vterm_get_size(vt, nullptr, &rows.cols);
    return rows;
}

void guard_send_selections(const GuardRows &rows)
{
    for (size_t i = 0; i < std::size(SELECTIONS); i++) {
        if ((rows.selections >> i & 1) != 0) {
            guard_send_bytes(rows.vt, SELECTIONS[i]);
        }
    }
}

bool guard_pass_row(GuardRows &rows, GuardLine *into)
{
    while (rows.at < rows.end) {
        const char byte = *rows.at;
        if (byte == GUARD_ESCAPE) {
            if (!pass_erasure(rows, into) && !pass_pen(rows, into) && !pass_selection(rows)) {
                return false;
            }
        } else if (byte == '\r') {
            rows.joins = false;
            rows.column = 0;
            rows.at++;
        } else if (byte == '\n') {
            // In the bottom row a line feed does not keep the next character from wrapping.
            if (rows.column == rows.cols || !rows.steady) {
                return false;
            }
            rows.joins = false;
            rows.row_end = rows.at++;
            return true;
        } else if (!pass_selection(rows)) {
            const Text text = read_text(rows);
            if (!pass_text(rows, text, into)) {
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

VTermScreenCell guard_sample_pen(VTerm *vt)
{
    VTermScreenCell cell = {};
    guard_send_bytes(vt, "\rx");
    (void)vterm_screen_get_cell(vterm_obtain_screen(vt), {guard_cursor(vt).row, 0}, &cell);
    return cell;
}
