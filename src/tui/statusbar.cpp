#include "tui/statusbar.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string_view>

#include "front/escape.h"
#include "dep/termbox.h"
#include "link/command.h"
#include "link/owned.h"
#include "text/printable.h"
#include "text/width.h"

namespace {

// Bytes of text for each column of the bar: enough for a character of four and marks on it.
constexpr size_t COLUMN_BYTES = 16;

StatusbarContext *context_of(Widget *widget)
{
    return static_cast<StatusbarContext *>(widget->priv);
}

const char *text_or_empty(const char *text)
{
    return text != nullptr ? text : "";
}

int32_t seconds_connected(const DaemonConnection &connection)
{
    timeval now;
    gettimeofday(&now, nullptr);
    return static_cast<int32_t>(now.tv_sec - connection.connected_at.tv_sec);
}

void format_line(const StatusbarContext &context, char *buffer, size_t size)
{
    char key[16] = "";
    escape_name(context.conn->escape_char, key, sizeof key - 1);
    const Text shown_key(printable_latin1(key));
    snprintf(buffer, size,
             "Label: %s | Time: %ds | Users: %s | Info: %s |Signals: %s%s%s%s| %s ? for help",
             text_or_empty(context.label), seconds_connected(*context.conn),
             text_or_empty(context.users), text_or_empty(context.info), context.dcd ? "DCD " : "",
             context.dsr ? "DSR " : "", context.ri ? "RI " : "", context.cts ? "CTS" : "",
             text_or_empty(shown_key.get()));
}

// Prints printable text as it is; a mark that combines with the character before it has no cell.
void print_text(int x, int y, int end_x, std::string_view text, uint16_t fg, uint16_t bg)
{
    while (!text.empty()) {
        const Character character = decode_character(text);
        const int width = character_width(character.code_point);
        if (x + width > end_x) {
            return;
        }
        if (width > 0) {
            tb_set_cell(x, y, character.code_point, fg, bg);
        }
        x += width;
        text.remove_prefix(character.length);
    }
}

void statusbar_draw(Widget *widget)
{
    const StatusbarContext &context = *context_of(widget);
    const int width = widget->x1 - widget->x0;
    for (int column = 0; column < width; column++) {
        tb_set_cell(column, widget->y0, ' ', TB_DEFAULT, context.bg);
    }
    if (width < 1) {
        return;
    }
    const size_t size = static_cast<size_t>(width) * COLUMN_BYTES + 1;
    const Text buffer(static_cast<char *>(malloc(size)));
    if (buffer) {
        print_text(widget->x0, widget->y0, widget->x1 - 1,
                   statusbar_format(widget, buffer.get(), size), context.fg, context.bg);
    }
}

void statusbar_tick(Widget *widget)
{
    StatusbarContext *context = context_of(widget);
    if (context->pending) {
        return;
    }
    if (send_bare_command(*context->conn, "PORT_INFO", context, statusbar_on_port_info) != 0) {
        ulog(LOG_ERR, "Could not schedule command\n");
        return;
    }
    context->pending = true;
}

void free_texts(StatusbarContext &context)
{
    free(context.label);
    free(context.users);
    free(context.info);
}

void statusbar_destroy(Widget *widget)
{
    StatusbarContext *context = context_of(widget);
    free_texts(*context);
    free(context);
}

char *copy_member(node *reply, const char *name)
{
    return strdup(node_get_string(node_object_get(reply, name)));
}

} // namespace

Widget *statusbar_new(DaemonConnection *conn, int x0, int y0, int x1, int y1)
{
    Widget *widget = widget_new<StatusbarContext>(LAYOUT_STATUS, "statusbar", x0, y0, x1, y1);
    if (widget == nullptr) {
        return nullptr;
    }
    StatusbarContext *context = context_of(widget);
    context->conn = conn;
    context->fg = TB_WHITE;
    context->bg = TB_BLUE;
    widget->draw = statusbar_draw;
    widget->tick = statusbar_tick;
    widget->destroy = statusbar_destroy;
    return widget;
}

void statusbar_on_port_info(node *reply, void *user)
{
    StatusbarContext *context = static_cast<StatusbarContext *>(user);
    if (reply == nullptr) {
        return;
    }
    free_texts(*context);
    context->label = copy_member(reply, "label");
    context->users = copy_member(reply, "users");
    context->info = copy_member(reply, "info");
    connection_take_escape(*context->conn, reply);
    node *signals = node_object_get(reply, "signals");
    context->dcd = node_get_boolean(node_object_get(signals, "dcd"));
    context->dsr = node_get_boolean(node_object_get(signals, "dsr"));
    context->ri = node_get_boolean(node_object_get(signals, "ri"));
    context->cts = node_get_boolean(node_object_get(signals, "cts"));
    context->loaded = true;
    context->pending = false;
}

char *statusbar_format(Widget *widget, char *buffer, size_t size)
{
    const StatusbarContext &context = *context_of(widget);
    if (context.loaded) {
        format_line(context, buffer, size - 1);
    } else {
        snprintf(buffer, size - 1, "Port Data Loading...");
    }
    size_t length = strlen(buffer);
    length -= incomplete_tail({buffer, length});
    buffer[make_printable({buffer, length}, buffer)] = '\0';
    return buffer;
}
