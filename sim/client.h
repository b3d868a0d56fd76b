// One client of a port: its data connection, its command connection, and their hang-up in good
// order.
#pragma once

#include "sim/command_parser.h"
#include "sim/commands.h"
#include "sim/connection.h"
#include "sim/fault.h"

#include <memory>
#include <optional>

namespace sim {

class Port;

class DataConnection : public Connection {
public:
    using Connection::Connection;

    bool takes_output() const { return !peer_gone() && !hanging_up(); }

private:
    bool wants_input() const override;
    bool wants_output() const override { return !out_.empty() || source_waits(); }
    void on_input(std::string_view bytes) override;
    void on_progress() override;
    void on_flushed() override;
    bool source_waits() const;

    size_t source_position_ = 0;
    uint64_t source_rounds_ = 0;
};

class CommandConnection : public Connection {
public:
    CommandConnection(Client &client, Fd fd);

private:
    bool wants_input() const override;
    void on_input(std::string_view bytes) override;
    void on_flushed() override;
    bool may_end() const override { return pieces_.empty(); }
    void answer_waiting();
    void write_pieces();

    CommandParser parser_;
    ReplyPlan plan_;
    std::deque<Piece> pieces_;
    bool piece_delayed_ = false; // the first piece's time has been waited for
    Timer piece_timer_;
};

class Client {
public:
    // The session is the port's and lasts at least as long.
    Client(Port &port, Loop &loop, pid_t process, Session &session);
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    bool attach_data(Fd fd);
    bool attach_command(Fd fd);
    // True where a connection of this process may belong to this client.
    bool lacks(Sockets which, pid_t process) const;

    // Hangs up after the waiting output has been read, the data connection first; with patience
    // also when the client has read nothing for so long.
    void hang_up(std::optional<milliseconds> patience);
    void hang_up(Sockets which);
    void drop();
    bool leaving() const { return leaving_; }
    bool finished() const { return !data_ && !command_; }
    // Lets go of ended connections; called outside of their callbacks.
    void sweep();

    Port &port() { return port_; }
    Loop &loop() { return loop_; }
    Session &session() { return session_; }
    DataConnection *data() { return data_.get(); }
    CommandConnection *command() { return command_.get(); }

private:
    // Starts the time to a hang-up once the sockets that it ends are there.
    void plan_hang_up();
    void check_patience();

    Port &port_;
    Loop &loop_;
    pid_t process_;
    Session &session_;
    std::unique_ptr<DataConnection> data_;
    std::unique_ptr<CommandConnection> command_;
    bool had_data_ = false;
    bool had_command_ = false;
    bool leaving_ = false;
    Clock::time_point leaving_since_;
    milliseconds patience_{0};
    Timer patience_timer_;
    Timer fault_timer_;
};

} // namespace sim
