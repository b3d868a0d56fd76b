#include "tui/port_held.h"

#include <string.h>

#include <algorithm>

namespace {

constexpr unsigned char BELL = 0x07;
constexpr unsigned char CANCEL = 0x18;
constexpr unsigned char SUBSTITUTE = 0x1a;
constexpr unsigned char ESCAPE = 0x1b;
constexpr unsigned char DELETE = 0x7f;

bool is_intermediate(unsigned char byte)
{
    return byte >= 0x20 && byte <= 0x2f;
}

bool is_digit(unsigned char byte)
{
    return byte >= '0' && byte <= '9';
}

void release(PortGuard &guard)
{
    guard.held_kind = PortHeld::NOTHING;
    guard.held_length = 0;
}

void append(PortGuard &guard, unsigned char byte)
{
    if (guard.held_length == sizeof(guard.held)) {
        guard.dropped = true;
        return;
    }
    guard.held[guard.held_length++] = static_cast<char>(byte);
}

// Append the last byte of a sequence and give it to libvterm.
void finish(PortGuard &guard, VTerm *vt, unsigned char byte)
{
    append(guard, byte);
    if (!guard.dropped) {
        vterm_input_write(vt, guard.held, guard.held_length);
    }
    release(guard);
}

// libvterm's own REP loops for ever unless a glyph with a width was the last thing printed.
// Beyond one line's worth there is no use in a count, only work.
void repeat_glyph(const PortGuard &guard, VTerm *vt, int count)
{
    char copies[16 * sizeof(guard.glyph)];
    int cols = 0;
    if (guard.glyph_length == 0) {
        return;
    }
    vterm_get_size(vt, nullptr, &cols);
    count = std::min(count, cols);
    const int room = static_cast<int>(sizeof(copies)) / guard.glyph_length;
    char *copy = copies;
    for (int i = 0; i < std::min(room, count); i++, copy += guard.glyph_length) {
        memcpy(copy, guard.glyph, guard.glyph_length);
    }
    for (; count > 0; count -= room) {
        vterm_input_write(vt, copies,
                          static_cast<size_t>(std::min(room, count)) * guard.glyph_length);
    }
}

// The number of a held REP, or 0 when it is another sequence that ends alike.
int repeat_count(const PortGuard &guard)
{
    const char *at = guard.held + 2;
    const char *end = guard.held + guard.held_length;
    if (at < end && (is_intermediate(static_cast<unsigned char>(end[-1])) || at[0] >= '<')) {
        return 0;
    }
    int count = 0;
    while (at < end && is_digit(static_cast<unsigned char>(*at))) {
        count = count * 10 + (*at++ - '0');
    }
    return std::max(count, 1);
}

void finish_csi(PortGuard &guard, VTerm *vt, unsigned char final)
{
    const int count = final == 'b' && !guard.dropped ? repeat_count(guard) : 0;
    if (count > 0) {
        repeat_glyph(guard, vt, count);
        release(guard);
        return;
    }
    guard.margins_set |= final == 'r' || final == 's';
    finish(guard, vt, final);
}

void take_parameter(PortGuard &guard, unsigned char byte)
{
    const auto last = static_cast<unsigned char>(guard.held[guard.held_length - 1]);
    if (is_intermediate(last) || (byte >= '<' && last != '[')) {
        guard.dropped = true;
    } else if (!is_digit(byte)) {
        // libvterm has room for 16 numbers and does not look.
        guard.digits = 0;
        if (byte < '<' && ++guard.separators > PORT_MAX_SEPARATORS) {
            guard.dropped = true;
        }
        if (!guard.dropped) {
            append(guard, byte);
        }
    } else if (guard.digits == 1 && last == '0') {
        guard.held[guard.held_length - 1] = static_cast<char>(byte);
    } else if (guard.digits < PORT_MAX_DIGITS) {
        guard.digits++;
        append(guard, byte);
    }
}

bool take_csi(PortGuard &guard, VTerm *vt, unsigned char byte)
{
    if (byte >= 0x80) {
        release(guard);
        return false;
    }
    if (byte >= 0x40) {
        finish_csi(guard, vt, byte);
    } else if (guard.dropped) {
        return true;
    } else if (is_intermediate(byte)) {
        append(guard, byte);
    } else {
        take_parameter(guard, byte);
    }
    return true;
}

// What an introducer after ESC begins, or ESCAPE when the byte is none.
PortHeld introduced_by(unsigned char byte)
{
    switch (byte) {
    case '[':
        return PortHeld::CSI;
    case ']':
    case 'P':
    case 'X':
    case '^':
    case '_':
        return PortHeld::STRING;
    default:
        return PortHeld::ESCAPE;
    }
}

bool take_escape(PortGuard &guard, VTerm *vt, unsigned char byte)
{
    if (byte >= 0x80) {
        release(guard);
        return false;
    }
    const bool alone = guard.held_length == 1;
    const PortHeld introduced = introduced_by(byte);
    if (is_intermediate(byte)) {
        append(guard, byte);
    } else if (introduced == PortHeld::ESCAPE) {
        finish(guard, vt, byte);
        if (alone && byte == '8') {
            // The screen may have shrunk since the cursor was saved.
            port_keep_cursor_inside(vt);
        }
    } else if (alone) {
        append(guard, byte);
        guard.held_kind = introduced;
        // DCS only makes libvterm answer, which nobody reads; the others it takes for text.
        guard.dropped = introduced == PortHeld::STRING && byte != ']';
    } else {
        // With intermediate bytes it is no introducer, but libvterm would take it for one.
        release(guard);
    }
    return true;
}

bool take_string_escape(PortGuard &guard, VTerm *vt, unsigned char byte)
{
    if (byte == '\\') {
        finish(guard, vt, BELL);
        return true;
    }
    port_hold_escape(guard);
    return false;
}

// Control bytes do their work inside a sequence as well, but for those that end it.
void take_control(PortGuard &guard, VTerm *vt, unsigned char byte)
{
    const bool in_string = guard.held_kind == PortHeld::STRING;
    switch (byte) {
    case ESCAPE:
        if (in_string) {
            guard.held_kind = PortHeld::STRING_ESCAPE;
        } else {
            port_hold_escape(guard);
        }
        return;
    case CANCEL:
    case SUBSTITUTE:
        release(guard);
        return;
    case BELL:
        if (in_string) {
            finish(guard, vt, byte);
            return;
        }
        break;
    case 0:
    case DELETE:
        return;
    }
    const char control = static_cast<char>(byte);
    vterm_input_write(vt, &control, 1);
}

bool take_character(PortGuard &guard, VTerm *vt, unsigned char byte)
{
    const int length = port_character_length(static_cast<unsigned char>(guard.held[0]));
    const bool continues = port_continues_character(byte);
    PortVerdict verdict = PortVerdict::REPLACE;
    if (continues) {
        append(guard, byte);
        if (guard.held_length < length) {
            return true;
        }
        verdict = port_judge_character(guard.held, length, guard.marks);
    }
    switch (verdict) {
    case PortVerdict::PASS:
        vterm_input_write(vt, guard.held, guard.held_length);
        port_note_glyph(guard, guard.held, length);
        break;
    case PortVerdict::MARK:
        vterm_input_write(vt, guard.held, guard.held_length);
        port_note_mark(guard, guard.held, length);
        break;
    case PortVerdict::REPLACE:
        vterm_input_write(vt, PORT_REPLACEMENT, 3);
        port_note_glyph(guard, PORT_REPLACEMENT, 3);
        break;
    case PortVerdict::DROP:
        break;
    }
    release(guard);
    return continues;
}

} // namespace

