// Programs that draw all over the screen may put one character after another into the same place
// within one chunk. Only the last is ever seen, and libvterm needs not be given the others. Used by
// the guard alone.
#pragma once

#include "tui/guard/walk.h"

// Passes changes of the pen, moves of the cursor to a row and a column, and ASCII text, which is
// what screens full of colours consist of. Returns false when none of them comes.
[[nodiscard]] bool guard_pass_drawing(GuardWalk &walk);
