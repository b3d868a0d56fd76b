#include "tui/start.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>

#include "dep/termbox.h"
#include "front/sessions.h"
#include "front/terminal.h"
#include "tui/display.h"
#include "tui/input.h"
#include "tui/popup.h"
#include "tui/statusbar.h"
#include "tui/term_widget.h"
#include "tui/termbox.h"
#include "tui/widget/widget_list.h"

namespace {

// Sets termbox2 up if the display has started, and returns the result of that.
int set_up(int started)
{
    if (started == TB_OK) {
        (void)tb_set_func(TB_FUNC_EXTRACT_PRE, tui_extract_hook);
        (void)tb_set_output_mode(TB_OUTPUT_NORMAL);
    }
    return started;
}

// The terminal widget comes second and so gets the keyboard.
bool build_widgets(DaemonConnection &connection)
{
    widget_list = widget_list_new(tb_height(), tb_width());
    return widget_list != nullptr &&
           widget_list_open(widget_list, statusbar_new, LAYOUT_STATUS, connection) &&
           widget_list_open(widget_list, term_widget_new, LAYOUT_TERMINAL, connection);
}

int give_up()
{
    if (widget_list != nullptr) {
        widget_list_free(widget_list);
        widget_list = nullptr;
    }
    display_stop();
    fprintf(stderr, "Could not initialise widgets");
    return -1;
}

int start(DaemonConnection &connection)
{
    return tui_start_on("/dev/tty", connection);
}

void suspend()
{
    tui_input_stop();
    display_stop();
}

void resume()
{
    suspend(); // whoever continued the client may have used the terminal in between
    if (set_up(display_restart()) != TB_OK || tui_input_start() != 0) {
        connection_quit(zorvad);
        return;
    }
    widget_list_resize(widget_list, tb_height(), tb_width());
}

bool in_background()
{
    const int terminal = open("/dev/tty", O_RDONLY | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    const bool another_has_it = is_another_jobs(terminal);
    close(terminal);
    return another_has_it;
}

void stop_sources()
{
    if (in_background()) {
        tui_input_stop();
        uloop_timeout_cancel(&widget_list->refresh);
    } else {
        tui_input_finish();
    }
}

// A popup shows control characters as "?" by itself.
char *field_copy(const char *text)
{
    return strdup(text);
}

void show_notice(const char *text)
{
    popup_open(text, PopupPlace::NOTICE, nullptr);
}

void show_sessions(const char *text)
{
    popup_open(text, PopupPlace::SESSIONS, confirm_disconnect_key);
}

} // namespace

const FrontEnd tui_front_end = {
    .start = start,
    .stop = tui_stop,
    .suspend = suspend,
    .resume = resume,
    .take_flags = nullptr,
    .rescue = display_rescue,
    .in_background = in_background,
    .stop_sources = stop_sources,
    .printed = nullptr, // port output only changes the screen: it may end at any byte
    .field_copy = field_copy,
    .show_notice = show_notice,
    .show_sessions = show_sessions,
};

int tui_start_on(const char *terminal, DaemonConnection &connection)
{
    const int result = set_up(display_start(terminal));
    if (result != TB_OK) {
        return result;
    }
    if (!build_widgets(connection) || tui_input_start() != 0) {
        return give_up();
    }
    connection.output_sink = tui_output_sink;
    return 0;
}

void tui_stop()
{
    display_stop();
}

void confirm_disconnect_key(const char *input, WidgetList *list, Widget *widget)
{
    sessions_answer(input);
    widget_list_remove(list, widget);
}
