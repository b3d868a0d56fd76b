#include "tui/box.h"

#include "link/owned.h"
#include "tui/widget/layout.h"

Widget *box_new(LayoutKind kind, int x0, int y0, int x1, int y1)
{
    Widget *widget = zalloc<Widget>();
    if (widget != nullptr) {
        widget->kind = kind;
        widget->on_damage = box_on_damage;
        widget->resize = box_resize;
        set_widget_rectangle(*widget, {x0, y0, x1, y1});
    }
    return widget;
}

void box_on_damage(int x0, int y0, int x1, int y1, Widget *widget)
{
    if (overlaps(widget_rectangle(*widget), {x0, y0, x1, y1})) {
        widget->draw(widget);
    }
}

void box_resize(int x0, int y0, int x1, int y1, Widget *widget)
{
    set_widget_rectangle(*widget, {x0, y0, x1, y1});
    widget->draw(widget);
}
