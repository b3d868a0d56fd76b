// A framed box of text over the screen.
#pragma once

#include <stdint.h>

#include "tui/widget/layout.h"
#include "tui/widget/widget.h"

// Takes the popup's input, as text, and closes the popup when it likes (widget_list_remove).
using PopupKeyHandler = void (*)(const char *input, WidgetList *list, Widget *widget);

struct PopupContext {
    char *text;             // own copy
    PopupKeyHandler on_key; // null: any input closes the popup
    uint16_t bg;
    uint16_t fg;
};

// Opens a popup on top of the widgets, unless too many boxes are open.
void popup_open(const char *text, PopupPlace place, PopupKeyHandler on_key);

// A popup with a copy of text. Null, with a line in the log, when memory is short.
[[nodiscard]] Widget *popup_new(const char *text, int x0, int y0, int x1, int y1,
                                PopupKeyHandler on_key);
