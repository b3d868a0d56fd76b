// One accepted connection of a client: bytes that wait for it, and a hang-up in good order.
#pragma once

#include "sim/byte_queue.h"
#include "sim/fd.h"
#include "sim/loop.h"

#include <string_view>

namespace sim {

// A hang-up first sends what waits and then ends the connection so that the peer sees an end of
// file, not an error.
class Connection {
public:
    struct Owner {
        std::function<bool()> wants_input;
        // Bytes arrived; empty: the peer sends no more.
        std::function<void(std::string_view)> on_input;
        // Of what waited some was taken.
        std::function<void()> on_taken;
    };

    Connection(Fd fd, Owner owner) : fd_(std::move(fd)), owner_(std::move(owner)) {}

    bool start(Loop &loop);
    bool closed() const { return !fd_; }
    bool peer_gone() const { return peer_gone_ || closed(); }
    bool hanging_up() const { return hanging_up_ || closed(); }
    bool input_ended() const { return input_ended_; }
    // Whether it is in use: neither side has begun to leave.
    bool takes_output() const { return !peer_gone() && !hanging_up(); }
    size_t waiting() const { return out_.size(); }
    Clock::time_point last_progress() const { return last_progress_; }
    void send(std::string_view bytes);
    void hang_up();
    // Drops what waits.
    void close_now();
    // To be called when wants_input may have changed.
    void update_events();

private:
    void on_event(uint32_t events);
    void read_input(bool peer_gone);
    void flush();

    Fd fd_;
    Owner owner_;
    Watch watch_;
    ByteQueue out_;
    bool input_ended_ = false;
    bool hanging_up_ = false;
    bool peer_gone_ = false; // but there may be input of it that has not been read
    Clock::time_point last_progress_ = Clock::now();
};

} // namespace sim
