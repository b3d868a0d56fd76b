#include "basic/start.h"

#include <unistd.h>

#include "basic/console.h"
#include "basic/port_info.h"
#include "front/sessions.h"
#include "front/terminal.h"
#include "link/command.h"
#include "text/printable.h"

namespace {

int start(DaemonConnection &connection)
{
    basic_streams_init();
    connection.output_sink = basic_output_sink;
    basic_raw_mode();
    if (send_bare_command(connection, "PORT_INFO", nullptr, basic_port_info_reply) != 0) {
        ulog(LOG_ERR, "Could not send port info command\n");
    }
    return 0;
}

bool in_background()
{
    return is_another_jobs(STDIN_FILENO);
}

void show_notice(const char *text)
{
    if (!console_is_stuck()) {
        console_print(text);
    }
}

// The reply to a key, which may have been pressed many times: not where the terminal takes nothing.
void show_sessions(const char *text)
{
    if (!console_is_stuck()) {
        console_print(text);
        input_hook = confirm_disconnect_hook;
    }
}

} // namespace

const FrontEnd basic_front_end = {
    .start = start,
    .stop = nullptr,
    .suspend = basic_suspend_terminal,
    .resume = basic_resume_terminal,
    .take_flags = console_take_flags,
    .rescue = basic_restore_terminal,
    .in_background = in_background,
    .stop_sources = console_stop_sources,
    .printed = &stdout_stream,
    .field_copy = printable_copy, // control characters of the daemon must not reach the terminal
    .show_notice = show_notice,
    .show_sessions = show_sessions,
};

void confirm_disconnect_hook(const char *chunk, int32_t)
{
    sessions_answer(chunk);
    input_hook = nullptr;
}
