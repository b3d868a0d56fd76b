// Scrolls for many lines at once. libvterm moves the whole screen for each line that scrolls; with
// the cursor in the bottom row, text of n lines comes to the same when the screen is scrolled by n
// lines first and the cursor moved up by as many. Where the screen has fewer rows, the lines that
// would scroll off again are not given to libvterm at all: they are saved as it would have done.
// Used by the guard alone.
#pragma once

#include "tui/guard/walk.h"

// Passes text of several lines that begins behind a carriage return in the bytes from walk.at to
// `end`, which are plain, and goes on as far as its places are known. Returns false when there is
// none, or it cannot be done; then the bytes up to the carriage return may have been sent.
[[nodiscard]] bool guard_gather(GuardWalk &walk, const char *end);
