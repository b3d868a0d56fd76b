#include "sim/loop.h"

#include <sys/epoll.h>

#include <algorithm>
#include <array>

namespace sim {

Loop::Loop() : epoll_(epoll_create1(EPOLL_CLOEXEC)) {}

int Loop::wait_milliseconds() const
{
    if (timers_.empty()) {
        return -1;
    }
    auto first = std::ranges::min(timers_, {}, &Timer::due_);
    auto left = std::chrono::ceil<milliseconds>(first->due_ - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, 60'000));
}

void Loop::run_timers()
{
    auto now = Clock::now();
    // A timer that is started again inside its own callback waits for the next turn.
    for (;;) {
        auto due = std::ranges::find_if(timers_, [&](Timer *timer) { return timer->due_ <= now; });
        if (due == timers_.end()) {
            return;
        }
        Timer *timer = *due;
        timer->stop();
        timer->callback_();
    }
}

void Loop::run()
{
    stopped_ = false;
    while (!stopped_) {
        std::array<epoll_event, 64> ready;
        int count = epoll_wait(epoll_.get(), ready.data(), static_cast<int>(ready.size()),
                               wait_milliseconds());
        for (int i = 0; i < count; i++) {
            auto &event = ready[static_cast<size_t>(i)];
            auto found = watches_.find(event.data.u64);
            if (found == watches_.end()) {
                continue;
            }
            Watch &watch = *found->second;
            uint32_t events = event.events & (watch.events_ | EPOLLHUP | EPOLLERR);
            if (watch.events_ != 0 && events != 0) {
                watch.callback_(events);
            }
        }
        run_timers();
        if (after_turn) {
            after_turn();
        }
    }
}

bool Watch::start(Loop &loop, int fd, uint32_t events, std::function<void(uint32_t)> callback)
{
    stop();
    epoll_event event{};
    event.events = events;
    event.data.u64 = loop.next_id_;
    if (events != 0 && epoll_ctl(loop.epoll_.get(), EPOLL_CTL_ADD, fd, &event) < 0) {
        return false;
    }
    loop_ = &loop;
    id_ = loop.next_id_++;
    fd_ = fd;
    events_ = events;
    callback_ = std::move(callback);
    loop.watches_[id_] = this;
    return true;
}

void Watch::set_events(uint32_t events)
{
    if (loop_ == nullptr || events == events_) {
        return;
    }
    int operation = EPOLL_CTL_MOD;
    if (events == 0) {
        operation = EPOLL_CTL_DEL;
    } else if (events_ == 0) {
        operation = EPOLL_CTL_ADD;
    }
    epoll_event event{};
    event.events = events;
    event.data.u64 = id_;
    epoll_ctl(loop_->epoll_.get(), operation, fd_, &event);
    events_ = events;
}

void Watch::stop()
{
    if (loop_ == nullptr) {
        return;
    }
    set_events(0);
    loop_->watches_.erase(id_);
    loop_ = nullptr;
}

void Timer::start(milliseconds delay)
{
    due_ = Clock::now() + delay;
    if (!running_) {
        loop_.timers_.push_back(this);
    }
    running_ = true;
}

void Timer::stop()
{
    if (running_) {
        std::erase(loop_.timers_, this);
    }
    running_ = false;
}

} // namespace sim
