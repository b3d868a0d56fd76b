#include "main/signals.h"

#include <signal.h>

#include "basic/power.h"
#include "dep/ubox.h"
#include "front/front_end.h"
#include "link/connection.h"
#include "link/signal_pipe.h"

namespace {

// How often the client was continued: in all, and when it was last asked to stop.
volatile sig_atomic_t continue_count;
volatile sig_atomic_t count_when_asked;

void on_signal(int signal_number);
void on_background_read(int signal_number);

void install(int signal_number)
{
    struct sigaction action = {};
    if (sigaction(signal_number, nullptr, &action) != 0 || action.sa_handler == SIG_IGN) {
        return;
    }
    action.sa_handler = signal_number == SIGTTIN ? on_background_read : on_signal;
    if (signal_number == SIGCONT) {
        // Setting the terminal stops a client in the background; in the foreground it goes on.
        action.sa_flags = SA_RESTART;
    } else if (signal_number == SIGTTIN) {
        action.sa_flags = SA_NODEFER; // the handler has it stop the client
    }
    sigaction(signal_number, &action, nullptr);
}

// Stops as if the signal had never been caught, unless the client was continued since count_before,
// and returns when continued. False where nobody could continue the client: the system does not
// stop it then, and no SIGCONT comes.
bool stop_by(int signal_number, sig_atomic_t count_before)
{
    sigset_t stop;
    sigset_t before;
    sigemptyset(&stop);
    sigaddset(&stop, signal_number);
    sigprocmask(SIG_BLOCK, &stop, &before);
    signal(signal_number, SIG_DFL);
    raise(signal_number); // waits; a SIGCONT from here on takes it away
    if (continue_count != count_before) {
        signal(signal_number, SIG_IGN); // takes it away, too
    }
    sigprocmask(SIG_SETMASK, &before, nullptr); // stops
    signal(signal_number, SIG_DFL);
    return continue_count != count_before;
}

// A client in the background reads a terminal: it stops, or gets an error where it has to end.
void on_background_read(int signal_number)
{
    if (connection_is_ending(zorvad)) {
        signal(signal_number, SIG_IGN);
    } else {
        (void)stop_by(signal_number, continue_count); // reading is tried again either way
        install(signal_number);
    }
}

void on_signal(int signal_number)
{
    if (signal_number == SIGCONT) {
        continue_count = continue_count + 1;
    } else if (signal_number == SIGTSTP) {
        count_when_asked = continue_count;
    }
    if (signal_number == SIGHUP) {
        zorvad.told_to_end = 1; // at once: what else has come with it may not stop the client
    }
    signal_pipe_notify(signal_number);
}

// SIGCHLD waits while it is blocked.
void block_child_signal(int how)
{
    sigset_t child;
    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    sigprocmask(how, &child, nullptr);
}

// Whoever stopped the client has had the terminal since. Nothing of it is touched before it is the
// client's again, nor on the way out.
void take_terminal_back()
{
    if (connection_is_ending(zorvad)) {
        return;
    }
    const sig_atomic_t count_before = continue_count;
    if (!front_end->in_background()) {
        front_end->resume();
    } else if (!stop_by(SIGTTOU, count_before)) {
        connection_quit(zorvad); // nobody can bring it to the foreground any more
    }
}

// Gives the terminal back and stops, unless the client was continued meanwhile.
void stop_client()
{
    const sig_atomic_t count_before = count_when_asked;
    if (connection_is_ending(zorvad) || continue_count != count_before) {
        return;
    }
    front_end->suspend();
    const bool stopped = stop_by(SIGTSTP, count_before);
    install(SIGTSTP);
    if (!stopped) {
        take_terminal_back();
    }
}

void handle_signal(int signal_number)
{
    switch (signal_number) {
    case SIGHUP:
        connection_quit(zorvad);
        break;
    case SIGTSTP:
        stop_client();
        break;
    case SIGCONT:
        take_terminal_back();
        break;
    case SIGCHLD:
        power_reap_children();
        break;
    default:
        break;
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
    block_child_signal(SIG_BLOCK);
    signal(SIGXFSZ, SIG_IGN); // an error of the write, as a full disk is
}

int signals_watch()
{
    if (signal_pipe_open(handle_signal) != 0) {
        return -1;
    }
    install(SIGHUP);
    install(SIGTSTP);
    install(SIGCONT);
    install(SIGTTIN);
    block_child_signal(SIG_UNBLOCK);
    return 0;
}

void signals_let_end()
{
    signal(SIGTTIN, SIG_IGN);
    signal(SIGTTOU, SIG_IGN);
}
