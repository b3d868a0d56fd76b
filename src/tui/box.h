// What every widget shares which is always drawn whole.
#pragma once

#include "tui/widget/widget.h"

// A widget with the operations below. Null when memory is short.
[[nodiscard]] Widget *box_new(LayoutKind kind, int x0, int y0, int x1, int y1);

// Draws the widget when the damaged rectangle overlaps it.
void box_on_damage(int x0, int y0, int x1, int y1, Widget *widget);

// Stores the new rectangle and draws the widget there.
void box_resize(int x0, int y0, int x1, int y1, Widget *widget);
