// A shell of the tests' own, for what a client meets that can be stopped.
#pragma once

#include "support/program.h"

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace support {

// Stands for a shell with job control, the client being its only job: it takes the terminal when
// the client stops. SIGUSR1 is its fg, SIGUSR2 its bg.
struct Shell {
    struct Shared {
        std::atomic<pid_t> job;
        std::atomic<int> stops, turns; // how often it stopped, and got the terminal or not
    };
    bool foreground = true; // what the job starts in
    bool takes_terminal = true;
    // Whether it reads its command lines as readline does, with settings of its own.
    bool reads_lines = false;
    bool blocks = false; // whether it does so without O_NONBLOCK, up to the last key
    Shared *shared = static_cast<Shared *>(
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ~Shell() { munmap(shared, sizeof(Shared)); }

    // For Launch::before_exec: returns in the job alone.
    void run() const
    {
        sigset_t signals, before;
        sigemptyset(&signals);
        for (const int number : {SIGCHLD, SIGUSR1, SIGUSR2}) {
            sigaddset(&signals, number);
        }
        sigprocmask(SIG_BLOCK, &signals, &before);
        const pid_t job = fork();
        setpgid(job, job);
        if (job == 0) {
            while (foreground && tcgetpgrp(0) != getpgrp()) {
                usleep(1000);
            }
            sigprocmask(SIG_SETMASK, &before, nullptr);
            return;
        }
        ::signal(SIGTTOU, SIG_IGN);
        if (foreground) {
            tcsetpgrp(0, job);
        }
        shared->job = job;
        for (int number = 0, status = 0; sigwait(&signals, &number) == 0;) {
            if (number != SIGCHLD) {
                if (blocks && number == SIGUSR1) {
                    tcflush(0, TCIFLUSH);
                }
                tcsetpgrp(0, number == SIGUSR1 ? job : getpgrp());
                kill(-job, SIGCONT);
                ++shared->turns;
            } else if (waitpid(job, &status, WNOHANG | WUNTRACED) == job) {
                if (!WIFSTOPPED(status)) {
                    _exit(WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status));
                }
                if (takes_terminal) {
                    tcsetpgrp(0, getpgrp());
                    read_lines();
                }
                ++shared->stops;
            }
        }
    }
    void read_lines() const
    {
        termios settings{};
        if (reads_lines && tcgetattr(0, &settings) == 0) {
            settings.c_lflag = (settings.c_lflag & ~tcflag_t(ICANON | ECHO)) | ISIG;
            settings.c_oflag |= OPOST | ONLCR;
            settings.c_cc[VMIN] = 1;
            settings.c_cc[VTIME] = 0;
            tcsetattr(0, TCSADRAIN, &settings);
        }
        if (blocks) {
            fcntl(0, F_SETFL, O_RDWR);
        }
    }
    void signal_job(int number) const { kill(shared->job, number); }
    void wait_for_stops(Program &client, int count) const
    {
        client.wait_until([&] { return shared->stops == count; }, "the client to stop");
    }
};

} // namespace support
