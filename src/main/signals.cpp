#include "main/signals.h"

#include <errno.h>
#include <initializer_list>
#include <signal.h>
#include <string.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "basic/power.h"
#include "dep/ubox.h"
#include "front/front_end.h"
#include "link/connection.h"
#include "link/signal_pipe.h"

namespace {

struct Signals {
    volatile sig_atomic_t continue_count; // how often the client was continued
    volatile sig_atomic_t end_count;      // and told to end by SIGINT or SIGTERM
    volatile sig_atomic_t watching;       // the loop sees them: there is a session to end
    uloop_fd stop_watch;                  // of a descriptor that is readable while a SIGTSTP waits
    struct sigaction loop_action[NSIG];   // of the loop, for the signals that end the session
};
Signals signals;

void set_blocked(int signal_number, bool blocked)
{
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, signal_number);
    sigprocmask(blocked ? SIG_BLOCK : SIG_UNBLOCK, &one, nullptr);
}

bool is_waiting(int signal_number)
{
    sigset_t waiting;
    return sigpending(&waiting) == 0 && sigismember(&waiting, signal_number) == 1;
}

// False for a signal that was ignored from the start, and stays so.
bool install(int signal_number, void (*handler)(int), int flags)
{
    struct sigaction action = {};
    if (sigaction(signal_number, nullptr, &action) != 0 || action.sa_handler == SIG_IGN) {
        return false;
    }
    action.sa_handler = handler;
    action.sa_flags = flags;
    sigaction(signal_number, &action, nullptr);
    return true;
}

// Stops a client in the background as if the signal had never been caught, and returns when it was
// continued, or at once where nobody could continue it: the system does not stop it then.
void stop_in_background(int signal_number)
{
    set_blocked(signal_number, true);
    signal(signal_number, SIG_DFL);
    raise(signal_number); // pending until unblocked; a SIGCONT from here on cancels it
    // It has discarded a SIGCONT that was pending, but then the client is in the foreground.
    if (connection_is_ending(zorvad) || !front_end->in_background()) {
        signal(signal_number, SIG_IGN); // cancels it as well
    }
    set_blocked(signal_number, false); // stops
    signal(signal_number, connection_is_ending(zorvad) ? SIG_IGN : SIG_DFL);
}

// The client read its terminal in the background: it stops or, when it is ending, gets an error. It
// tries to read again either way.
void on_background_read(int signal_number)
{
    if (connection_is_ending(zorvad)) {
        signal(signal_number, SIG_IGN);
        return;
    }
    stop_in_background(signal_number);
    (void)install(signal_number, on_background_read, SA_NODEFER);
    if (front_end->take_flags != nullptr) {
        front_end->take_flags(); // the shell may have changed them, and have read everything
    }
}

void on_continue(int signal_number)
{
    signals.continue_count = signals.continue_count + 1;
    signal_pipe_notify(signal_number);
}

// Whatever else has come with it, or comes, does not stop the client.
void on_end_signal(int signal_number)
{
    if (!signals.watching) {
        _exit(0); // there is nothing yet to give back or to hand on
    }
    signals_let_end();
    zorvad.told_to_end = 1;
    signal_pipe_notify(signal_number); // a loop that is about to run forgets what was before
    if (signal_number == SIGHUP) {
        uloop_cancelled = true;
    } else {
        signals.end_count = signals.end_count + 1;
        signals.loop_action[signal_number].sa_handler(signal_number);
    }
}

// Another job may have used the terminal while the client was stopped. It is left alone until the
// client is in the foreground again, and also when the client is ending.
void take_terminal_back()
{
    constexpr int LOOKS = 5; // a shell may take the terminal or give it back in the middle of one
    const sig_atomic_t count_before = signals.continue_count;
    for (int look = 0; look < LOOKS; look++) {
        if (connection_is_ending(zorvad)) {
            return;
        }
        if (!front_end->in_background()) {
            front_end->resume();
            return;
        }
        stop_in_background(SIGTTOU);
        if (signals.continue_count != count_before) {
            return; // that SIGCONT is handled next
        }
    }
    connection_quit(zorvad); // nobody can bring it to the foreground any more
}

// A SIGTSTP waits, blocked, for the terminal to be given back: the system itself takes it away when
// the client is continued meanwhile.
void on_stop_waiting(uloop_fd *, unsigned int)
{
    if (connection_is_ending(zorvad)) {
        signals_let_end();
        set_blocked(SIGTSTP, false); // a blocked one waits even where it is ignored
        return;
    }
    if (!is_waiting(SIGTSTP)) {
        return;
    }
    const sig_atomic_t count_before = signals.continue_count;
    front_end->suspend();
    set_blocked(SIGTSTP, false); // stops
    set_blocked(SIGTSTP, true);
    if (signals.continue_count == count_before) {
        take_terminal_back(); // nobody could continue it, so it was not stopped
    }
}

void handle_signal(int signal_number)
{
    switch (signal_number) {
    case SIGHUP:
    case SIGINT:
    case SIGTERM:
        connection_quit(zorvad);
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

int watch_stop()
{
    struct sigaction action = {};
    if (sigaction(SIGTSTP, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) {
        return 0;
    }
    set_blocked(SIGTSTP, true);
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTSTP);
    signals.stop_watch.fd = signalfd(-1, &stop, SFD_CLOEXEC | SFD_NONBLOCK);
    signals.stop_watch.cb = on_stop_waiting;
    if (signals.stop_watch.fd < 0 || uloop_fd_add(&signals.stop_watch, ULOOP_READ) != 0) {
        ulog(LOG_ERR, "Could not watch for stops: %s\n", strerror(errno));
        return -1;
    }
    return 0;
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
    for (int number : {SIGCHLD, SIGINT, SIGTERM}) {
        set_blocked(number, true);
    }
    signal(SIGXFSZ, SIG_IGN); // then the write fails, as on a full disk
}

void signals_take_ends()
{
    for (int number : {SIGINT, SIGTERM}) {
        sigaction(number, nullptr, &signals.loop_action[number]);
        if (signals.loop_action[number].sa_handler != SIG_DFL) { // the loop takes no ignored ones
            (void)install(number, on_end_signal, 0);
        }
        set_blocked(number, false);
    }
}

int signals_watch()
{
    if (signal_pipe_open(handle_signal) != 0 || watch_stop() != 0) {
        return -1;
    }
    signals.watching = 1;
    (void)install(SIGHUP, on_end_signal, 0);
    // A client that was stopped while it set the terminal repeats the call when continued.
    (void)install(SIGCONT, on_continue, SA_RESTART);
    (void)install(SIGTTIN, on_background_read, SA_NODEFER); // the handler has it stop the client
    set_blocked(SIGCHLD, false);
    return 0;
}

void signals_let_end()
{
    for (int number : {SIGTSTP, SIGTTIN, SIGTTOU}) {
        signal(number, SIG_IGN);
    }
}

int signals_end_count()
{
    return signals.end_count;
}
