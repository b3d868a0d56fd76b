#include "tui/port_character.h"

#include "text/printable.h"
#include "tui/port_guard.h"

PortVerdict port_judge_character(uint32_t code_point, int marks)
{
    if (is_control(code_point) || is_direction_control(code_point)) {
        // libvterm would print controls with a width of -1, out of the screen on the left.
        return PortVerdict::DROP;
    }
    if ((code_point >= 0x302a && code_point <= 0x302f) ||
        (code_point >= 0x3099 && code_point <= 0x309a)) {
        // Marks that libvterm takes for wide: it adds that to their character's width and then
        // writes as many cells without a look at the line's end.
        return PortVerdict::DROP;
    }
    if (is_newer_wide(code_point)) {
        return PortVerdict::STAND_IN;
    }
    if (port_real_character(code_point) != code_point) {
        return PortVerdict::UNKNOWN;
    }
    if (character_width(code_point) > 0) {
        return PortVerdict::PASS;
    }
    // libvterm keeps every mark that follows a character, in memory that only grows.
    return marks < PORT_GUARD_MAX_MARKS ? PortVerdict::MARK : PortVerdict::DROP;
}
