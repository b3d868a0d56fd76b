#include "tui/port_history.h"

#include <stdlib.h>
#include <string.h>

#include "dep/termbox.h"
#include "link/command.h"
#include "link/owned.h"
#include "tui/frame.h"
#include "tui/widget/layout.h"
#include "tui/widget/widget_list.h"

namespace {

constexpr char ESCAPE_KEY = 0x1b;

PortHistoryContext *context_of(Widget *widget)
{
    return static_cast<PortHistoryContext *>(widget->priv);
}

PortHistoryLine *line_after(const PortHistoryLine *line)
{
    return list_entry(line->list.next, PortHistoryLine, list);
}

PortHistoryLine *line_before(const PortHistoryLine *line)
{
    return list_entry(line->list.prev, PortHistoryLine, list);
}

void draw_line(const PortHistoryContext &context, const PortHistoryLine &line, int x, int y,
               int end_x)
{
    if (context.timestamp_mode != 0) {
        char timestamp[TIMESTAMP_LENGTH + 1];
        x = draw_bytes(x, y, end_x, format_timestamp(&line, timestamp, sizeof timestamp),
                       {TB_GREEN, context.bg});
    }
    x = draw_bytes(x, y, end_x, history_line_type(line.type), {TB_RED, context.bg});
    x = draw_bytes(x, y, end_x, "|", {context.fg, context.bg});
    (void)draw_bytes(x, y, end_x, {line.text, line.length}, {context.fg, context.bg});
}

// From the bottom row upwards to the one under the header.
void draw_lines(const PortHistoryContext &context, const Rectangle &place)
{
    const PortHistoryLine *line = context.bottom;
    for (int y = place.y1 - 2; y > place.y0 + 1 && &line->list != &context.lines; y--) {
        draw_line(context, *line, place.x0 + 1, y, place.x1 - 1);
        line = line_after(line);
    }
}

void history_draw(Widget *widget)
{
    const PortHistoryContext &context = *context_of(widget);
    const Rectangle place = widget_rectangle(*widget);
    draw_frame(place, {context.fg, context.bg});
    if (place.y0 + 1 < place.y1) {
        (void)tb_printf(place.x0 + 1, place.y0 + 1, context.fg | TB_BOLD, context.bg,
                        "Port History - Line %d of %d - Scroll Up/Down [ ] Timestamp Mode: t "
                        "Exit: Esc",
                        context.position, context.count);
    }
    if (context.bottom != nullptr) {
        draw_lines(context, place);
    } else if (place.y0 + 2 < place.y1) {
        (void)draw_bytes(place.x0 + 1, place.y0 + 2, place.x1 - 1,
                         context.loaded ? "No Port History available"
                                        : "Port History is loading...",
                         {context.fg, context.bg});
    }
}

void history_tick(Widget *widget)
{
    PortHistoryContext *context = context_of(widget);
    if (context->requested) {
        return;
    }
    if (send_bare_command(*context->conn, "SCROLLBACK", context, port_history_on_reply) != 0) {
        ulog(LOG_ERR, "Could not schedule command\n");
        return;
    }
    context->requested = true;
}

// The bottom row follows the position; the last line stays there when all are skipped.
void scroll_up(PortHistoryContext &context)
{
    if (context.position < context.count) {
        context.position++;
        if (context.position < context.count) {
            context.bottom = line_after(context.bottom);
        }
    }
}

void scroll_down(PortHistoryContext &context)
{
    if (context.position > 0) {
        context.position--;
        if (context.position < context.count - 1) {
            context.bottom = line_before(context.bottom);
        }
    }
}

void history_on_input(const char *input, int length, WidgetList *list, Widget *widget)
{
    PortHistoryContext &context = *context_of(widget);
    switch (input[0]) {
    case ']':
        scroll_down(context);
        break;
    case '[':
        scroll_up(context);
        break;
    case 't':
        context.timestamp_mode = context.timestamp_mode == 1 ? 0 : context.timestamp_mode + 1;
        break;
    case ESCAPE_KEY:
        if (length == 1) {
            widget_list_remove(list, widget);
            return;
        }
        break;
    default:
        break;
    }
    history_draw(widget);
}

void free_lines(PortHistoryContext &context)
{
    PortHistoryLine *line;
    PortHistoryLine *next;
    list_for_each_entry_safe (line, next, &context.lines, list) {
        list_del(&line->list);
        free(line);
    }
}

void history_destroy(Widget *widget)
{
    PortHistoryContext *context = context_of(widget);
    free_lines(*context);
    if (context->requested && !context->loaded) {
        context->orphaned = true;
        return;
    }
    free(context);
}

// A record of the reply's element; null, with a line in the log, when memory is short.
PortHistoryLine *line_new(node *element)
{
    const char *text = node_get_string(node_object_get(element, "line"));
    const size_t length = strlen(text);
    PortHistoryLine *line = zalloc<PortHistoryLine>(length + 1);
    if (line == nullptr) {
        ulog(LOG_ERR, "Could not allocate scrollback line\n");
        return nullptr;
    }
    memcpy(line->text, text, length);
    line->length = static_cast<uint32_t>(length);
    line->type = static_cast<uint32_t>(node_get_integer(node_object_get(element, "type")));
    line->timestamp = node_get_integer(node_object_get(element, "timestamp"));
    line->scrollback_idx = node_get_integer(node_object_get(element, "scrollback_idx"));
    return line;
}

} // namespace

Widget *port_history_new(DaemonConnection *conn, int x0, int y0, int x1, int y1)
{
    Widget *widget =
        widget_new<PortHistoryContext>(LAYOUT_TALL_POPUP, "scrollback", x0, y0, x1, y1);
    if (widget == nullptr) {
        return nullptr;
    }
    PortHistoryContext *context = context_of(widget);
    context->conn = conn;
    INIT_LIST_HEAD(&context->lines);
    context->bg = TB_BLUE;
    context->fg = TB_WHITE;
    widget->draw = history_draw;
    widget->tick = history_tick;
    widget->on_input = history_on_input;
    widget->destroy = history_destroy;
    return widget;
}

void port_history_on_reply(node *reply, void *user)
{
    PortHistoryContext *context = static_cast<PortHistoryContext *>(user);
    if (context->orphaned) {
        free(context);
        return;
    }
    if (reply == nullptr) {
        return;
    }
    context->loaded = true;
    node *history = node_object_get(reply, "scrollback");
    for (node *element = node_array_first(history); element != nullptr;
         element = node_array_next(element)) {
        PortHistoryLine *line = line_new(element);
        if (line == nullptr) {
            break;
        }
        list_add_tail(&line->list, &context->lines);
        context->count++;
    }
    if (context->count > 0) {
        context->bottom = list_first_entry(&context->lines, PortHistoryLine, list);
    }
}
