#include "tui/widget/widget.h"

namespace {

void draw_on_damage(int x0, int y0, int x1, int y1, Widget *widget)
{
    if (overlaps(widget_rectangle(*widget), {x0, y0, x1, y1})) {
        widget->draw(widget);
    }
}

void draw_on_resize(int x0, int y0, int x1, int y1, Widget *widget)
{
    set_widget_rectangle(*widget, {x0, y0, x1, y1});
    widget->draw(widget);
}

} // namespace

Widget *widget_new_sized(LayoutKind kind, const char *name, size_t context_size, int x0, int y0,
                         int x1, int y1)
{
    Widget *widget = zalloc<Widget>();
    if (widget == nullptr) {
        ulog(LOG_ERR, "Could not allocate %s widget structure\n", name);
        return nullptr;
    }
    widget->priv = calloc(1, context_size);
    if (widget->priv == nullptr) {
        ulog(LOG_ERR, "Could not allocate %s context structure\n", name);
        free(widget);
        return nullptr;
    }
    widget->kind = kind;
    widget->on_damage = draw_on_damage;
    widget->resize = draw_on_resize;
    set_widget_rectangle(*widget, {x0, y0, x1, y1});
    return widget;
}
