#include "tui/port_guard.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "text/printable.h"
#include "tui/port_character.h"
#include "tui/port_scan.h"
#include "tui/port_sequence.h"

namespace {

// libvterm sets aside four bytes of stack for each byte that it has not looked at yet.
constexpr ptrdiff_t PIECE = 4096;
// What is looked at together: bytes held back and some that follow.
constexpr size_t JOINED = sizeof PortGuard::held + 256;
constexpr std::string_view REPLACEMENT = "\xef\xbf\xbd";
constexpr char BELL = 0x07;
constexpr char CANCEL = 0x18;
constexpr char SUBSTITUTE = 0x1a;

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

void write(VTerm *vt, std::string_view bytes)
{
    vterm_input_write(vt, bytes.data(), bytes.size());
}

// Sends what comes before the next bytes and leaves those out.
void leave_out(Walk &walk, size_t length)
{
    send(walk);
    walk.at += length;
    walk.unsent = walk.at;
}

void hold_back(PortGuard &guard, std::string_view bytes)
{
    guard.held_length = static_cast<uint16_t>(bytes.size());
    memcpy(guard.held, bytes.data(), bytes.size());
}

void keep_glyph(Walk &walk)
{
    if (walk.glyph) {
        const std::string_view from(walk.glyph, static_cast<size_t>(walk.end - walk.glyph));
        walk.guard.glyph_length = decode_character(from).length;
        memcpy(walk.guard.glyph, walk.glyph, walk.guard.glyph_length);
        walk.glyph = nullptr;
    }
}

void keep_mark(PortGuard &guard, std::string_view mark)
{
    guard.marks++;
    if (guard.glyph_length > 0 && guard.glyph_length + mark.size() <= sizeof guard.glyph) {
        memcpy(guard.glyph + guard.glyph_length, mark.data(), mark.size());
        guard.glyph_length = static_cast<uint8_t>(guard.glyph_length + mark.size());
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
    return common && continues_character(at[1]) ? 2 : 0;
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

// One character of more than one byte, or bytes that are none: one U+FFFD for all that belong
// together.
void pass_character(Walk &walk)
{
    const std::string_view bytes(walk.at, static_cast<size_t>(walk.end - walk.at));
    const Character character = decode_character(bytes);
    if (character.cut) {
        leave_out(walk, bytes.size());
        keep_glyph(walk);
        hold_back(walk.guard, bytes);
        return;
    }
    if (!character.valid) {
        leave_out(walk, character.span);
        write(walk.vt, REPLACEMENT);
        note_printed(walk, REPLACEMENT.data());
        return;
    }
    switch (port_judge_character(character.code_point, walk.guard.marks)) {
    case PortVerdict::PASS:
        send_piece(walk);
        note_printed(walk, walk.at);
        walk.at += character.length;
        break;
    case PortVerdict::MARK:
        keep_glyph(walk);
        keep_mark(walk.guard, {walk.at, character.length});
        walk.at += character.length;
        break;
    case PortVerdict::DROP:
        leave_out(walk, character.length);
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

// The end of a control sequence that is all there and passes as it is, as most are; else null. The
// others are read whole.
const char *plain_csi_end(const char *at, const char *end)
{
    if (end - at < 3 || at[1] != '[') {
        return nullptr;
    }
    at += at[2] >= '<' && at[2] <= '?' ? 3 : 2;
    const char *numbers = at;
    at = port_skip<port_mark_not_number>(at, end);
    if (at == end || byte_at(at) < 0x40 || byte_at(at) > 0x7e || *at == 'b' || *at == 'r' ||
        *at == 's') {
        return nullptr;
    }
    // Few bytes are within any limit.
    return at - numbers <= PORT_MAX_DIGITS || within_limits(numbers, at) ? at + 1 : nullptr;
}

// libvterm's own REP loops for ever unless a glyph with a width was the last thing printed.
// Beyond one line's worth there is no use in a count, only work.
void repeat_glyph(const PortGuard &guard, VTerm *vt, int count)
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

// Puts a cursor that libvterm left outside of the screen back onto it.
void keep_cursor_inside(VTerm *vt)
{
    VTermPos cursor;
    int rows = 0;
    int cols = 0;
    vterm_get_size(vt, &rows, &cols);
    vterm_state_get_cursorpos(vterm_obtain_state(vt), &cursor);
    if (cursor.row < 0 || cursor.row >= rows || cursor.col < 0 || cursor.col >= cols) {
        // A status report that asks for nothing: after any control sequence libvterm brings the
        // cursor back, and this one does nothing else.
        write(vt, "\x1b[0n");
    }
}

void obey_csi(PortGuard &guard, VTerm *vt, std::string_view sequence)
{
    const char final = sequence.back();
    const bool simple = sequence[2] < '<' || sequence[2] > '?';
    if (final == 'b' && simple && !port_is_intermediate(sequence[sequence.size() - 2])) {
        repeat_glyph(guard, vt, first_number(sequence));
        return;
    }
    guard.margins_set |= final == 'r' || final == 's';
    write(vt, sequence);
}

void obey(PortGuard &guard, VTerm *vt, const PortSequence &sequence)
{
    const std::string_view text(sequence.text, sequence.length);
    switch (sequence.kind) {
    case PortSequenceKind::CUT:
        hold_back(guard, text);
        break;
    case PortSequenceKind::BROKEN:
        break;
    case PortSequenceKind::ESCAPE:
        write(vt, text);
        if (text == "\x1b\x38") {
            keep_cursor_inside(vt); // the screen may have shrunk since the cursor was saved
        }
        break;
    case PortSequenceKind::CSI:
        obey_csi(guard, vt, text);
        break;
    case PortSequenceKind::STRING:
        guard.in_string = true;
        if (text.back() == ']') {
            hold_back(guard, text); // the others tell libvterm nothing
        }
        break;
    }
}

bool is_control(char byte)
{
    return (byte >= 0 && byte < 0x20) || byte == 0x7f;
}

// Control bytes do their work inside a sequence as well, but for those that end it.
void pass_control_within(Walk &walk)
{
    const char byte = *walk.at;
    if (byte == PORT_ESCAPE) {
        walk.guard.held_length = 0;
        return;
    }
    if (byte == CANCEL || byte == SUBSTITUTE) {
        walk.guard.held_length = 0;
    } else {
        write(walk.vt, {&byte, 1});
    }
    leave_out(walk, 1);
}

void pass_sequence(Walk &walk)
{
    const char *end = plain_csi_end(walk.at, walk.end);
    if (end) {
        walk.at = end;
        return;
    }
    PortSequence sequence;
    port_read_sequence({walk.at, static_cast<size_t>(walk.end - walk.at)}, sequence);
    leave_out(walk, sequence.taken);
    keep_glyph(walk);
    obey(walk.guard, walk.vt, sequence);
    if (sequence.kind == PortSequenceKind::CUT && walk.at < walk.end && is_control(*walk.at)) {
        pass_control_within(walk);
    }
}

// The bytes of a control string; of OSC as many as there is room for are kept.
void pass_string(Walk &walk)
{
    PortGuard &guard = walk.guard;
    while (walk.at < walk.end && guard.in_string) {
        const char byte = *walk.at;
        if (byte == BELL || byte == PORT_ESCAPE || byte == CANCEL || byte == SUBSTITUTE) {
            guard.in_string = false;
            if (guard.held_length > 0 && (byte == BELL || byte == PORT_ESCAPE)) {
                guard.held[guard.held_length] = BELL; // in one piece, or libvterm forgets the first
                write(walk.vt, {guard.held, guard.held_length + 1U});
            }
            guard.held_length = 0;
            walk.at += byte == PORT_ESCAPE ? 0 : 1;
        } else {
            if (is_control(byte)) {
                write(walk.vt, {&byte, 1});
            } else if (guard.held_length == sizeof guard.held - 1) {
                guard.held_length = 0; // too long, and dropped
            } else if (guard.held_length > 0) {
                guard.held[guard.held_length++] = byte;
            }
            walk.at++;
        }
    }
    walk.unsent = walk.at;
}

// A character or a sequence.
void pass_item(Walk &walk)
{
    if (*walk.at == PORT_ESCAPE) {
        pass_sequence(walk);
    } else {
        pass_character(walk);
    }
}

// What was held back, together with some of what follows it.
void pass_held(Walk &walk)
{
    char joined[JOINED];
    const size_t held = walk.guard.held_length;
    const size_t added = std::min(static_cast<size_t>(walk.end - walk.at), sizeof joined - held);
    memcpy(joined, walk.guard.held, held);
    memcpy(joined + held, walk.at, added);
    walk.guard.held_length = 0;
    Walk item{walk.guard, walk.vt, joined, joined, joined + held + added, nullptr};
    pass_item(item);
    send(item);
    keep_glyph(item);
    walk.at += item.at - (joined + held);
    walk.unsent = walk.at;
}

void pass_unheld(Walk &walk)
{
    while (walk.at < walk.end && walk.guard.held_length == 0 && !walk.guard.in_string) {
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
        if (guard.in_string) {
            pass_string(walk);
        } else if (guard.held_length > 0) {
            pass_held(walk);
        } else {
            pass_unheld(walk);
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
    keep_cursor_inside(vt);
}
