// The UTF-8 characters of a port's output, as libvterm sees them.
#pragma once

#include <stdint.h>

// What to do with a character.
enum class PortVerdict : uint8_t {
    PASS,
    MARK, // passes, and belongs to the character before it
    DROP,
    REPLACE, // show U+FFFD in its place
};

constexpr char PORT_REPLACEMENT[] = "\xef\xbf\xbd";

[[nodiscard]] inline bool port_continues_character(unsigned char byte)
{
    return (byte & 0xc0) == 0x80;
}

// How many bytes a character has by its first one, as libvterm counts them: 1 to 6.
[[nodiscard]] inline int port_character_length(unsigned char first)
{
    if (first < 0xc0 || first >= 0xfe) {
        return 1;
    }
    return first < 0xe0 ? 2 : first < 0xf0 ? 3 : first < 0xf8 ? 4 : first < 0xfc ? 5 : 6;
}

// `bytes` is one whole character of more than one byte that comes after `marks` combining marks.
[[nodiscard]] PortVerdict port_judge_character(const char *bytes, int length, int marks);
