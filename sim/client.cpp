#include "sim/client.h"

#include "sim/port.h"

#include <algorithm>

namespace sim {
namespace {

// Requests wait unread while so many bytes of replies do.
constexpr size_t MAXIMUM_REPLIES = 1 << 20;

} // namespace

Client::Client(Port &port, Loop &loop, pid_t process, Session &session)
    : port_(port), loop_(loop), process_(process), session_(session),
      patience_timer_(loop, [this] { check_patience(); })
{
}

bool Client::lacks(Socket which, pid_t process) const
{
    return process == process_ && !leaving_ && !(which == Socket::Data ? had_data_ : had_command_);
}

bool Client::attach_data(Fd fd)
{
    Connection::Owner owner;
    owner.wants_input = [this] { return !port_.input_blocked(); };
    owner.on_input = [this](std::string_view bytes) { port_.from_client(bytes); };
    owner.on_taken = [this] { port_.output_moved(); };
    data_ = std::make_unique<Connection>(std::move(fd), std::move(owner));
    had_data_ = true;
    session_.attached = true;
    return data_->start(loop_);
}

bool Client::attach_command(Fd fd)
{
    Connection::Owner owner;
    owner.wants_input = [this] {
        return !parser_.has_waiting() && command_->waiting() < MAXIMUM_REPLIES;
    };
    owner.on_input = [this](std::string_view bytes) {
        parser_.push(bytes);
        answer_waiting();
    };
    owner.on_taken = [this] { answer_waiting(); };
    command_ = std::make_unique<Connection>(std::move(fd), std::move(owner));
    had_command_ = true;
    return command_->start(loop_);
}

void Client::answer_waiting()
{
    Json request;
    while (!command_->hanging_up() && command_->waiting() < MAXIMUM_REPLIES &&
           parser_.next(request)) {
        command_->send(port_.answer_request(*this, request.get()));
    }
    // A peer that only listens any more has its answers now.
    if (command_->input_ended() && !command_->hanging_up() && !parser_.has_waiting()) {
        command_->hang_up();
    }
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

void Client::check_patience()
{
    auto since = leaving_since_;
    for (Connection *connection : {data_.get(), command_.get()}) {
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
    for (Connection *connection : {data_.get(), command_.get()}) {
        if (connection != nullptr) {
            connection->close_now();
        }
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
