// Code points as bytes and columns: UTF-8 both ways, and what a cell's code point becomes on the
// screen.
#pragma once

#include <string.h>

#include "widths.h"

namespace {

constexpr uint32_t REPLACEMENT = 0xfffd;
constexpr uint32_t FIRST_WIDE = 0x1100; // below it no character takes two columns

tb_width_kind width_kind(uint32_t ch)
{
    size_t low = 0, high = sizeof(width_table) / sizeof(width_table[0]);
    while (high - low > 1) {
        size_t middle = (low + high) / 2;
        if (width_table[middle] >> 3 <= ch) {
            low = middle;
        } else {
            high = middle;
        }
    }
    return static_cast<tb_width_kind>(width_table[low] & 7);
}

struct tb_glyph {
    uint32_t ch;    // the code point to send
    int columns;    // the cells that it owns, 1 or 2
    bool combining; // needs a blank to stand on
    bool unsure;    // terminals disagree about its width
};

// Never a control character, a surrogate or anything beyond U+10FFFF.
tb_glyph glyph_of(uint32_t ch)
{
    if (ch < 0xa0) {
        bool printable = ch >= 0x20 && ch < 0x7f;
        return {printable ? ch : REPLACEMENT, 1, false, false};
    }
    switch (ch <= 0x10ffff ? width_kind(ch) : WIDTH_UNASSIGNED) {
    case WIDTH_COMBINING:
        return {ch, 1, true, false};
    case WIDTH_NARROW:
        return {ch, 1, false, false};
    case WIDTH_WIDE:
        return {ch, 2, false, false};
    case WIDTH_NARROW_UNSURE:
    case WIDTH_WIDE_UNSURE:
        return {ch, 2, false, true};
    case WIDTH_UNASSIGNED:
        break;
    }
    return {REPLACEMENT, 1, false, false};
}

// Writes at most 4 bytes; ch is one that glyph_of gives.
size_t utf8_encode(char *to, uint32_t ch)
{
    if (ch < 0x80) {
        to[0] = static_cast<char>(ch);
        return 1;
    }
    size_t length = ch < 0x800 ? 2 : ch < 0x10000 ? 3 : 4;
    for (size_t i = length - 1; i > 0; i--) {
        to[i] = static_cast<char>(0x80 | (ch & 0x3f));
        ch >>= 6;
    }
    to[0] = static_cast<char>((0xf00 >> length & 0xff) | ch);
    return length;
}

// The bytes of the character that begins with lead; 1 for what begins none.
size_t utf8_length(unsigned char lead)
{
    if (lead < 0xc0 || lead >= 0xfe) {
        return 1;
    }
    return lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : lead < 0xf8 ? 4 : lead < 0xfc ? 5 : 6;
}

// Takes the first character of 1 or more bytes; returns the bytes used, or 0 when more are needed.
// What is not UTF-8 gives U+FFFD: a lone byte for itself, an overlong form, a surrogate or a number
// beyond Unicode as a whole.
size_t utf8_decode(const char *bytes, size_t count, uint32_t &ch)
{
    unsigned char lead = static_cast<unsigned char>(bytes[0]);
    size_t length = utf8_length(lead);
    ch = lead < 0x80 ? lead : REPLACEMENT;
    if (length == 1) {
        return 1;
    }
    uint32_t value = lead & (0x7fU >> length);
    for (size_t i = 1; i < length; i++) {
        if (i == count) {
            return 0;
        }
        unsigned char byte = static_cast<unsigned char>(bytes[i]);
        if ((byte & 0xc0) != 0x80) {
            return 1;
        }
        value = value << 6 | (byte & 0x3f);
    }
    constexpr uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    bool surrogate = value >= 0xd800 && value < 0xe000;
    if (length <= 4 && value >= smallest[length] && value <= 0x10ffff && !surrogate) {
        ch = value;
    }
    return length;
}

} // namespace
