// Connected sockets.
#pragma once

#define USOCK_UNIX 0x8000

// Connects to the UNIX-domain stream socket at path `host` and returns the descriptor, which is
// blocking and close-on-exec; -1 with errno on failure, EINTR included. USOCK_UNIX is the only type
// (others: EINVAL), `service` is not used.
int usock(int type, const char *host, const char *service);
