#include "main/signals.h"

#include <signal.h>

#include "basic/power.h"
#include "dep/ubox.h"
#include "front/front_end.h"
#include "link/connection.h"
#include "link/wake.h"

namespace {

Wake terminal_hung_up;
Wake stop_asked;
Wake continued;
volatile sig_atomic_t continue_count;

void on_signal(int signal_number)
{
    switch (signal_number) {
    case SIGHUP:
        wake_notify(terminal_hung_up);
        break;
    case SIGTSTP:
        wake_notify(stop_asked);
        break;
    default:
        continue_count = continue_count + 1;
        wake_notify(continued);
        break;
    }
}

void install(int signal_number)
{
    struct sigaction action = {};
    if (sigaction(signal_number, nullptr, &action) != 0 || action.sa_handler == SIG_IGN) {
        return;
    }
    action.sa_handler = on_signal;
    // Setting the terminal stops a client in the background; brought to the foreground, it goes on.
    action.sa_flags = signal_number == SIGCONT ? SA_RESTART : 0;
    sigaction(signal_number, &action, nullptr);
}

void end_session()
{
    connection_quit(zorvad);
}

// Stops as if the signal had never been caught, and returns when continued. False where nobody
// could continue the client: the system does not stop it then, and no SIGCONT comes.
bool stop_by(int signal_number)
{
    const sig_atomic_t count_before = continue_count;
    raise(signal_number);
    return continue_count != count_before;
}

// Whoever stopped the client has had the terminal since.
void take_terminal_back()
{
    // Nothing of the terminal is touched before it is the client's again, with the next SIGCONT.
    if (front_end->in_background() && stop_by(SIGTTOU)) {
        return;
    }
    front_end->resume();
}

// Gives the terminal back and stops.
void stop_client()
{
    front_end->suspend();
    signal(SIGTSTP, SIG_DFL);
    const bool stopped = stop_by(SIGTSTP);
    install(SIGTSTP);
    if (!stopped) {
        take_terminal_back();
    }
}

} // namespace

void signals_prepare()
{
    struct sigaction action = {};
    sigaction(SIGCHLD, nullptr, &action);
    action.sa_handler = power_sigchld_handler;
    action.sa_flags = 0;
    sigaction(SIGCHLD, &action, nullptr);
    uloop_handle_sigchld = false;
}

int signals_watch()
{
    if (power_watch_children() != 0 || wake_open(terminal_hung_up, end_session) != 0 ||
        wake_open(stop_asked, stop_client) != 0 || wake_open(continued, take_terminal_back) != 0) {
        return -1;
    }
    install(SIGHUP);
    install(SIGTSTP);
    install(SIGCONT);
    return 0;
}

void signals_let_end()
{
    signal(SIGTTIN, SIG_IGN);
    signal(SIGTTOU, SIG_IGN);
}
