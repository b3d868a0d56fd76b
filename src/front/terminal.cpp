#include "front/terminal.h"

#include <algorithm>
#include <errno.h>
#include <iterator>
#include <signal.h>
#include <unistd.h>

namespace {

bool are_equal(const termios &a, const termios &b)
{
    return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_cflag == b.c_cflag &&
           a.c_lflag == b.c_lflag && std::equal(std::begin(a.c_cc), std::end(a.c_cc), b.c_cc);
}

} // namespace

bool is_another_jobs(int terminal)
{
    const pid_t foreground = tcgetpgrp(terminal);
    return foreground > 0 && foreground != getpgrp();
}

int set_terminal(int terminal, const termios &settings)
{
    // In the background the client is stopped here. Interrupted by a signal that ends it, it must
    // not go on to the next call, which would stop it again.
    if (tcflush(terminal, TCIFLUSH) != 0 && errno == EINTR) {
        return -1;
    }
    return tcsetattr(terminal, TCSANOW, &settings);
}

void give_terminal_back(int terminal, const termios &found, const termios &own)
{
    sigset_t stop;
    sigset_t before;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTTOU);
    sigprocmask(SIG_BLOCK, &stop, &before); // else a call from the background would stop the client
    termios now = {};                       // the system does not fill all of c_cc
    if (!is_another_jobs(terminal)) {
        (void)set_terminal(terminal, found); // a terminal that is gone needs no settings
    } else if (tcgetattr(terminal, &now) == 0 && are_equal(now, own)) {
        tcsetattr(terminal, TCSANOW, &found);
    }
    sigprocmask(SIG_SETMASK, &before, nullptr);
}
