#include "sim/connection.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>

namespace sim {
namespace {

constexpr size_t READ_SIZE = 64 << 10;
// What one write is given at most.
constexpr size_t WRITE_SIZE = 256 << 10;

std::array<char, READ_SIZE> read_buffer;

} // namespace

bool Connection::start(Loop &loop)
{
    if (!watch_.start(loop, fd_.get(), EPOLLHUP, [this](uint32_t events) { on_event(events); })) {
        return false;
    }
    update_events();
    return true;
}

void Connection::on_event(uint32_t events)
{
    if (!closed() && (events & EPOLLOUT) != 0) {
        flush();
    }
    if (!closed() && (events & (EPOLLIN | EPOLLHUP | EPOLLERR)) != 0) {
        read_input((events & (EPOLLHUP | EPOLLERR)) != 0);
    }
    if (!closed()) {
        update_events();
    }
}

void Connection::read_input(bool peer_gone)
{
    if (peer_gone) {
        peer_gone_ = true;
        out_.clear();
        if (hanging_up_) {
            close_now();
            return;
        }
    }
    if (input_ended_ && peer_gone_) {
        close_now();
    }
    if (input_ended_ || !owner_.wants_input()) {
        return;
    }
    ssize_t count = recv(fd_.get(), read_buffer.data(), read_buffer.size(), 0);
    if (count > 0) {
        owner_.on_input({read_buffer.data(), static_cast<size_t>(count)});
        return;
    }
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
        return;
    }
    input_ended_ = true;
    if (peer_gone_ || count < 0) {
        close_now();
    } else {
        owner_.on_input({});
    }
}

void Connection::update_events()
{
    if (closed()) {
        return;
    }
    bool input = !input_ended_ && !hanging_up_ && owner_.wants_input();
    bool output = !peer_gone_ && !out_.empty();
    // Hang-ups of a peer that is known to be gone would be reported without end.
    uint32_t events = peer_gone_ ? 0u : static_cast<uint32_t>(EPOLLHUP);
    watch_.set_events(events | (input ? EPOLLIN : 0u) | (output ? EPOLLOUT : 0u));
}

void Connection::send(std::string_view bytes)
{
    if (closed() || peer_gone_) {
        return;
    }
    bool idle = out_.empty();
    if (idle) {
        ssize_t count = ::send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count > 0) {
            bytes.remove_prefix(static_cast<size_t>(count));
            last_progress_ = Clock::now();
        }
    }
    if (bytes.empty()) {
        return;
    }
    out_.append(bytes);
    if (idle) {
        update_events();
    }
}

void Connection::flush()
{
    while (!out_.empty()) {
        auto bytes = out_.front().substr(0, WRITE_SIZE);
        ssize_t count = ::send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count < 0) {
            // A peer that is gone is reported as a hang-up.
            if (errno != EAGAIN && errno != EINTR) {
                out_.clear();
            }
            break;
        }
        last_progress_ = Clock::now();
        out_.consume(static_cast<size_t>(count));
    }
    owner_.on_taken();
    if (!closed() && hanging_up_ && out_.empty()) {
        close_now();
    }
}

void Connection::hang_up()
{
    if (closed()) {
        return;
    }
    hanging_up_ = true;
    if (peer_gone_ || out_.empty()) {
        close_now();
    } else {
        update_events();
    }
}

void Connection::close_now()
{
    if (closed()) {
        return;
    }
    // With input left unread the peer would get a connection reset in place of the end of file.
    shutdown(fd_.get(), SHUT_RDWR);
    while (recv(fd_.get(), read_buffer.data(), read_buffer.size(), 0) > 0) {
    }
    watch_.stop();
    fd_.reset();
    out_.clear();
}

} // namespace sim
