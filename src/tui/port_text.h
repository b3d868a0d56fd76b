// The guard's walk over a chunk: what is sent to libvterm as it is and what in place of something
// else. Used by the guard alone.
#pragma once

#include <stddef.h>

#include <string_view>

#include "dep/vterm.h"
#include "tui/port_guard.h"

// libvterm sets aside four bytes of stack for each byte that it has not looked at yet.
constexpr ptrdiff_t PORT_PIECE = 4096;

struct PortWalk {
    PortGuard &guard;
    VTerm *vt;
    const char *unsent; // first byte that libvterm has not been given
    const char *at;     // first byte not looked at
    const char *end;
    const char *glyph; // the last character printed; null while guard.glyph holds it
};

// Gives libvterm what lies before walk.at.
void port_send(PortWalk &walk);

// The same, so that the next bytes, `length` of them, are left out.
void port_leave_out(PortWalk &walk, size_t length);

// Has guard.glyph hold the last character.
void port_keep_glyph(PortWalk &walk);

// Passes bytes that are no sequences, as many as are looked at in one go: those below 0x80, then
// the characters beyond.
void port_pass_plain(PortWalk &walk);
void port_pass_characters(PortWalk &walk);
