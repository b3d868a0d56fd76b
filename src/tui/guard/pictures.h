// Programs that draw the whole screen over and over may do it several times within one chunk. Of
// these pictures only the last is ever seen, and libvterm needs not be given the others. Used by
// the guard alone.
#pragma once

#include "tui/guard/walk.h"

// The sequence that such pictures begin with.
constexpr std::string_view GUARD_HOME = "\x1b[H";

// Where walk.at is at GUARD_HOME: leaves out what follows up to another GUARD_HOME, if what follows
// that one draws over all of it and nothing but the screen is changed.
void guard_skip_pictures(GuardWalk &walk);
