// The grammar of escape sequences, as libvterm reads them.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string_view>

#include "tui/guard/scan.h"

constexpr char GUARD_ESCAPE = '\x1b';
// libvterm has room for 16 numbers, which it does not check, and computes with their values.
constexpr int GUARD_MAX_SEPARATORS = 15;
constexpr int GUARD_MAX_DIGITS = 9;

enum class GuardSequenceKind : uint8_t {
    CUT,    // the bytes end within it, or a control byte comes
    BROKEN, // nothing that libvterm may see
    ESCAPE, // ESC, intermediate bytes and a final byte
    CSI,    // a control sequence
    STRING, // the beginning of a control string: OSC, DCS, SOS, PM or APC
};

// The longest in the form below: ESC [, a leader, numbers and their separators, of which one may be
// too many, a byte that is out of place, two intermediate bytes and the final one.
constexpr size_t GUARD_SEQUENCE_SIZE =
    2 + 1 + (GUARD_MAX_SEPARATORS + 2) * (GUARD_MAX_DIGITS + 1) + 1 + 2 + 1;

struct GuardSequence {
    GuardSequenceKind kind;
    size_t taken;  // how many of the bytes it is made of; what breaks it off is none of them
    size_t length; // of text
    // What libvterm is to be given, without what exceeds its limits. With more bytes behind it, it
    // reads like the sequence itself with the same bytes behind.
    char text[GUARD_SEQUENCE_SIZE];
};

[[nodiscard]] inline bool guard_is_intermediate(char byte)
{
    return byte >= 0x20 && byte <= 0x2f;
}

// Reads the sequence that the bytes begin with; the first is ESC.
void guard_read_sequence(std::string_view bytes, GuardSequence &sequence);

// The end of a control sequence at `at` that is all there and passes as it is, as most are; else
// null. The others are read whole.
[[nodiscard]] const char *guard_plain_csi_end(const char *at, const char *end);

// The longest control sequence that guard_short_csi_final knows.
constexpr ptrdiff_t GUARD_SHORT_CSI = 2 + 8;

// What ends the numbers of a control sequence at `at`, if they are few and within all limits: its
// final byte, or what makes it another kind of sequence. Null when no control sequence is there, or
// one of this length might go on beyond `end`.
[[nodiscard]] inline const char *guard_short_csi_final(const char *at, const char *end)
{
    if (end - at <= GUARD_SHORT_CSI || at[0] != GUARD_ESCAPE || at[1] != '[') {
        return nullptr;
    }
    const char *limit = at + GUARD_SHORT_CSI;
    const char *final = guard_skip<guard_mark_not_number>(at + 2, limit);
    return final == limit ? nullptr : final;
}
