// The guard's look at text. Used by the guard alone.
#pragma once

#include "tui/guard/walk.h"

// Passes bytes that are no sequences, as many as are looked at in one go: those below 0x80, then
// the characters beyond.
void guard_pass_plain(GuardWalk &walk);
void guard_pass_characters(GuardWalk &walk);
