// The guard's walk over a chunk: what is sent to libvterm as it is and what in place of something
// else. Used by the guard alone.
#pragma once

#include <stddef.h>
#include <string.h>

#include <string_view>

#include "dep/vterm.h"
#include "tui/guard/state.h"

// libvterm sets aside four bytes of stack for each byte that it has not looked at yet.
constexpr ptrdiff_t GUARD_SEND_SIZE = 4096;

struct GuardWalk {
    Guard &guard;
    VTerm *vt;
    const char *unsent; // first byte that libvterm has not been given
    const char *at;     // first byte not looked at
    const char *end;
    const char *glyph;                // the last character printed; null while guard.glyph holds it
    const char *pictures_judged = at; // no picture that begins before is skipped
    const char *lines_judged = at;    // no lines that begin before are gathered
};

inline void guard_send_bytes(VTerm *vt, std::string_view bytes)
{
    vterm_input_write(vt, bytes.data(), bytes.size());
}

// Whether the bytes begin with the text.
[[nodiscard]] inline bool guard_begins_with(std::string_view text, const char *at, const char *end)
{
    return end - at >= static_cast<ptrdiff_t>(text.size()) &&
           memcmp(at, text.data(), text.size()) == 0;
}

[[nodiscard]] inline VTermPos guard_cursor(VTerm *vt)
{
    VTermPos cursor;
    vterm_state_get_cursorpos(vterm_obtain_state(vt), &cursor);
    return cursor;
}

// Gives libvterm what lies before walk.at.
void guard_send(GuardWalk &walk);

// The same, so that the next bytes, `length` of them, are left out.
void guard_leave_out(GuardWalk &walk, size_t length);

// Has guard.glyph hold the last character.
void guard_keep_glyph(GuardWalk &walk);

// Keeps bytes until more have come, as the tail: at most as many as guard.tail has room for.
void guard_keep_tail(Guard &guard, std::string_view bytes);

// Whether libvterm's pen is as a reset (ESC [ m) leaves it.
[[nodiscard]] bool guard_pen_is_reset(VTerm *vt);
