// The attributes of what is printed next, as termbox2 sets them by SGR sequences.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string_view>

struct Pen {
    uint8_t attributes; // bit n stands for SGR n, 1 (bold) to 7 (reverse)
    uint8_t foreground; // an SGR number, or 0 for the terminal's own colour
    uint8_t background;

    bool operator==(const Pen &) const = default;
};

// Applies the parameters of an SGR sequence ("1;37"). False, with the pen as good as unknown, when
// one is none of those above.
[[nodiscard]] bool pen_apply(Pen &pen, std::string_view parameters);

// A blank in this pen is like one that was erased: no attributes, and no background.
bool pen_is_plain(const Pen &pen);

constexpr size_t PEN_CHANGE_MAX = sizeof("\033[;1;2;3;4;5;6;7;107;107m") - 1;

// Stores the shortest sequence that changes one pen to another; returns its length, at most
// PEN_CHANGE_MAX.
size_t pen_change(const Pen &from, const Pen &to, char *bytes);
