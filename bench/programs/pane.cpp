// What runs inside a terminal multiplexer under test: hands its terminal to the benchmark, which
// then is the port itself, with no relay in between to slow the multiplexer down.
#include "connect.h"

#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

namespace {

// The message is the id of the parent, the multiplexer's server.
bool hand_over(int control, int terminal)
{
    pid_t parent = getppid();
    iovec text = {&parent, sizeof parent};
    alignas(cmsghdr) char space[CMSG_SPACE(sizeof terminal)] = {};
    msghdr message{};
    message.msg_iov = &text;
    message.msg_iovlen = 1;
    message.msg_control = space;
    message.msg_controllen = sizeof space;
    cmsghdr *header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof terminal);
    memcpy(CMSG_DATA(header), &terminal, sizeof terminal);
    return sendmsg(control, &message, 0) > 0;
}

} // namespace

int main(int argument_count, char **arguments)
{
    const int control = argument_count == 2 ? connect_to(arguments[1]) : -1;
    termios settings;
    if (control < 0 || tcgetattr(STDIN_FILENO, &settings) != 0) {
        fprintf(stderr, "usage: bench-pane SOCKET (on a terminal)\n");
        return 1;
    }
    cfmakeraw(&settings);
    tcsetattr(STDIN_FILENO, TCSANOW, &settings);
    char byte;
    // Until the benchmark closes its end.
    return hand_over(control, STDIN_FILENO) && read(control, &byte, 1) == 0 ? 0 : 1;
}
