// The minimal relay: a terminal and a UNIX socket, 64 KiB at a time. What the kernel allows.
#include "connect.h"

#include <poll.h>
#include <stdio.h>
#include <termios.h>
#include <unistd.h>

namespace {

char buffer[65536];

bool pass(int from, int to)
{
    const ssize_t count = read(from, buffer, sizeof buffer);
    if (count <= 0) {
        return false;
    }
    for (ssize_t done = 0; done < count;) {
        const ssize_t written = write(to, buffer + done, static_cast<size_t>(count - done));
        if (written <= 0) {
            return false;
        }
        done += written;
    }
    return true;
}

} // namespace

int main(int argument_count, char **arguments)
{
    const int port = argument_count == 2 ? connect_to(arguments[1]) : -1;
    if (port < 0) {
        fprintf(stderr, "usage: bench-relay SOCKET\n");
        return 1;
    }
    termios settings;
    if (tcgetattr(STDIN_FILENO, &settings) == 0) {
        cfmakeraw(&settings);
        tcsetattr(STDIN_FILENO, TCSANOW, &settings);
    }
    pollfd watched[] = {{STDIN_FILENO, POLLIN, 0}, {port, POLLIN, 0}};
    while (poll(watched, 2, -1) > 0) {
        if ((watched[0].revents != 0 && !pass(STDIN_FILENO, port)) ||
            (watched[1].revents != 0 && !pass(port, STDOUT_FILENO))) {
            break;
        }
    }
    return 0;
}
