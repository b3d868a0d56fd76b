// One client of a port: its data connection, its command connection, and their hang-up in good
// order.
#pragma once

#include "sim/command_parser.h"
#include "sim/commands.h"
#include "sim/connection.h"

#include <memory>
#include <optional>

namespace sim {

class Port;

enum class Socket { Control, Command, Data };

class Client {
public:
    // The session is the port's and lasts at least as long.
    Client(Port &port, Loop &loop, pid_t process, Session &session);

    bool attach_data(Fd fd);
    bool attach_command(Fd fd);
    // True where a connection of this process may belong to this client.
    bool lacks(Socket which, pid_t process) const;

    // Hangs up after the waiting output has been read, the data connection first; with patience
    // also when the client has read nothing for so long.
    void hang_up(std::optional<milliseconds> patience);
    void drop();
    bool finished() const { return !data_ && !command_; }
    // Lets go of ended connections; called outside of their callbacks.
    void sweep();

    Session &session() { return session_; }
    Connection *data() { return data_.get(); }
    Connection *command() { return command_.get(); }

private:
    void answer_waiting();
    void check_patience();

    Port &port_;
    Loop &loop_;
    pid_t process_;
    Session &session_;
    std::unique_ptr<Connection> data_;
    std::unique_ptr<Connection> command_;
    CommandParser parser_;
    bool had_data_ = false;
    bool had_command_ = false;
    bool leaving_ = false;
    Clock::time_point leaving_since_;
    milliseconds patience_{0};
    Timer patience_timer_;
};

} // namespace sim
