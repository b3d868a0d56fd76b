// The one way in of the programs here.
#pragma once

#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>

// A connection to the UNIX socket, or -1.
inline int connect_to(const char *path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    return connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 ? fd : -1;
}
