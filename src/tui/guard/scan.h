// Scans of text, eight bytes at a time.
#pragma once

#include <stdint.h>
#include <string.h>

#include <bit>

constexpr uint64_t GUARD_EACH = 0x0101010101010101;
constexpr uint64_t GUARD_LOW_BITS = GUARD_EACH * 0x7f;
constexpr uint64_t GUARD_HIGH_BITS = GUARD_EACH * 0x80;

// The high bits of those of eight bytes that are neither ASCII text nor a control other than ESC.
inline uint64_t guard_mark_not_plain(uint64_t bytes)
{
    const uint64_t differing = bytes ^ (GUARD_EACH * 0x1b);
    return (bytes | ~((differing & GUARD_LOW_BITS) + GUARD_LOW_BITS)) & GUARD_HIGH_BITS;
}

// Those that are not ASCII text.
inline uint64_t guard_mark_not_printed(uint64_t bytes)
{
    const uint64_t low = bytes & GUARD_LOW_BITS;
    return (bytes | ~(low + GUARD_EACH * 0x60) | (low + GUARD_EACH)) & GUARD_HIGH_BITS;
}

// Those that are none of 0 to 9, ":" and ";".
inline uint64_t guard_mark_not_number(uint64_t bytes)
{
    const uint64_t offset = bytes ^ (GUARD_EACH * '0');
    return (offset | ((offset & GUARD_LOW_BITS) + GUARD_EACH * (0x80 - 12))) & GUARD_HIGH_BITS;
}

// The first byte from `at` on that `mark` marks, or the end. An ESC must be marked.
template <uint64_t (*mark)(uint64_t)>
const char *guard_skip(const char *at, const char *end)
{
    while (at < end) {
        uint64_t bytes = GUARD_EACH * 0x1b;
        if (end - at >= 8) {
            memcpy(&bytes, at, 8);
        } else {
            memcpy(&bytes, at, static_cast<size_t>(end - at));
        }
        const uint64_t marked = mark(bytes);
        if (marked) {
            const int bit = std::endian::native == std::endian::little ? std::countr_zero(marked)
                                                                       : std::countl_zero(marked);
            return at + bit / 8;
        }
        at += 8;
    }
    return end;
}
