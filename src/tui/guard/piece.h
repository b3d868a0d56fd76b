// How much of a port's output is handled at once.
#pragma once

#include <stdint.h>

#include "dep/vterm.h"

// The length of the next piece for guard_write, of so many bytes of output at most: one that keeps
// libvterm busy for some 25 ms at most, for two bytes or more.
[[nodiscard]] int32_t guard_piece_length(VTerm *vt, const char *bytes, int32_t length);
