#include "tui/guard/walk.h"

#include <string.h>

#include "text/printable.h"
#include "tui/guard/sequence.h"

namespace {

// The end of what libvterm gets at once, in front of a sequence or a character.
const char *send_end(const char *at, const char *end)
{
    if (end - at <= GUARD_SEND_SIZE) {
        return end;
    }
    if (const void *escape = memrchr(at + 1, GUARD_ESCAPE, GUARD_SEND_SIZE)) {
        return static_cast<const char *>(escape);
    }
    end = at + GUARD_SEND_SIZE;
    while (continues_character(*end)) {
        end--;
    }
    return end;
}

void send_until(GuardWalk &walk, const char *end)
{
    while (walk.unsent < end) {
        const char *until = send_end(walk.unsent, end);
        vterm_input_write(walk.vt, walk.unsent, static_cast<size_t>(until - walk.unsent));
        walk.unsent = until;
    }
}

} // namespace

// A character that leaves the cursor where it was stands in the last column. A mark that follows it
// has to know.
void guard_send(GuardWalk &walk)
{
    if (walk.guard.joins && walk.glyph && walk.glyph >= walk.unsent) {
        send_until(walk, walk.glyph);
        const int column = guard_cursor(walk.vt).col;
        send_until(walk, walk.at);
        walk.guard.at_margin = guard_cursor(walk.vt).col == column;
    }
    send_until(walk, walk.at);
}

void guard_leave_out(GuardWalk &walk, size_t length)
{
    guard_send(walk);
    walk.at += length;
    walk.unsent = walk.at;
}

void guard_keep_glyph(GuardWalk &walk)
{
    if (walk.glyph) {
        const std::string_view from(walk.glyph, static_cast<size_t>(walk.end - walk.glyph));
        walk.guard.glyph_length = decode_character(from).length;
        memcpy(walk.guard.glyph, walk.glyph, walk.guard.glyph_length);
        walk.glyph = nullptr;
    }
}

void guard_keep_tail(Guard &guard, std::string_view bytes)
{
    guard.tail_length = static_cast<uint16_t>(bytes.size());
    memcpy(guard.tail, bytes.data(), bytes.size());
}

bool guard_pen_is_reset(VTerm *vt)
{
    const VTermState *state = vterm_obtain_state(vt);
    VTermValue value = {};
    for (const VTermAttr attribute :
         {VTERM_ATTR_BOLD, VTERM_ATTR_UNDERLINE, VTERM_ATTR_ITALIC, VTERM_ATTR_BLINK,
          VTERM_ATTR_REVERSE, VTERM_ATTR_STRIKE, VTERM_ATTR_FONT}) {
        (void)vterm_state_get_penattr(state, attribute, &value); // there are these
        if (value.number != 0) {
            return false;
        }
    }
    (void)vterm_state_get_penattr(state, VTERM_ATTR_FOREGROUND, &value);
    const bool foreground = VTERM_COLOR_IS_DEFAULT_FG(&value.color);
    (void)vterm_state_get_penattr(state, VTERM_ATTR_BACKGROUND, &value);
    return foreground && VTERM_COLOR_IS_DEFAULT_BG(&value.color);
}
