#include "tui/port_guard.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "tui/port_held.h"
#include "tui/port_scan.h"

namespace {

// libvterm sets aside four bytes of stack for each byte that it has not looked at yet.
constexpr ptrdiff_t PIECE = 4096;

// A walk over the caller's bytes.
struct Walk {
    PortGuard &guard;
    VTerm *vt;
    const char *unsent; // first byte that libvterm has not been given
    const char *at;     // first byte not looked at
    const char *end;
    const char *glyph; // the last character printed; null while guard.glyph holds it
};

unsigned char byte_at(const char *bytes)
{
    return static_cast<unsigned char>(*bytes);
}

void send(Walk &walk)
{
    if (walk.at > walk.unsent) {
        vterm_input_write(walk.vt, walk.unsent, static_cast<size_t>(walk.at - walk.unsent));
    }
    walk.unsent = walk.at;
}

// To be called at points where no combining mark can follow, which would lose its character.
void send_piece(Walk &walk)
{
    if (walk.at - walk.unsent >= PIECE) {
        send(walk);
    }
}

void keep_glyph(Walk &walk)
{
    if (walk.glyph) {
        port_note_glyph(walk.guard, walk.glyph, port_character_length(byte_at(walk.glyph)));
        walk.glyph = nullptr;
    }
}

void note_printed(Walk &walk, const char *glyph)
{
    walk.glyph = glyph;
    walk.guard.marks = 0;
}

bool is_printed(const char *at)
{
    return byte_at(at) >= 0x20 && *at != 0x7f;
}

void pass_plain(Walk &walk)
{
    const char *begin = walk.at;
    // Dense colours: a single character between two sequences.
    if (walk.end - begin >= 2 && begin[1] == PORT_ESCAPE && is_printed(begin)) {
        walk.at++;
        note_printed(walk, begin);
        return;
    }
    walk.at = port_skip<port_mark_not_plain>(begin, begin + std::min(walk.end - begin, PIECE));
    for (const char *last = walk.at; last > begin; last--) {
        if (is_printed(last - 1)) {
            note_printed(walk, last - 1);
            break;
        }
    }
}

// The length of the character at the start of three bytes, when it is one of those that most text
// is made of (letters of Europe, ideographs, Hangul, symbols and lines), none of them a mark;
// else 0.
int common_character_length(const char *at)
{
    const unsigned char first = byte_at(at);
    const unsigned char second = byte_at(at + 1);
    const unsigned char third = byte_at(at + 2);
    if (first >= 0xe2 && first <= 0xec) {
        const bool whole = ((second ^ 0x80) | (third ^ 0x80)) < 0x40;
        const bool common = first >= 0xe4 ? first != 0xea : second >= (first == 0xe2 ? 0x84 : 0x83);
        return whole && common ? 3 : 0;
    }
    const bool common = (first >= 0xc3 && first <= 0xcb) || (first >= 0xce && first <= 0xd1);
    return common && port_continues_character(second) ? 2 : 0;
}

void pass_common_characters(Walk &walk)
{
    send_piece(walk);
    const char *at = walk.at;
    const char *end = at + std::min(walk.end - at, PIECE);
    const char *last = nullptr;
    while (end - at >= 3) {
        const int length = common_character_length(at);
        if (length == 0) {
            break;
        }
        last = at;
        at += length;
    }
    if (last) {
        walk.at = at;
        note_printed(walk, last);
    }
}

void replace(Walk &walk, ptrdiff_t length)
{
    send(walk);
    walk.at += length;
    walk.unsent = walk.at;
    vterm_input_write(walk.vt, PORT_REPLACEMENT, 3);
    note_printed(walk, PORT_REPLACEMENT);
}

void hold_back(Walk &walk, ptrdiff_t length)
{
    send(walk);
    keep_glyph(walk);
    walk.at += length;
    walk.unsent = walk.at;
}

// One character of more than one byte, or a byte that no character begins with: libvterm shows
// U+FFFD for the latter, and for a whole character that is none.
void pass_character(Walk &walk)
{
    const char *begin = walk.at;
    const int length = port_character_length(byte_at(begin));
    int present = 1;
    while (present < length && begin + present < walk.end &&
           port_continues_character(byte_at(begin + present))) {
        present++;
    }
    if (present < length && begin + present == walk.end) {
        hold_back(walk, present);
        port_hold_character(walk.guard, begin, present);
        return;
    }
    PortVerdict verdict = PortVerdict::REPLACE;
    if (length == 1) {
        verdict = PortVerdict::PASS;
    } else if (present == length) {
        verdict = port_judge_character(begin, length, walk.guard.marks);
    }
    switch (verdict) {
    case PortVerdict::PASS:
        send_piece(walk);
        walk.at += length;
        note_printed(walk, begin);
        break;
    case PortVerdict::MARK:
        walk.at += length;
        keep_glyph(walk);
        port_note_mark(walk.guard, begin, length);
        break;
    case PortVerdict::REPLACE:
        replace(walk, present);
        break;
    case PortVerdict::DROP:
        send(walk);
        walk.at += length;
        walk.unsent = walk.at;
        break;
    }
}

bool within_limits(const char *at, const char *end)
{
    int digits = 0;
    int separators = 0;
    for (; at < end; at++) {
        const bool separates = *at == ';' || *at == ':';
        separators += separates;
        digits = separates ? 0 : digits + 1;
        if (separators > PORT_MAX_SEPARATORS || digits > PORT_MAX_DIGITS) {
            return false;
        }
    }
    return true;
}

// The end of a control sequence, given its first byte after the "[", when it is all there and needs
// no closer look; else null.
const char *plain_csi_end(PortGuard &guard, const char *at, const char *end)
{
    if (at < end && *at >= '<' && *at <= '?') {
        at++;
    }
    const char *numbers = at;
    at = port_skip<port_mark_not_number>(at, end);
    if (at == end) {
        return nullptr;
    }
    const unsigned char last = byte_at(at);
    if (last < 0x40 || last > 0x7e || last == 'b') {
        return nullptr;
    }
    // Few bytes are within any limit.
    if (at - numbers > PORT_MAX_DIGITS && !within_limits(numbers, at)) {
        return nullptr;
    }
    if (last == 'r' || last == 's') {
        guard.margins_set = true;
    }
    return at + 1;
}

// The end of an escape sequence, as above.
const char *plain_sequence_end(PortGuard &guard, const char *at, const char *end)
{
    const ptrdiff_t present = end - at;
    if (present < 2) {
        return nullptr;
    }
    if (at[1] == '[') {
        return plain_csi_end(guard, at + 2, end);
    }
    switch (at[1]) {
    case '(':
    case ')':
        return present > 2 && (at[2] == '0' || at[2] == 'B') ? at + 3 : nullptr;
    case '7':
    case '=':
    case '>':
    case 'D':
    case 'E':
    case 'M':
        return at + 2;
    default:
        return nullptr;
    }
}

void pass_sequence(Walk &walk)
{
    const char *end = plain_sequence_end(walk.guard, walk.at, walk.end);
    if (end) {
        walk.at = end;
        return;
    }
    hold_back(walk, 1);
    port_hold_escape(walk.guard);
}

void pass_unheld(Walk &walk)
{
    while (walk.at < walk.end && walk.guard.held_kind == PortHeld::NOTHING) {
        if (byte_at(walk.at) >= 0x80) {
            const char *begin = walk.at;
            pass_common_characters(walk);
            if (walk.at == begin) {
                pass_character(walk);
            }
            continue;
        }
        send_piece(walk);
        if (*walk.at == PORT_ESCAPE) {
            pass_sequence(walk);
        } else {
            pass_plain(walk);
        }
    }
    send(walk);
    keep_glyph(walk);
}

void pass_held(Walk &walk)
{
    while (walk.at < walk.end && walk.guard.held_kind != PortHeld::NOTHING) {
        if (port_held_take(walk.guard, walk.vt, byte_at(walk.at))) {
            walk.at++;
        }
    }
    walk.unsent = walk.at;
}

// Margins beyond the new size make the next scroll move memory outside of the screen. Resetting
// them moves the cursor to the corner, from where libvterm would scroll too few lines away.
void reset_margins(PortGuard &guard, VTerm *vt)
{
    char sequence[64];
    VTermPos cursor;
    vterm_state_get_cursorpos(vterm_obtain_state(vt), &cursor);
    const int length = snprintf(sequence, sizeof(sequence), "\x1b[r\x1b[s\x1b[%d;%dH",
                                cursor.row + 1, cursor.col + 1);
    vterm_input_write(vt, sequence, static_cast<size_t>(length));
    guard.margins_set = false;
}

} // namespace

