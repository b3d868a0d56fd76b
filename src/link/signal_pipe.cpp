#include "link/signal_pipe.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include "dep/ubox.h"

namespace {

struct SignalPipe {
    uloop_fd reader;
    int writer;
    volatile sig_atomic_t is_open; // the handler may run before
    void (*on_signal)(int signal_number);
};
SignalPipe signals;

void notify_read(uloop_fd *fd, unsigned int)
{
    unsigned char number;
    while (read(fd->fd, &number, 1) == 1) {
        signals.on_signal(number);
    }
}

} // namespace

int signal_pipe_open(void (*on_signal)(int signal_number))
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        ulog(LOG_ERR, "Could not create signal pipe: %s\n", strerror(errno));
        return -1;
    }
    signals.on_signal = on_signal;
    signals.reader.fd = ends[0];
    signals.reader.cb = notify_read;
    if (uloop_fd_add(&signals.reader, ULOOP_READ) != 0) {
        ulog(LOG_ERR, "Could not watch signal pipe: %s\n", strerror(errno));
        close(ends[0]);
        close(ends[1]);
        return -1;
    }
    signals.writer = ends[1];
    signals.is_open = 1;
    return 0;
}

void signal_pipe_notify(int signal_number)
{
    if (!signals.is_open) {
        return;
    }
    const int saved_errno = errno;
    const unsigned char number = static_cast<unsigned char>(signal_number);
    (void)!write(signals.writer, &number, 1); // a full pipe holds thousands of them already
    errno = saved_errno;
}
