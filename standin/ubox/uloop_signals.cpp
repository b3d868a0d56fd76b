#include "uloop_signals.h"

#include <fcntl.h>
#include <sys/wait.h>

bool uloop_handle_sigchld = true;
volatile sig_atomic_t loop_stop_signal;

namespace {

volatile sig_atomic_t child_ended;
int waker_write = -1;
uloop_fd waker{};

void wake()
{
    const int saved_errno = errno;
    // A full pipe wakes the loop just as well.
    [[maybe_unused]] const ssize_t written = write(waker_write, "", 1);
    errno = saved_errno;
}

void drain_waker(uloop_fd *fd, unsigned)
{
    char bytes[64];
    while (read(fd->fd, bytes, sizeof bytes) > 0) {
        continue;
    }
}

void on_stop_signal(int signo)
{
    loop_stop_signal = signo;
    uloop_cancelled = true;
    wake();
}

void on_child_signal(int)
{
    child_ended = 1;
    wake();
}

struct SignalRule {
    int signo;
    void (*handler)(int);
    bool installed;
    struct sigaction original;
};

SignalRule signal_rules[] = {
    {SIGINT, on_stop_signal},
    {SIGTERM, on_stop_signal},
    {SIGCHLD, on_child_signal},
    {SIGPIPE, SIG_IGN},
};

void install(SignalRule &rule)
{
    struct sigaction action;
    if (sigaction(rule.signo, nullptr, &action) < 0 || action.sa_handler != SIG_DFL) {
        return;
    }
    rule.original = action;
    action.sa_handler = rule.handler;
    action.sa_flags = 0;
    rule.installed = sigaction(rule.signo, &action, nullptr) == 0;
}

void restore(SignalRule &rule)
{
    struct sigaction current;
    if (!rule.installed || sigaction(rule.signo, nullptr, &current) < 0) {
        return;
    }
    rule.installed = false;
    if (current.sa_handler == rule.handler) {
        (void)sigaction(rule.signo, &rule.original, nullptr); // was valid when it was read
    }
}

} // namespace

int loop_waker_open()
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) < 0) {
        return -1;
    }
    waker = {};
    waker.fd = ends[0];
    waker.cb = drain_waker;
    waker_write = ends[1];
    return uloop_fd_add(&waker, ULOOP_READ);
}

void loop_waker_close()
{
    if (waker_write < 0) {
        return;
    }
    close(waker.fd);
    close(waker_write);
    waker_write = -1;
}

void loop_signals_install()
{
    for (SignalRule &rule : signal_rules) {
        if (rule.signo != SIGCHLD || uloop_handle_sigchld) {
            install(rule);
        }
    }
}

void loop_signals_restore()
{
    for (SignalRule &rule : signal_rules) {
        restore(rule);
    }
}

void loop_reap_children()
{
    if (!child_ended) {
        return;
    }
    child_ended = 0;
    while (waitpid(-1, nullptr, WNOHANG) > 0) {
        continue;
    }
}
