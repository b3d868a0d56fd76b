#include "tui/popup.h"

#include <stdlib.h>
#include <string.h>
#include <string_view>

#include "dep/termbox.h"
#include "tui/frame.h"
#include "tui/widget/widget_list.h"

namespace {

constexpr int TAB_WIDTH = 4;

PopupContext *context_of(Widget *widget)
{
    return static_cast<PopupContext *>(widget->priv);
}

// The run of bytes up to the next line feed, return or tab.
std::string_view plain_run(std::string_view text)
{
    size_t length = 0;
    while (length < text.size() && strchr("\n\r\t", text[length]) == nullptr) {
        length++;
    }
    return {text.data(), length};
}

// The text ends where it reaches the right border, later lines included, or the bottom border.
void draw_text(const Rectangle &place, std::string_view text, Colours colours)
{
    const int end_x = place.x1 - 1;
    const int end_y = place.y1 - 1;
    int x = place.x0 + 1;
    int y = place.y0 + 1;
    while (!text.empty() && x < end_x && y < end_y) {
        const std::string_view run = plain_run(text);
        if (!run.empty()) {
            x = draw_bytes(x, y, end_x, run, colours);
            text.remove_prefix(run.size());
            continue;
        }
        if (text[0] == '\n') {
            x = place.x0 + 1;
            y++;
        } else if (text[0] == '\t') {
            x += TAB_WIDTH;
        }
        text.remove_prefix(1);
    }
}

void popup_draw(Widget *widget)
{
    const PopupContext &context = *context_of(widget);
    const Rectangle place = widget_rectangle(*widget);
    const Colours colours = {context.fg, context.bg};
    draw_frame(place, colours);
    draw_text(place, context.text, colours);
}

void popup_on_input(const char *input, int, WidgetList *list, Widget *widget)
{
    const PopupContext &context = *context_of(widget);
    if (context.on_key != nullptr) {
        context.on_key(input, list, widget);
    } else {
        widget_list_remove(list, widget);
    }
}

void popup_destroy(Widget *widget)
{
    PopupContext *context = context_of(widget);
    free(context->text);
    free(context);
}

} // namespace

void popup_open(const char *text, PopupPlace place, PopupKeyHandler on_key)
{
    if (!widget_list_has_room(widget_list)) {
        return;
    }
    const Rectangle at = popup_rectangle(place, widget_list->height, widget_list->width);
    Widget *popup = popup_new(text, at.x0, at.y0, at.x1, at.y1, on_key);
    if (popup != nullptr) {
        widget_list_add(widget_list, popup);
    }
}

Widget *popup_new(const char *text, int x0, int y0, int x1, int y1, PopupKeyHandler on_key)
{
    Widget *widget = widget_new<PopupContext>(LAYOUT_POPUP, "popup", x0, y0, x1, y1);
    if (widget == nullptr) {
        return nullptr;
    }
    PopupContext *context = context_of(widget);
    context->text = strdup(text);
    context->on_key = on_key;
    context->bg = TB_BLUE;
    context->fg = TB_WHITE;
    widget->draw = popup_draw;
    widget->on_input = popup_on_input;
    widget->destroy = popup_destroy;
    if (context->text == nullptr) {
        ulog(LOG_ERR, "Could not allocate popup context structure\n");
        popup_destroy(widget);
        free(widget);
        return nullptr;
    }
    return widget;
}
