#include "tui/port_character.h"

#include "text/width.h"
#include "tui/port_guard.h"

PortVerdict port_judge_character(const char *bytes, int length, int marks)
{
    constexpr uint32_t SMALLEST[] = {0, 0, 0x80, 0x800, 0x10000};
    if (length > 4) {
        return PortVerdict::REPLACE;
    }
    uint32_t code_point = static_cast<unsigned char>(bytes[0]) & (0x7fU >> length);
    for (int i = 1; i < length; i++) {
        code_point = code_point << 6 | (static_cast<unsigned char>(bytes[i]) & 0x3fU);
    }
    if (code_point < SMALLEST[length] || code_point > 0x10ffff) {
        return PortVerdict::REPLACE;
    }
    if (code_point < 0xa0) {
        // Controls: libvterm would print them with a width of -1, out of the screen on the left.
        return PortVerdict::DROP;
    }
    if ((code_point >= 0x302a && code_point <= 0x302f) ||
        (code_point >= 0x3099 && code_point <= 0x309a)) {
        // Marks that libvterm takes for wide: it adds that to their character's width and then
        // writes as many cells without a look at the line's end.
        return PortVerdict::DROP;
    }
    if (character_width(code_point) > 0) {
        return PortVerdict::PASS;
    }
    // libvterm keeps every mark that follows a character, in memory that only grows.
    return marks < PORT_GUARD_MAX_MARKS ? PortVerdict::MARK : PortVerdict::DROP;
}