void port_note_glyph(PortGuard &guard, const char *bytes, int length)
{
    guard.marks = 0;
    guard.glyph_length = static_cast<uint8_t>(length);
    memcpy(guard.glyph, bytes, static_cast<size_t>(length));
}

void port_note_mark(PortGuard &guard, const char *bytes, int length)
{
    guard.marks++;
    if (guard.glyph_length == 0 ||
        guard.glyph_length + static_cast<size_t>(length) > sizeof(guard.glyph)) {
        return;
    }
    memcpy(guard.glyph + guard.glyph_length, bytes, static_cast<size_t>(length));
    guard.glyph_length = static_cast<uint8_t>(guard.glyph_length + length);
}

void port_hold_escape(PortGuard &guard)
{
    guard.held_kind = PortHeld::ESCAPE;
    guard.dropped = false;
    guard.digits = 0;
    guard.separators = 0;
    guard.held_length = 0;
    append(guard, ESCAPE);
}

void port_hold_character(PortGuard &guard, const char *bytes, int length)
{
    guard.held_kind = PortHeld::CHARACTER;
    guard.held_length = static_cast<uint16_t>(length);
    memcpy(guard.held, bytes, static_cast<size_t>(length));
}

bool port_held_take(PortGuard &guard, VTerm *vt, unsigned char byte)
{
    if (guard.held_kind == PortHeld::CHARACTER) {
        return take_character(guard, vt, byte);
    }
    if (guard.held_kind == PortHeld::STRING_ESCAPE) {
        return take_string_escape(guard, vt, byte);
    }
    if (byte < 0x20 || byte == DELETE) {
        take_control(guard, vt, byte);
        return true;
    }
    switch (guard.held_kind) {
    case PortHeld::ESCAPE:
        return take_escape(guard, vt, byte);
    case PortHeld::CSI:
        return take_csi(guard, vt, byte);
    default:
        append(guard, byte);
        return true;
    }
}

void port_keep_cursor_inside(VTerm *vt)
{
    VTermPos cursor;
    int rows = 0;
    int cols = 0;
    vterm_get_size(vt, &rows, &cols);
    vterm_state_get_cursorpos(vterm_obtain_state(vt), &cursor);
    if (cursor.row < 0 || cursor.row >= rows || cursor.col < 0 || cursor.col >= cols) {
        // A status report that asks for nothing: after any control sequence libvterm brings the
        // cursor back, and this one does nothing else.
        vterm_input_write(vt, "\x1b[0n", 4);
    }
}
