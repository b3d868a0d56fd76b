// The part of the port output guard that looks at a sequence byte by byte: one that a chunk's end
// cuts in two, or that may have to be changed. Used by the guard alone.
#pragma once

#include "tui/port_character.h"
#include "tui/port_guard.h"

constexpr char PORT_ESCAPE = '\x1b';
constexpr int PORT_MAX_SEPARATORS = 15;
constexpr int PORT_MAX_DIGITS = 9;

// Note the last character printed, for REP. A mark is added to it.
void port_note_glyph(PortGuard &guard, const char *bytes, int length);
void port_note_mark(PortGuard &guard, const char *bytes, int length);

// Begin to hold back: an escape sequence, or the first bytes of a character.
void port_hold_escape(PortGuard &guard);
void port_hold_character(PortGuard &guard, const char *bytes, int length);

// Take the next byte while something is held back. False: what was held is done with, and the byte
// is to be looked at again.
[[nodiscard]] bool port_held_take(PortGuard &guard, VTerm *vt, unsigned char byte);

// Put a cursor that libvterm left outside of the screen back onto it.
void port_keep_cursor_inside(VTerm *vt);
