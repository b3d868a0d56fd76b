// A rectangle of the screen with its operations. The widget list frees the record.
#pragma once

#include <stdint.h>

#include "dep/ubox.h"
#include "link/owned.h"
#include "tui/widget/layout.h"

struct Widget;
struct WidgetList;

struct Widget {
    list_head list; // place in the WidgetList; null links once removed
    LayoutKind kind;
    void *priv; // the widget's private data, owned by it

    // Any of these but destroy may be null. Rectangles are half-open, in screen cells.
    // None but on_input may add or remove widgets.

    // A rectangle was laid bare: repaints what of the widget lies in it.
    void (*on_damage)(int x0, int y0, int x1, int y1, Widget *widget);
    // Paints the widget into the back buffer: whole, or what changed since it was painted.
    void (*draw)(Widget *widget);
    // Periodic work.
    void (*tick)(Widget *widget);
    // Port output.
    void (*feed)(const char *bytes, int length, Widget *widget);
    // Typed input, for the top widget only. A NUL follows the bytes. The widget may remove itself.
    void (*on_input)(const char *bytes, int length, WidgetList *list, Widget *widget);
    // The new rectangle after a change of the screen's size.
    void (*resize)(int x0, int y0, int x1, int y1, Widget *widget);
    // Frees the private data.
    void (*destroy)(Widget *widget);

    int32_t x0, y0, x1, y1; // half-open rectangle in screen cells
};

constexpr Rectangle widget_rectangle(const Widget &widget)
{
    return {widget.x0, widget.y0, widget.x1, widget.y1};
}

constexpr void set_widget_rectangle(Widget &widget, const Rectangle &place)
{
    widget.x0 = place.x0;
    widget.y0 = place.y0;
    widget.x1 = place.x1;
    widget.y1 = place.y1;
}

// A widget and the zero-filled context behind its priv, with the operations of one that is always
// drawn whole: on_damage and resize draw it. Its constructor sets the others.
// Null, with a line in the log that holds the name, when memory is short.
[[nodiscard]] Widget *widget_new_sized(LayoutKind kind, const char *name, size_t context_size,
                                       int x0, int y0, int x1, int y1);

template <typename Context>
[[nodiscard]] Widget *widget_new(LayoutKind kind, const char *name, int x0, int y0, int x1, int y1)
{
    static_assert(std::is_trivial_v<Context> && std::is_standard_layout_v<Context>);
    return widget_new_sized(kind, name, sizeof(Context), x0, y0, x1, y1);
}
