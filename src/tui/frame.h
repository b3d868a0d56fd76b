// What popups and the port history are drawn with.
#pragma once

#include <stdint.h>
#include <string_view>

#include "tui/widget/layout.h"

// Foreground and background, termbox2 attribute words.
struct Colours {
    uint16_t fg;
    uint16_t bg;
};

// Clears the rectangle and draws a border of asterisks inside it.
void draw_frame(const Rectangle &place, Colours colours);

// Draws one cell a byte from column x of row y on, ending before end_x; the byte's value is the
// character, "?" for control characters. Returns the column behind the last cell drawn.
int draw_bytes(int x, int y, int end_x, std::string_view bytes, Colours colours);
