// The whole simulator: its ports, its signals and its end.
#pragma once

#include "sim/port.h"

namespace sim {

class Daemon {
public:
    explicit Daemon(const Options &options) : options_(options) {}
    ~Daemon();

    // Opens every port. False with a sentence in error.
    bool open(std::string &error);
    // Serves until a signal.
    void run();

private:
    bool watch_signals();
    void on_signal();
    void reap();

    Options options_;
    Loop loop_;
    Fd signals_;
    Watch signal_watch_;
    std::vector<std::unique_ptr<Port>> ports_;
    bool shutting_down_ = false;
};

} // namespace sim
