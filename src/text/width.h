// How many columns of a terminal a character takes.
#pragma once

#include <stdint.h>

// 0 for a mark that combines with the character before it, 2 for a wide character, else 1. Not for
// control characters.
int character_width(uint32_t code_point);

// Whether it is wide and younger than the emulator, which takes it for narrow.
bool is_newer_wide(uint32_t code_point);
