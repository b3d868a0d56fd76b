// The event loop: descriptors watched through epoll, and timers. One thread.
#pragma once

#include "sim/fd.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <unordered_map>
#include <vector>

namespace sim {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

class Watch;
class Timer;

class Loop {
public:
    Loop();
    Loop(const Loop &) = delete;
    Loop &operator=(const Loop &) = delete;

    void run();
    void stop() { stopped_ = true; }

    // Called after every batch of events. What callbacks have marked as finished is destroyed
    // there, since a callback may not destroy the watch or timer that called it.
    std::function<void()> after_turn;

private:
    friend class Watch;
    friend class Timer;

    int wait_milliseconds() const;
    void run_timers();

    Fd epoll_;
    std::unordered_map<uint64_t, Watch *> watches_;
    std::vector<Timer *> timers_;
    uint64_t next_id_ = 1;
    bool stopped_ = false;
};

// A watched descriptor, which it does not own and which must stay open for longer than the watch.
class Watch {
public:
    Watch() = default;
    Watch(const Watch &) = delete;
    Watch &operator=(const Watch &) = delete;
    ~Watch() { stop(); }

    // Events as in epoll; hang-up and error are always reported. False with errno set.
    bool start(Loop &loop, int fd, uint32_t events, std::function<void(uint32_t)> callback);
    // 0 takes the descriptor out of the watch, so that not even a hang-up is reported.
    void set_events(uint32_t events);
    void stop();

private:
    friend class Loop;

    Loop *loop_ = nullptr;
    uint64_t id_ = 0;
    int fd_ = -1;
    uint32_t events_ = 0;
    std::function<void(uint32_t)> callback_;
};

// A one-shot timer, which its callback may start again.
class Timer {
public:
    Timer(Loop &loop, std::function<void()> callback) : loop_(loop), callback_(std::move(callback))
    {
    }
    Timer(const Timer &) = delete;
    Timer &operator=(const Timer &) = delete;
    ~Timer() { stop(); }

    void start(milliseconds delay);
    void stop();

private:
    friend class Loop;

    Loop &loop_;
    std::function<void()> callback_;
    Clock::time_point due_;
    bool running_ = false;
};

} // namespace sim
