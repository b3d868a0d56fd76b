// The characters of a port's output, as libvterm sees them.
#pragma once

#include <stdint.h>

#include "text/printable.h"
#include "text/width.h"

// What to do with a character.
enum class GuardVerdict : uint8_t {
    PASS,
    MARK,     // passes, and belongs to the character before it
    STAND_IN, // libvterm takes it for narrow: it gets the character 0x20000 further, a wide one
    UNKNOWN,  // such a character itself, which is none: nothing is assigned there
    DROP,
};

// For a code point beyond ASCII that comes after `marks` combining marks.
[[nodiscard]] GuardVerdict guard_judge_character(uint32_t code_point, int marks);

// The character of the port that libvterm's character is or stands for.
[[nodiscard]] inline uint32_t guard_real_character(uint32_t character)
{
    const bool stands_in = character - 0x30000 < 0x10000 && is_newer_wide(character - 0x20000);
    return stands_in ? character - 0x20000 : character;
}

// The length of the character at the start of three bytes, when it is one of those that most text
// is made of (letters of Europe, ideographs, Hangul, symbols and lines), none of them a mark;
// else 0.
[[nodiscard]] inline int guard_common_length(const char *at)
{
    const auto first = static_cast<unsigned char>(at[0]);
    const auto second = static_cast<unsigned char>(at[1]);
    const auto third = static_cast<unsigned char>(at[2]);
    if (first >= 0xe2 && first <= 0xec) {
        const bool whole = ((second ^ 0x80) | (third ^ 0x80)) < 0x40;
        const bool common = first >= 0xe4 ? first != 0xea : second >= (first == 0xe2 ? 0x84 : 0x83);
        return whole && common ? 3 : 0;
    }
    const bool common = (first >= 0xc3 && first <= 0xcb) || (first >= 0xce && first <= 0xd1);
    return common && continues_character(at[1]) ? 2 : 0;
}

// The columns of such a character. Those of three bytes are wide but for some symbols.
[[nodiscard]] inline int guard_common_width(const char *at)
{
    const auto first = static_cast<unsigned char>(at[0]);
    return first < 0xe2 ? 1
           : first > 0xe2
               ? 2
               : character_width(0x2000U | (static_cast<unsigned char>(at[1]) & 0x3fU) << 6 |
                                 (static_cast<unsigned char>(at[2]) & 0x3fU));
}
