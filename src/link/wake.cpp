#include "link/wake.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

namespace {

void wake_notify_read(uloop_fd *fd, unsigned int)
{
    Wake *wake = container_of(fd, Wake, reader);
    char bytes[64];
    while (read(fd->fd, bytes, sizeof bytes) > 0) {
    }
    wake->on_wake();
}

} // namespace

int wake_open(Wake &wake, void (*on_wake)(void))
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        ulog(LOG_ERR, "Could not create wake pipe: %s\n", strerror(errno));
        return -1;
    }
    wake.on_wake = on_wake;
    wake.reader.fd = ends[0];
    wake.reader.cb = wake_notify_read;
    if (uloop_fd_add(&wake.reader, ULOOP_READ) != 0) {
        ulog(LOG_ERR, "Could not watch wake pipe: %s\n", strerror(errno));
        close(ends[0]);
        close(ends[1]);
        return -1;
    }
    wake.writer = ends[1];
    wake.is_open = 1;
    return 0;
}

void wake_notify(Wake &wake)
{
    if (!wake.is_open) {
        return;
    }
    const int saved_errno = errno;
    const char byte = 0;
    (void)!write(wake.writer, &byte, 1); // a full pipe wakes the loop as well
    errno = saved_errno;
}
