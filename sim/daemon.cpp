#include "sim/daemon.h"

#include <signal.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <sys/wait.h>

#include <algorithm>

namespace sim {

Daemon::~Daemon()
{
    // In reverse, since a port may have made directories that those after it use.
    while (!ports_.empty()) {
        ports_.pop_back();
    }
}

bool Daemon::watch_signals()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGCHLD);
    for (int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action;
        // What nohup and the like have set stays so.
        if (sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) {
            sigaddset(&set, number);
        }
    }
    signal(SIGPIPE, SIG_IGN);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    signals_.reset(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    return signals_ &&
           signal_watch_.start(loop_, signals_.get(), EPOLLIN, [this](uint32_t) { on_signal(); });
}

bool Daemon::open(std::string &error)
{
    if (!watch_signals()) {
        error = "cannot set up the event loop";
        return false;
    }
    for (const PortOptions &port : options_.ports) {
        ports_.push_back(std::make_unique<Port>(loop_, options_, port));
        if (!ports_.back()->open(error)) {
            error = "port " + port.key + ": " + error;
            return false;
        }
    }
    return true;
}

void Daemon::run()
{
    loop_.after_turn = [this] {
        for (auto &port : ports_) {
            port->sweep();
        }
        if (shutting_down_ && std::ranges::all_of(ports_, &Port::idle)) {
            loop_.stop();
        }
    };
    loop_.run();
}

void Daemon::on_signal()
{
    signalfd_siginfo info;
    while (read(signals_.get(), &info, sizeof info) == sizeof info) {
        if (info.ssi_signo == SIGCHLD) {
            reap();
        } else if (shutting_down_) {
            loop_.stop();
        } else {
            shutting_down_ = true;
            for (auto &port : ports_) {
                port->shut_down();
            }
        }
    }
}

void Daemon::reap()
{
    pid_t process;
    while ((process = waitpid(-1, nullptr, WNOHANG)) > 0) {
        for (auto &port : ports_) {
            port->program_ended(process);
        }
    }
}

} // namespace sim
