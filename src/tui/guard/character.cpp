#include "tui/guard/character.h"

#include "text/printable.h"
#include "tui/guard/state.h"

GuardVerdict guard_judge_character(uint32_t code_point, int marks)
{
    if (is_control(code_point) || is_direction_control(code_point)) {
        // libvterm would print controls with a width of -1, out of the screen on the left.
        return GuardVerdict::DROP;
    }
    if ((code_point >= 0x302a && code_point <= 0x302f) ||
        (code_point >= 0x3099 && code_point <= 0x309a)) {
        // Marks that libvterm takes for wide: it adds that to their character's width and then
        // writes as many cells without a look at the line's end.
        return GuardVerdict::DROP;
    }
    if (is_newer_wide(code_point)) {
        return GuardVerdict::STAND_IN;
    }
    if (guard_real_character(code_point) != code_point) {
        return GuardVerdict::UNKNOWN;
    }
    if (character_width(code_point) > 0) {
        return GuardVerdict::PASS;
    }
    // libvterm keeps every mark that follows a character, in memory that only grows.
    return marks < GUARD_MAX_MARKS ? GuardVerdict::MARK : GuardVerdict::DROP;
}
