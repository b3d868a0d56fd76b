#include "text/printable.h"

#include <stdlib.h>
#include <string.h>

#include <bit>

namespace {

unsigned char byte_at(std::string_view text, size_t index)
{
    return static_cast<unsigned char>(text[index]);
}

// The length that a first byte announces, 1 to 6, also where no character is that long.
uint8_t announced_length(unsigned char first)
{
    const int ones = std::countl_one(first);
    return ones < 2 || ones > 6 ? 1 : static_cast<uint8_t>(ones);
}

bool begins_character(unsigned char first)
{
    return first < 0x80 || (first >= 0xc2 && first <= 0xf4);
}

} // namespace

Character decode_character(std::string_view text)
{
    constexpr uint32_t SMALLEST[] = {0, 0, 0x80, 0x800, 0x10000};
    const unsigned char first = byte_at(text, 0);
    const uint8_t length = announced_length(first);
    uint8_t span = 1;
    while (span < length && span < text.size() && continues_character(text[span])) {
        span++;
    }
    const Character bad = {first, 1, false, span, span < length && span == text.size()};
    if (span < length || !begins_character(first)) {
        return bad;
    }
    uint32_t code_point = length == 1 ? first : first & (0x7fU >> length);
    for (size_t i = 1; i < length; i++) {
        code_point = code_point << 6 | (byte_at(text, i) & 0x3fU);
    }
    const bool surrogate = code_point >= 0xd800 && code_point <= 0xdfff;
    if (code_point < SMALLEST[length] || surrogate || code_point > 0x10ffff) {
        return bad;
    }
    return {code_point, length, true, length, false};
}

void replace_bad_bytes(char *text)
{
    for (size_t left = strlen(text); left > 0;) {
        const Character character = decode_character({text, left});
        if (!character.valid) {
            *text = '?';
        }
        text += character.length;
        left -= character.length;
    }
}

size_t incomplete_tail(std::string_view bytes)
{
    for (size_t back = 1; back <= 3 && back <= bytes.size(); back++) {
        const char byte = bytes[bytes.size() - back];
        if (continues_character(byte)) {
            continue;
        }
        const auto first = static_cast<unsigned char>(byte);
        return begins_character(first) && announced_length(first) > back ? back : 0;
    }
    return 0;
}

size_t make_printable(std::string_view text, char *copy)
{
    size_t length = 0;
    while (!text.empty()) {
        const Character character = decode_character(text);
        const bool control =
            is_control(character.code_point) || is_direction_control(character.code_point);
        if (!character.valid || control) {
            copy[length++] = '?';
        } else {
            memmove(copy + length, text.data(), character.length); // copy may be text itself
            length += character.length;
        }
        text.remove_prefix(character.length);
    }
    return length;
}

char *printable_copy(const char *text)
{
    const size_t length = strlen(text);
    char *copy = static_cast<char *>(malloc(length + 1));
    if (copy != nullptr) {
        copy[make_printable({text, length}, copy)] = '\0';
    }
    return copy;
}

char *printable_latin1(const char *bytes)
{
    char *text = static_cast<char *>(malloc(2 * strlen(bytes) + 1));
    if (text == nullptr) {
        return nullptr;
    }
    char *end = text;
    for (; *bytes != '\0'; bytes++) {
        const unsigned char byte = static_cast<unsigned char>(*bytes);
        if (is_control(byte) && strchr("\n\r\t", byte) == nullptr) {
            *end++ = '?';
        } else if (byte < 0x80) {
            *end++ = *bytes;
        } else {
            *end++ = static_cast<char>(0xc0 | byte >> 6);
            *end++ = static_cast<char>(0x80 | (byte & 0x3f));
        }
    }
    *end = '\0';
    return text;
}
