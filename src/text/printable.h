// Characters of texts that came from elsewhere: decoding, and copies that are safe to print.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string_view>

// One character at the start of a text that is not empty: its length in bytes (1 to 4) and its code
// point, or length 1 and valid false where the bytes are not UTF-8.
struct Character {
    uint32_t code_point;
    uint8_t length;
    bool valid;
    // How many bytes belong together, valid or not: the first one and those that continue it, at
    // most as many as the first one announces. 1 to 6.
    uint8_t span;
    bool cut; // the text ends before as many have come
};
Character decode_character(std::string_view text);

// Whether the byte can only come after another one of the same character.
constexpr bool continues_character(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xc0) == 0x80;
}

// Puts "?" in the place of every byte that is not UTF-8.
void replace_bad_bytes(char *text);

// The length of an incomplete UTF-8 sequence at the end of the bytes, 0 to 3.
size_t incomplete_tail(std::string_view bytes);

// U+0000 to U+001F and U+007F to U+009F.
constexpr bool is_control(uint32_t code_point)
{
    return code_point < 0x20 || (code_point >= 0x7f && code_point <= 0x9f);
}

// The controls that change the order in which a terminal shows characters, beyond their own text.
constexpr bool is_direction_control(uint32_t code_point)
{
    return code_point == 0x61c || code_point == 0x200e || code_point == 0x200f ||
           (code_point >= 0x202a && code_point <= 0x202e) ||
           (code_point >= 0x2066 && code_point <= 0x2069);
}

// Writes text to copy (room for its length and a NUL, and may be text itself) with "?" for every
// control character (of direction as well) and for every byte that is not UTF-8. Returns the
// length, which is at most the text's.
size_t make_printable(std::string_view text, char *copy);

// The same as a new NUL-terminated text, freed with free. Null when memory is short.
[[nodiscard]] char *printable_copy(const char *text);

// A new text in UTF-8, freed with free, with a character for each byte (Latin-1), as the cells of a
// popup show them. "?" stands for a control character other than a line feed, a return or a tab.
// Null when memory is short.
[[nodiscard]] char *printable_latin1(const char *bytes);
