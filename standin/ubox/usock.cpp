#include "dep/ubox.h"

#include <sys/socket.h>
#include <sys/un.h>

int usock(int type, const char *host, const char *)
{
    sockaddr_un address{};
    if (type != USOCK_UNIX || strlen(host) >= sizeof address.sun_path) {
        errno = EINVAL;
        return -1;
    }
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, host, strlen(host) + 1);

    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return -1;
    }
    // Not tried again after EINTR: a SIGTERM must be able to end the wait for a daemon that does
    // not accept.
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) < 0) {
        const int reason = errno;
        close(fd);
        errno = reason;
        return -1;
    }
    return fd;
}
