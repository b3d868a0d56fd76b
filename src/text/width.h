// How many columns of a terminal a character takes.
#pragma once

#include <stdint.h>

// 0 for a mark that combines with the character before it, 2 for a wide character, else 1. As the
// port's emulator sees it. Not for control characters.
int character_width(uint32_t code_point);
