#include "tui/start.h"

#include <stdio.h>

#include "dep/termbox.h"
#include "tui/input.h"
#include "tui/screen.h"
#include "tui/statusbar.h"
#include "tui/term_widget.h"
#include "tui/termbox.h"
#include "tui/widget/widget_list.h"

namespace {

const char *terminal_path;
// Port output that the emulator works through before a key gets its turn: about half a millisecond.
constexpr int32_t PORT_OUTPUT_TURN = 16 * 1024;

// Starts termbox2 and sets it up; its result when that fails.
int open_screen()
{
    const int result = screen_start(terminal_path);
    if (result == TB_OK) {
        (void)tb_set_func(TB_FUNC_EXTRACT_PRE, tui_extract_hook);
        (void)tb_set_output_mode(TB_OUTPUT_NORMAL);
    }
    return result;
}

void tui_output_sink(const char *bytes, int32_t length)
{
    widget_list_feed(bytes, length, widget_list);
}

bool add_widget(Widget *widget)
{
    if (widget != nullptr) {
        widget_list_add(widget_list, widget);
    }
    return widget != nullptr;
}

// The terminal widget comes second and so gets the keyboard.
bool build_widgets(DaemonConnection &connection)
{
    const int width = tb_width();
    const int height = tb_height();
    widget_list = widget_list_new(height, width);
    return widget_list != nullptr &&
           add_widget(statusbar_new(&connection, 0, height - 1, width, height)) &&
           add_widget(term_widget_new(&connection, 0, 0, width, height - 1));
}

int give_up()
{
    if (widget_list != nullptr) {
        widget_list_free(widget_list);
        widget_list = nullptr;
    }
    screen_stop();
    fprintf(stderr, "Could not initialise widgets");
    return -1;
}

} // namespace

int tui_start(DaemonConnection &connection)
{
    return tui_start_on("/dev/tty", connection);
}

int tui_start_on(const char *terminal, DaemonConnection &connection)
{
    terminal_path = terminal;
    const int result = open_screen();
    if (result != TB_OK) {
        return result;
    }
    if (!build_widgets(connection) || tui_input_start() != 0) {
        return give_up();
    }
    connection.output_sink = tui_output_sink;
    connection.port_output.turn_limit = PORT_OUTPUT_TURN;
    return 0;
}

void tui_stop()
{
    screen_stop();
}

void tui_suspend()
{
    tui_input_stop();
    screen_stop();
}

void tui_resume()
{
    tui_suspend(); // whoever continued the client may have used the terminal in between
    if (open_screen() != TB_OK || tui_input_start() != 0) {
        connection_quit(zorvad);
        return;
    }
    widget_list_resize(widget_list, tb_height(), tb_width());
}
