// Start-up, main loop, shutdown.

#include <stdio.h>

#include "basic/start.h"
#include "dep/ubox.h"
#include "link/connection.h"
#include "main/crash.h"
#include "main/identity.h"
#include "main/options.h"
#include "main/session.h"
#include "main/signals.h"
#include "tui/start.h"

namespace {

// False for a client that was told to end while it waited in the background for its terminal.
bool start_front_end()
{
    front_end = use_basic_interface ? &basic_front_end : &tui_front_end;
    const bool started = front_end->start(zorvad) == 0;
    if (started) {
        return true;
    }
    if (connection_is_ending(zorvad)) {
        return false;
    }
    use_basic_interface = 1;
    front_end = &basic_front_end;
    (void)front_end->start(zorvad); // needs nothing
    return true;
}

int start_event_loop()
{
    signals_prepare();
    const int result = uloop_init();
    signals_take_ends();
    return result;
}

int run()
{
    if (start_event_loop() != 0) {
        fprintf(stderr, "Could not start the event loop\n");
        return -1;
    }
    if (daemon_connect(zorvad, options_port()) != 0) {
        fprintf(stderr, "Could not connect to zorvad\n");
        return -1;
    }
    if (signals_watch() != 0) {
        fprintf(stderr, "Could not start the event loop\n");
        return -1;
    }
    announce_user();
    crash_prepare();
    if (!start_front_end()) {
        return 0;
    }
    session_run();
    signals_let_end();
    session_flush();
    if (front_end->stop != nullptr) {
        front_end->stop();
    }
    return 0;
}

int parse_and_run(int argument_count, char **arguments)
{
    switch (options_parse(argument_count, arguments)) {
    case CommandLine::RUN:
        return run();
    case CommandLine::HELP:
        return 0;
    case CommandLine::WRONG:
        break;
    }
    return -1;
}

} // namespace

int main(int argument_count, char **arguments)
{
    const bool prepared = options_init();
    ulog_open(ULOG_SYSLOG, LOG_DAEMON, "zorvad-client");
    ulog_threshold(LOG_WARNING);
    ulog(LOG_INFO, "zorvad-client intialising...");
    int status = -1;
    if (prepared) {
        status = parse_and_run(argument_count, arguments);
    } else {
        fprintf(stderr, "zorvad-client: out of memory\n");
    }
    options_free();
    return status;
}
