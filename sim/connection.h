// What the two connections of a client have in common: bytes that wait in either direction, and a
// hang-up in good order.
#pragma once

#include "sim/byte_queue.h"
#include "sim/fd.h"
#include "sim/loop.h"

#include <string_view>

namespace sim {

class Client;

// What one write is given at most.
constexpr size_t WRITE_SIZE = 256 << 10;

// A hang-up first sends what waits and then ends the connection so that the peer sees an end of
// file, not an error.
class Connection {
public:
    Connection(Client &client, Fd fd) : client_(client), fd_(std::move(fd)) {}
    virtual ~Connection() = default;

    bool start();
    bool closed() const { return !fd_; }
    bool peer_gone() const { return peer_gone_ || closed(); }
    bool hanging_up() const { return hanging_up_ || closed(); }
    size_t waiting() const { return out_.size(); }
    Clock::time_point last_progress() const { return last_progress_; }
    void send(std::string_view bytes);
    void hang_up();
    // Drops what waits.
    void close_now();
    void update_events();

protected:
    void flush();
    virtual bool wants_input() const = 0;
    virtual bool wants_output() const { return !out_.empty(); }
    // Bytes arrived; empty: the peer sends no more.
    virtual void on_input(std::string_view bytes) = 0;
    virtual void on_progress() {}
    // Nothing waits any more.
    virtual void on_flushed() = 0;
    virtual bool may_end() const { return true; }

    Client &client_;
    Fd fd_;
    Watch watch_;
    ByteQueue out_;
    bool input_ended_ = false;
    bool hanging_up_ = false;
    bool peer_gone_ = false; // but there may be input of it that has not been read
    Clock::time_point last_progress_ = Clock::now();

private:
    void on_event(uint32_t events);
    void read_input(bool peer_gone);
};

} // namespace sim
