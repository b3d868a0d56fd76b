#include "tui/guard/obey.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "tui/guard/walk.h"

namespace {

// libvterm's own REP loops for ever unless a glyph with a width was the last thing printed.
// Beyond one line's worth there is no use in a count, only work.
void repeat_glyph(const Guard &guard, VTerm *vt, int count)
{
    char copies[16 * sizeof guard.glyph];
    int cols = 0;
    if (guard.glyph_length == 0) {
        return;
    }
    vterm_get_size(vt, nullptr, &cols);
    count = std::min(count, cols);
    const int room = static_cast<int>(sizeof copies) / guard.glyph_length;
    char *copy = copies;
    for (int i = 0; i < std::min(room, count); i++, copy += guard.glyph_length) {
        memcpy(copy, guard.glyph, guard.glyph_length);
    }
    for (; count > 0; count -= room) {
        vterm_input_write(vt, copies,
                          static_cast<size_t>(std::min(room, count)) * guard.glyph_length);
    }
}

// The first number of a control sequence, or 1.
int first_number(std::string_view sequence)
{
    int number = 0;
    sequence.remove_prefix(2);
    for (const char byte : sequence) {
        if (byte < '0' || byte > '9') {
            break;
        }
        number = number * 10 + (byte - '0');
    }
    return std::max(number, 1);
}

void restore_cursor(VTerm *vt)
{
    guard_send_bytes(vt, "\x1b\x38");
    guard_keep_cursor_inside(vt); // the screen may have shrunk since the cursor was saved
}

// libvterm takes the first of several modes only. Those that concern what the terminal sends are
// not its business.
void set_private_mode(Guard &guard, VTerm *vt, int mode, bool on)
{
    switch (mode) {
    case 1:
        guard.modes.cursor_keys = on;
        break;
    case 7:
        guard.autowrap_off = !on;
        break;
    case 47:
    case 1047:
    case 1049:
        guard.alternate = on;
        mode = mode == 47 ? 1047 : mode; // the same, for libvterm
        break;
    case 66:
        guard.modes.keypad = on;
        break;
    case 69:
        guard.side_margins = on;
        break;
    case 2004:
        guard.modes.paste = on;
        break;
    default:
        break;
    }
    char sequence[32];
    const int length = snprintf(sequence, sizeof sequence, "\x1b[?%d%c", mode, on ? 'h' : 'l');
    guard_send_bytes(vt, {sequence, static_cast<size_t>(length)});
}

// The numbers between "ESC [ ?" and the final byte.
void set_private_modes(Guard &guard, VTerm *vt, std::string_view sequence)
{
    const bool on = sequence.back() == 'h';
    int mode = -1; // none yet
    sequence.remove_prefix(3);
    for (const char byte : sequence) {
        if (byte >= '0' && byte <= '9') {
            mode = std::max(mode, 0) * 10 + (byte - '0');
        } else {
            if (mode >= 0) {
                set_private_mode(guard, vt, mode, on);
            }
            mode = -1;
        }
    }
}

// libvterm takes the first of several of these, too.
void set_mode(Guard &guard, int mode, bool on)
{
    if (mode == 4) {
        guard.insert_mode = on;
    } else if (mode == 20) {
        guard.newline_mode = on;
    }
}

// Whether "ESC [ top ; bottom r" leaves all rows to scroll.
bool covers_screen(VTerm *vt, std::string_view margins)
{
    int rows = 0;
    char whole[3][32];
    vterm_get_size(vt, &rows, nullptr);
    snprintf(whole[0], sizeof whole[0], "\x1b[r");
    snprintf(whole[1], sizeof whole[1], "\x1b[1;%dr", rows);
    snprintf(whole[2], sizeof whole[2], "\x1b[;%dr", rows);
    return margins == whole[0] || margins == whole[1] || margins == whole[2];
}

void note_margins(Guard &guard, VTerm *vt, std::string_view sequence)
{
    if (sequence.back() == 's') {
        guard.margins |= GUARD_COLUMNS;
    } else if (covers_screen(vt, sequence)) {
        guard.margins &= static_cast<uint8_t>(~GUARD_ROWS);
    } else {
        guard.margins |= GUARD_ROWS;
    }
}

void obey_csi(Guard &guard, VTerm *vt, std::string_view sequence)
{
    const char final = sequence.back();
    const char leader = sequence[2];
    const bool leads = leader >= '<' && leader <= '?';
    const char before_final = sequence[sequence.size() - 2];
    const bool intermediate = guard_is_intermediate(before_final);
    guard.joins = guard.joins && final == 'm';
    if (final == 'b' && !leads && !intermediate) {
        repeat_glyph(guard, vt, first_number(sequence));
        return;
    }
    if ((final == 'h' || final == 'l') && leader == '?' && !intermediate) {
        set_private_modes(guard, vt, sequence);
        return;
    }
    if (final == 's' && before_final == '[' && !guard.side_margins) {
        guard_send_bytes(vt, "\x1b\x37");
        return;
    }
    if (final == 'u' && before_final == '[') {
        restore_cursor(vt);
        return;
    }
    if (final == 'p' && before_final == '!') {
        guard.modes = {};
    }
    if (final == 'r' || final == 's') {
        note_margins(guard, vt, sequence);
    }
    if ((final == 'h' || final == 'l') && !intermediate) {
        set_mode(guard, first_number(sequence), final == 'h');
    }
    guard_send_bytes(vt, sequence);
}

void reset(Guard &guard, VTerm *vt)
{
    guard.modes = {};
    guard.side_margins = false;
    guard.margins = 0;
    guard.designated = 0;
    guard.autowrap_off = false;
    guard.insert_mode = false;
    guard.newline_mode = false;
    guard.lines_doubled = false;
    guard.alternate = false;
    guard_send_bytes(vt, "\x1b[?1047l\x1b\x63"); // libvterm alone stays on the alternate screen
}

// Which of the four character sets hold something else than ASCII.
void note_designation(Guard &guard, char set, char characters)
{
    const auto bit = static_cast<uint8_t>(1 << (set - '('));
    if (characters == '0' || characters == 'A') {
        guard.designated |= bit;
    } else if (characters == 'B') {
        guard.designated &= static_cast<uint8_t>(~bit);
    }
}

void obey_escape(Guard &guard, VTerm *vt, std::string_view sequence)
{
    if (sequence.size() == 3 && sequence[1] >= '(' && sequence[1] <= '+') {
        note_designation(guard, sequence[1], sequence[2]);
    }
    guard.lines_doubled |= sequence[1] == '#';
    guard.joins = guard.joins && sequence.size() > 2;
    switch (sequence.size() == 2 ? sequence[1] : '\0') {
    case '8':
        restore_cursor(vt);
        return;
    case 'c':
        reset(guard, vt);
        return;
    case '=':
    case '>':
        guard.modes.keypad = sequence[1] == '=';
        break;
    default:
        break;
    }
    guard_send_bytes(vt, sequence);
}

void begin_string(Guard &guard, std::string_view introducer)
{
    guard.string_left = GUARD_STRING_SIZE;
    if (introducer.back() == ']') {
        guard_keep_tail(guard, introducer); // the others tell libvterm nothing
    }
}

} // namespace

void guard_obey(Guard &guard, VTerm *vt, const GuardSequence &sequence)
{
    const std::string_view text(sequence.text, sequence.length);
    switch (sequence.kind) {
    case GuardSequenceKind::CUT:
        guard_keep_tail(guard, text);
        break;
    case GuardSequenceKind::BROKEN:
        break;
    case GuardSequenceKind::ESCAPE:
        obey_escape(guard, vt, text);
        break;
    case GuardSequenceKind::CSI:
        obey_csi(guard, vt, text);
        break;
    case GuardSequenceKind::STRING:
        begin_string(guard, text);
        break;
    }
}

void guard_keep_cursor_inside(VTerm *vt)
{
    const VTermPos cursor = guard_cursor(vt);
    int rows = 0;
    int cols = 0;
    vterm_get_size(vt, &rows, &cols);
    if (cursor.row < 0 || cursor.row >= rows || cursor.col < 0 || cursor.col >= cols) {
        // A status report that asks for nothing: after any control sequence libvterm brings the
        // cursor back, and this one does nothing else.
        guard_send_bytes(vt, "\x1b[0n");
    }
}
