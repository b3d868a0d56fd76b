#include "sim/client.h"

#include "sim/port.h"

#include <sys/socket.h>

#include <algorithm>

namespace sim {
namespace {

// Requests wait unread while so many bytes of replies do.
constexpr size_t MAXIMUM_REPLIES = 1 << 20;

} // namespace

bool DataConnection::wants_input() const
{
    return !client_.port().input_blocked();
}

bool DataConnection::source_waits() const
{
    const Source *source = client_.port().source();
    return source != nullptr && !hanging_up_ && !source->ended(source_rounds_);
}

void DataConnection::on_input(std::string_view bytes)
{
    if (!bytes.empty()) {
        client_.port().from_client(bytes);
    }
}

void DataConnection::on_progress()
{
    client_.port().output_moved();
}

void DataConnection::on_flushed()
{
    // A source is faster than any reader: the other clients have their turn in between.
    constexpr int writes_in_a_turn = 16;
    const Source *source = client_.port().source();
    for (int i = 0; i < writes_in_a_turn && source_waits(); i++) {
        auto bytes = source->bytes().substr(source_position_, WRITE_SIZE);
        ssize_t count = ::send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count < 0) {
            return;
        }
        last_progress_ = Clock::now();
        source_position_ += static_cast<size_t>(count);
        client_.port().count_output(static_cast<size_t>(count));
        if (source_position_ == source->bytes().size()) {
            source_position_ = 0;
            source_rounds_++;
            if (source->ended(source_rounds_)) {
                client_.port().source_sent(client_);
            }
        }
    }
}

CommandConnection::CommandConnection(Client &client, Fd fd)
    : Connection(client, std::move(fd)), piece_timer_(client.loop(), [this] {
          piece_delayed_ = true;
          write_pieces();
          answer_waiting();
          update_events();
      })
{
}

bool CommandConnection::wants_input() const
{
    return !parser_.has_waiting() && out_.size() < MAXIMUM_REPLIES && pieces_.empty();
}

void CommandConnection::on_input(std::string_view bytes)
{
    parser_.push(bytes);
    answer_waiting();
}

void CommandConnection::on_flushed()
{
    answer_waiting();
}

void CommandConnection::answer_waiting()
{
    Json request;
    while (!hanging_up() && pieces_.empty() && out_.size() < MAXIMUM_REPLIES &&
           parser_.next(request)) {
        std::string reply = client_.port().answer_request(client_, request.get());
        plan_.add(client_.port().faults(), command_name(request.get()), std::move(reply), pieces_);
        write_pieces();
    }
    // A peer that only listens any more has its answers now.
    if (input_ended_ && !hanging_up() && pieces_.empty() && !parser_.has_waiting()) {
        hang_up();
    }
}

void CommandConnection::write_pieces()
{
    while (!closed() && !pieces_.empty()) {
        if (pieces_.front().delay > 0 && !piece_delayed_) {
            piece_timer_.start(milliseconds(pieces_.front().delay));
            return;
        }
        piece_delayed_ = false;
        Piece piece = std::move(pieces_.front());
        pieces_.pop_front();
        send(piece.bytes);
        if (piece.hang_up != Sockets::None) {
            client_.hang_up(piece.hang_up);
        }
    }
    if (!closed() && hanging_up_ && out_.empty()) {
        close_now();
    }
}

Client::Client(Port &port, Loop &loop, pid_t process, Session &session)
    : port_(port), loop_(loop), process_(process), session_(session),
      patience_timer_(loop, [this] { check_patience(); }),
      fault_timer_(loop, [this] { hang_up(port_.faults().hang_up); })
{
}

bool Client::lacks(Sockets which, pid_t process) const
{
    return process == process_ && !leaving_ && !(which == Sockets::Data ? had_data_ : had_command_);
}

void Client::plan_hang_up()
{
    const Faults &faults = port_.faults();
    const bool wants_data = faults.hang_up != Sockets::Command;
    const bool wants_command = faults.hang_up != Sockets::Data;
    if (faults.hang_up != Sockets::None && faults.hang_up_command == 0 &&
        (had_data_ || !wants_data) && (had_command_ || !wants_command)) {
        fault_timer_.start(milliseconds(faults.hang_up_after));
    }
}

bool Client::attach_data(Fd fd)
{
    data_ = std::make_unique<DataConnection>(*this, std::move(fd));
    had_data_ = true;
    session_.attached = true;
    plan_hang_up();
    return data_->start();
}

bool Client::attach_command(Fd fd)
{
    command_ = std::make_unique<CommandConnection>(*this, std::move(fd));
    had_command_ = true;
    plan_hang_up();
    return command_->start();
}

void Client::hang_up(std::optional<milliseconds> patience)
{
    leaving_ = true;
    session_.leaving = true;
    if (data_) {
        data_->hang_up();
    } else if (command_) {
        command_->hang_up();
    }
    if (patience) {
        patience_ = *patience;
        leaving_since_ = Clock::now();
        patience_timer_.start(patience_);
    }
}

void Client::hang_up(Sockets which)
{
    if (data_ && (which == Sockets::Data || which == Sockets::Both)) {
        data_->hang_up();
    }
    if (command_ && (which == Sockets::Command || which == Sockets::Both)) {
        command_->hang_up();
    }
}

void Client::check_patience()
{
    auto since = leaving_since_;
    for (Connection *connection :
         {static_cast<Connection *>(data_.get()), static_cast<Connection *>(command_.get())}) {
        if (connection != nullptr) {
            since = std::max(since, connection->last_progress());
        }
    }
    auto left = since + patience_ - Clock::now();
    if (left > Clock::duration::zero()) {
        patience_timer_.start(std::chrono::ceil<milliseconds>(left));
    } else {
        drop();
    }
}

void Client::drop()
{
    leaving_ = true;
    session_.leaving = true;
    if (data_) {
        data_->close_now();
    }
    if (command_) {
        command_->close_now();
    }
}

void Client::sweep()
{
    if (data_ && data_->peer_gone()) {
        session_.attached = false;
    }
    if (data_ && data_->closed()) {
        session_.attached = false;
        data_.reset();
        if (leaving_ && command_) {
            command_->hang_up();
        }
    }
    if (command_ && command_->closed()) {
        command_.reset();
    }
}

} // namespace sim
