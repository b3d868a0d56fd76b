// What a sequence of the port does: most go to libvterm as they are, some it must not see or does
// not know. Used by the guard alone.
#pragma once

#include <string_view>

#include "dep/vterm.h"
#include "tui/guard/guard.h"
#include "tui/guard/sequence.h"

// How many bytes a control string may go on for. Noise begins one by chance, and must not silence
// the screen.
constexpr uint16_t GUARD_STRING_SIZE = 4096;

inline void guard_send_bytes(VTerm *vt, std::string_view bytes)
{
    vterm_input_write(vt, bytes.data(), bytes.size());
}

void guard_hold_back(Guard &guard, std::string_view bytes);

void guard_obey(Guard &guard, VTerm *vt, const GuardSequence &sequence);

// Puts a cursor that libvterm left outside of the screen back onto it.
void guard_keep_cursor_inside(VTerm *vt);