VTerm *port_guard_new_vterm(int rows, int cols)
{
    return vterm_new(std::clamp(rows, PORT_GUARD_MIN_ROWS, PORT_GUARD_MAX_ROWS),
                     std::clamp(cols, PORT_GUARD_MIN_COLS, PORT_GUARD_MAX_COLS));
}

void port_guard_write(PortGuard &guard, VTerm *vt, const char *bytes, size_t length)
{
    if (!guard.started) {
        // Restoring a cursor that was never saved would hide it: common when the client comes to a
        // port whose full-screen program was started before.
        vterm_input_write(vt, "\x1b\x37", 2);
        guard.started = true;
    }
    Walk walk{guard, vt, bytes, bytes, bytes + length, nullptr};
    while (walk.at < walk.end) {
        if (guard.held_kind == PortHeld::NOTHING) {
            pass_unheld(walk);
        } else {
            pass_held(walk);
        }
    }
}

void port_guard_set_size(PortGuard &guard, VTerm *vt, int rows, int cols)
{
    int old_rows = 0;
    int old_cols = 0;
    rows = std::clamp(rows, PORT_GUARD_MIN_ROWS, PORT_GUARD_MAX_ROWS);
    cols = std::clamp(cols, PORT_GUARD_MIN_COLS, PORT_GUARD_MAX_COLS);
    vterm_get_size(vt, &old_rows, &old_cols);
    if (guard.margins_set && (rows < old_rows || cols < old_cols)) {
        reset_margins(guard, vt);
    }
    vterm_set_size(vt, rows, cols);
    // 0.1.4 scrolls a full screen by more lines than there are above its cursor.
    port_keep_cursor_inside(vt);
}

void port_guard_fill_line(VTermScreenCell *cells, int cols, const VTermScreenCell *saved,
                          int saved_cols)
{
    VTermScreenCell blank = {};
    blank.width = 1;
    const int kept = std::min(cols, saved_cols);
    for (int col = 0; col < cols; col++) {
        const bool cut = col == cols - 1 && col < kept && saved[col].width == 2;
        cells[col] = col < kept && !cut ? saved[col] : blank;
    }
}
