// What a sequence of the port does: most go to libvterm as they are, some it must not see or does
// not know. Used by the guard alone.
#pragma once

#include <stdint.h>

#include "dep/vterm.h"
#include "tui/guard/sequence.h"
#include "tui/guard/state.h"

// How many bytes a control string may go on for. Noise begins one by chance, and must not silence
// the screen.
constexpr uint16_t GUARD_STRING_SIZE = 4096;

void guard_obey(Guard &guard, VTerm *vt, const GuardSequence &sequence);

// Puts a cursor that libvterm left outside of the screen back onto it.
void guard_keep_cursor_inside(VTerm *vt);
