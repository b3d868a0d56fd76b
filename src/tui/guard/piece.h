// How much of a port's output is handled at once.
#pragma once

#include <stdint.h>

#include "dep/vterm.h"
#include "tui/guard/state.h"

// The length of the next piece for guard_write, of so many bytes of output at most: at least one
// byte, and so few that it keeps libvterm busy for some 25 ms, on odd screens for some 100.
[[nodiscard]] int32_t guard_piece_length(const Guard &guard, VTerm *vt, const char *bytes,
                                         int32_t length);
