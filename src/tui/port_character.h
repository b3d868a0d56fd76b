// The characters of a port's output, as libvterm sees them.
#pragma once

#include <stdint.h>

// What to do with a character.
enum class PortVerdict : uint8_t {
    PASS,
    MARK, // passes, and belongs to the character before it
    DROP,
};

// For a code point beyond ASCII that comes after `marks` combining marks.
[[nodiscard]] PortVerdict port_judge_character(uint32_t code_point, int marks);
