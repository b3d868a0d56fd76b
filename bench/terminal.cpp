#include "bench/terminal.h"

#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <termios.h>

Fd open_terminal(std::string &name, Size size)
{
    Fd master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
    if (grantpt(master.get()) != 0 || unlockpt(master.get()) != 0) {
        throw std::runtime_error("no pseudo-terminal");
    }
    name = ptsname(master.get());
    const winsize window = {static_cast<unsigned short>(size.rows),
                            static_cast<unsigned short>(size.columns), 0, 0};
    ioctl(master.get(), TIOCSWINSZ, &window);
    return master;
}

void make_raw(int terminal)
{
    termios settings;
    if (tcgetattr(terminal, &settings) == 0) {
        cfmakeraw(&settings);
        tcsetattr(terminal, TCSANOW, &settings);
    }
}

// The first descriptor that a session leader opens on a terminal makes it the controlling one.
pid_t spawn_on_terminal(std::vector<std::string> command, const std::string &terminal,
                        const char *type, int output)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, terminal.c_str(), O_RDWR, 0);
    posix_spawn_file_actions_adddup2(&actions, output < 0 ? 0 : output, 1);
    posix_spawn_file_actions_adddup2(&actions, 0, 2);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);

    std::vector<char *> arguments;
    for (std::string &word : command) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    static const std::string path = std::string("PATH=") + getenv("PATH");
    const std::string term = std::string("TERM=") + type;
    const char *environment[] = {path.c_str(), "HOME=/nonexistent", "LANG=C.UTF-8",
                                 term.c_str(), "USER=bench",        nullptr};
    pid_t process = 0;
    const int result = posix_spawnp(&process, arguments[0], &actions, &attributes, arguments.data(),
                                    const_cast<char **>(environment));
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (result != 0) {
        throw std::runtime_error("cannot start " + command[0] + ": " + strerror(result));
    }
    return process;
}
