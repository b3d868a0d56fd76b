// Scans of text, eight bytes at a time.
#pragma once

#include <stdint.h>
#include <string.h>

#include <bit>

constexpr uint64_t PORT_EACH = 0x0101010101010101;
constexpr uint64_t PORT_LOW_BITS = PORT_EACH * 0x7f;
constexpr uint64_t PORT_HIGH_BITS = PORT_EACH * 0x80;

// The high bits of those of eight bytes that are neither ASCII text nor a control other than ESC.
inline uint64_t port_mark_not_plain(uint64_t bytes)
{
    const uint64_t differing = bytes ^ (PORT_EACH * 0x1b);
    return (bytes | ~((differing & PORT_LOW_BITS) + PORT_LOW_BITS)) & PORT_HIGH_BITS;
}

// Those that are not ASCII text.
inline uint64_t port_mark_not_printed(uint64_t bytes)
{
    const uint64_t low = bytes & PORT_LOW_BITS;
    return (bytes | ~(low + PORT_EACH * 0x60) | (low + PORT_EACH)) & PORT_HIGH_BITS;
}

// Those that are none of 0 to 9, ":" and ";".
inline uint64_t port_mark_not_number(uint64_t bytes)
{
    const uint64_t offset = bytes ^ (PORT_EACH * '0');
    return (offset | ((offset & PORT_LOW_BITS) + PORT_EACH * (0x80 - 12))) & PORT_HIGH_BITS;
}

// The first byte from `at` on that `mark` marks, or the end. An ESC must be marked.
template <uint64_t (*mark)(uint64_t)>
const char *port_skip(const char *at, const char *end)
{
    while (at < end) {
        uint64_t bytes = PORT_EACH * 0x1b;
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
