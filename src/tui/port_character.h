// The characters of a port's output, as libvterm sees them.
#pragma once

#include <stdint.h>

#include "text/width.h"

// What to do with a character.
enum class PortVerdict : uint8_t {
    PASS,
    MARK,     // passes, and belongs to the character before it
    STAND_IN, // libvterm takes it for narrow: it gets the character 0x20000 further, a wide one
    UNKNOWN,  // such a character itself, which is none: nothing is assigned there
    DROP,
};

// For a code point beyond ASCII that comes after `marks` combining marks.
[[nodiscard]] PortVerdict port_judge_character(uint32_t code_point, int marks);

// The character of the port that libvterm's character is or stands for.
[[nodiscard]] inline uint32_t port_real_character(uint32_t character)
{
    const bool stands_in = character - 0x30000 < 0x10000 && is_newer_wide(character - 0x20000);
    return stands_in ? character - 0x20000 : character;
}
