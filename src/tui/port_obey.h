// What a sequence of the port does: most go to libvterm as they are, some it must not see or does
// not know. Used by the guard alone.
#pragma once

#include <string_view>

#include "dep/vterm.h"
#include "tui/port_guard.h"
#include "tui/port_sequence.h"

// How many bytes a control string may go on for. Noise begins one by chance, and must not silence
// the screen.
constexpr uint16_t PORT_STRING_SIZE = 4096;

inline void port_write(VTerm *vt, std::string_view bytes)
{
    vterm_input_write(vt, bytes.data(), bytes.size());
}

void port_hold_back(PortGuard &guard, std::string_view bytes);

void port_obey(PortGuard &guard, VTerm *vt, const PortSequence &sequence);

// Puts a cursor that libvterm left outside of the screen back onto it.
void port_keep_cursor_inside(VTerm *vt);
