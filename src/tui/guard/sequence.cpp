#include "tui/guard/sequence.h"

#include "tui/guard/scan.h"

namespace {

// Seen in a control sequence so far.
struct Numbers {
    int digits; // of the number that comes
    int separators;
    int intermediates;
    bool broken; // a byte was out of place
};

void append(GuardSequence &sequence, char byte)
{
    sequence.text[sequence.length++] = byte;
}

// Only two are kept: libvterm knows no sequence with two, nor with more.
void take_intermediate(GuardSequence &sequence, int &count, char byte)
{
    if (++count <= 2) {
        append(sequence, byte);
    }
}

void take_digit(GuardSequence &sequence, Numbers &numbers, char digit)
{
    char &last = sequence.text[sequence.length - 1];
    if (numbers.digits == 1 && last == '0') {
        last = digit;
    } else if (numbers.digits < GUARD_MAX_DIGITS) {
        numbers.digits++;
        append(sequence, digit);
    }
}

void take_parameter(GuardSequence &sequence, Numbers &numbers, char byte)
{
    const bool leads = byte >= '<';
    if (numbers.broken || numbers.separators > GUARD_MAX_SEPARATORS) {
        return;
    }
    if (numbers.intermediates > 0 || (leads && sequence.length > 2)) {
        numbers.broken = true;
        append(sequence, byte);
    } else if (byte <= '9') {
        take_digit(sequence, numbers, byte);
    } else {
        numbers.digits = 0;
        numbers.separators += leads ? 0 : 1;
        append(sequence, byte);
    }
}

// An SGR keeps its first 16 numbers, but for a last one that would make libvterm look for another.
void keep_first_numbers(GuardSequence &sequence)
{
    sequence.length--; // the separator that was too many
    const std::string_view text(sequence.text, sequence.length);
    if (text.ends_with("38") || text.ends_with("48")) {
        do {
            sequence.length--;
        } while (sequence.text[sequence.length] != ';' && sequence.text[sequence.length] != ':');
    }
}

void finish_csi(GuardSequence &sequence, const Numbers &numbers, char final)
{
    const bool too_many = numbers.separators > GUARD_MAX_SEPARATORS;
    const bool cuttable = final == 'm' && numbers.intermediates == 0 && sequence.text[2] < '<';
    if (numbers.broken || (too_many && !cuttable)) {
        sequence.kind = GuardSequenceKind::BROKEN;
        return;
    }
    if (too_many) {
        keep_first_numbers(sequence);
    }
    append(sequence, final);
    sequence.kind = GuardSequenceKind::CSI;
}

// Whether a sequence ends in front of the byte: one beyond ASCII breaks it, and a control byte does
// its own work first.
bool ends_before(GuardSequence &sequence, char byte)
{
    if (static_cast<unsigned char>(byte) >= 0x80) {
        sequence.kind = GuardSequenceKind::BROKEN;
        return true;
    }
    return byte < 0x20 || byte == 0x7f;
}

// The bytes behind "ESC [".
void read_csi(std::string_view bytes, GuardSequence &sequence)
{
    Numbers numbers = {};
    for (; sequence.taken < bytes.size(); sequence.taken++) {
        const char byte = bytes[sequence.taken];
        if (ends_before(sequence, byte)) {
            return;
        }
        if (byte >= 0x40) {
            sequence.taken++;
            finish_csi(sequence, numbers, byte);
            return;
        }
        if (guard_is_intermediate(byte)) {
            take_intermediate(sequence, numbers.intermediates, byte);
        } else {
            take_parameter(sequence, numbers, byte);
        }
    }
}

bool begins_string(char byte)
{
    return byte == ']' || byte == 'P' || byte == 'X' || byte == '^' || byte == '_';
}

bool within_limits(const char *at, const char *end)
{
    int digits = 0;
    int separators = 0;
    for (; at < end; at++) {
        const bool separates = *at == ';' || *at == ':';
        separators += separates;
        digits = separates ? 0 : digits + 1;
        if (separators >= GUARD_MAX_SEPARATORS || digits > GUARD_MAX_DIGITS) {
            return false;
        }
    }
    return true;
}

// Repetition, margins, cursors, modes, resets.
bool needs_a_look(char final)
{
    constexpr uint32_t LOOKED_AT = 1U << ('b' & 31) | 1U << ('r' & 31) | 1U << ('s' & 31) |
                                   1U << ('u' & 31) | 1U << ('h' & 31) | 1U << ('l' & 31) |
                                   1U << ('p' & 31);
    return final >= 0x60 && (LOOKED_AT >> (final & 31) & 1) != 0;
}

} // namespace

void guard_read_sequence(std::string_view bytes, GuardSequence &sequence)
{
    sequence.kind = GuardSequenceKind::CUT;
    sequence.taken = 1;
    sequence.length = 0;
    append(sequence, GUARD_ESCAPE);
    int intermediates = 0;
    for (; sequence.taken < bytes.size(); sequence.taken++) {
        if (!guard_is_intermediate(bytes[sequence.taken])) {
            break;
        }
        take_intermediate(sequence, intermediates, bytes[sequence.taken]);
    }
    if (sequence.taken == bytes.size()) {
        return;
    }
    const char byte = bytes[sequence.taken];
    if (ends_before(sequence, byte)) {
        return;
    }
    sequence.taken++;
    append(sequence, byte);
    const bool introduces = byte == '[' || begins_string(byte);
    if (introduces && intermediates > 0) {
        sequence.kind = GuardSequenceKind::BROKEN; // libvterm would take it for an introducer
    } else if (byte == '[') {
        read_csi(bytes, sequence);
    } else {
        sequence.kind = introduces ? GuardSequenceKind::STRING : GuardSequenceKind::ESCAPE;
    }
}

const char *guard_plain_csi_end(const char *at, const char *end)
{
    if (end - at < 3 || at[1] != '[') {
        return nullptr;
    }
    at += at[2] >= '<' && at[2] <= '?' ? 3 : 2;
    const char *numbers = at;
    at = guard_skip<guard_mark_not_number>(at, end);
    if (at == end || static_cast<unsigned char>(*at) < 0x40 ||
        static_cast<unsigned char>(*at) > 0x7e || needs_a_look(*at)) {
        return nullptr;
    }
    // Few bytes are within any limit.
    return at - numbers <= GUARD_MAX_DIGITS || within_limits(numbers, at) ? at + 1 : nullptr;
}
