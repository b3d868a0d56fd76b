// The guard's walk over a chunk: what is sent to libvterm as it is and what in place of something
// else. Used by the guard alone.
#pragma once

#include <stddef.h>

#include <string_view>

#include "dep/vterm.h"
#include "tui/guard/guard.h"

// libvterm sets aside four bytes of stack for each byte that it has not looked at yet.
constexpr ptrdiff_t GUARD_PIECE = 4096;

struct GuardWalk {
    Guard &guard;
    VTerm *vt;
    const char *unsent; // first byte that libvterm has not been given
    const char *at;     // first byte not looked at
    const char *end;
    const char *glyph; // the last character printed; null while guard.glyph holds it
};

// Gives libvterm what lies before walk.at.
void guard_send(GuardWalk &walk);

// The same, so that the next bytes, `length` of them, are left out.
void guard_leave_out(GuardWalk &walk, size_t length);

// Has guard.glyph hold the last character.
void guard_keep_glyph(GuardWalk &walk);

// Passes bytes that are no sequences, as many as are looked at in one go: those below 0x80, then
// the characters beyond.
void guard_pass_plain(GuardWalk &walk);
void guard_pass_characters(GuardWalk &walk);
