// The bytes between a port's device and its clients.
#include "sim/port.h"

#include <sys/epoll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>

namespace sim {
namespace {

constexpr size_t READ_SIZE = 64 << 10;
// The device rests while even the fastest client has more than this to read.
constexpr size_t HIGH_WATER = 64 << 10;
// How far a client that does not read may fall behind another one before it is disconnected.
constexpr size_t CLIENT_BUFFER = 8 << 20;
// A client past its buffer counts as reading when it did so within this time.
constexpr milliseconds READING_PATIENCE{500};
constexpr milliseconds LAG_CHECK{100};
constexpr milliseconds END_CHECK{200};

std::array<char, READ_SIZE> read_buffer;

} // namespace

bool Port::open_device(std::string &error)
{
    std::unique_ptr<Device> device;
    if (options_.kind == PortKind::Program) {
        device = start_program(options_, options_.size, error);
    } else if (options_.kind == PortKind::Serial) {
        device = open_serial(options_, error);
    } else {
        device = open_loop_back(error);
    }
    if (!device) {
        return false;
    }
    device_ = std::move(device);
    program_over_ = false;
    paused_ = false;
    if (!output_watch_.start(loop_, device_->output.get(), EPOLLIN,
                             [this](uint32_t) { read_device(); }) ||
        !input_watch_.start(loop_, device_->input.get(), 0, [this](uint32_t) { write_device(); })) {
        error = "cannot watch the device";
        close_device();
        return false;
    }
    if (options_.kind == PortKind::Serial) {
        poll_signals();
    }
    return true;
}

void Port::close_device()
{
    output_watch_.stop();
    input_watch_.stop();
    lag_timer_.stop();
    end_timer_.stop();
    break_timer_.stop();
    signal_timer_.stop();
    device_.reset();
    input_queue_.clear();
    update_clients();
}

void Port::update_clients()
{
    for (auto &client : clients_) {
        if (client->data() != nullptr) {
            client->data()->update_events();
        }
    }
}

void Port::device_ended()
{
    if (options_.kind == PortKind::Serial) {
        fprintf(stderr, "zorvad-sim: port %s: %s is gone\n", options_.key.c_str(),
                options_.target.c_str());
    }
    close_device();
    for (auto &client : clients_) {
        client->hang_up(std::nullopt);
    }
}

void Port::program_ended(pid_t process)
{
    if (device_ == nullptr || device_->program != process) {
        return;
    }
    // Its last output may still be on its way through the pty; the end of file that follows does
    // not come as long as a process that it left behind keeps the terminal.
    device_->program = -1;
    program_over_ = true;
    output_at_check_ = counts_.output;
    end_timer_.start(END_CHECK);
}

void Port::check_program_end()
{
    if (!paused_ && output_at_check_ == counts_.output) {
        device_ended();
        return;
    }
    output_at_check_ = counts_.output;
    end_timer_.start(END_CHECK);
}

void Port::read_device()
{
    size_t filled = 0;
    bool ended = false;
    while (filled < read_buffer.size()) {
        ssize_t count =
            read(device_->output.get(), read_buffer.data() + filled, read_buffer.size() - filled);
        if (count > 0) {
            filled += static_cast<size_t>(count);
            continue;
        }
        ended = count == 0 || (errno != EAGAIN && errno != EINTR);
        break;
    }
    if (filled > 0) {
        deliver({read_buffer.data(), filled});
    }
    if (ended) {
        device_ended();
    }
}

void Port::deliver(std::string_view bytes)
{
    counts_.output += bytes.size();
    state_.history.received(bytes, now_milliseconds());
    bool waiting = false;
    for (auto &client : clients_) {
        Connection *data = client->data();
        if (data == nullptr || !data->takes_output()) {
            continue;
        }
        data->send(bytes);
        waiting = waiting || data->waiting() > 0;
    }
    if (waiting) {
        update_flow();
    }
}

bool Port::must_pause()
{
    size_t least = SIZE_MAX;
    for (auto &client : clients_) {
        if (client->data() != nullptr && client->data()->takes_output()) {
            least = std::min(least, client->data()->waiting());
        }
    }
    if (least == SIZE_MAX || least > HIGH_WATER) {
        return least != SIZE_MAX;
    }

    bool lagging = false;
    for (auto &client : clients_) {
        Connection *data = client->data();
        if (data == nullptr || !data->takes_output() || data->waiting() <= CLIENT_BUFFER ||
            data->waiting() == least) {
            continue;
        }
        if (Clock::now() - data->last_progress() < READING_PATIENCE) {
            lagging = true;
            continue;
        }
        counts_.dropped++;
        state_.history.event(LineType::Kick,
                             client->session().display_name() + " disconnected for not reading",
                             now_milliseconds());
        client->drop();
    }
    if (lagging) {
        lag_timer_.start(LAG_CHECK);
    }
    return lagging;
}

void Port::update_flow()
{
    if (device_ == nullptr) {
        return;
    }
    paused_ = must_pause();
    output_watch_.set_events(paused_ ? 0u : static_cast<uint32_t>(EPOLLIN));
}

void Port::output_moved()
{
    if (paused_) {
        update_flow();
    }
}

void Port::from_client(std::string_view bytes)
{
    counts_.input += bytes.size();
    state_.history.sent(bytes, now_milliseconds());
    if (device_ == nullptr) {
        return;
    }
    input_queue_.append(bytes);
    write_device();
}

void Port::write_device()
{
    bool blocked = false;
    while (!input_queue_.empty() && !blocked) {
        auto bytes = input_queue_.front();
        ssize_t count = write(device_->input.get(), bytes.data(), bytes.size());
        if (count > 0) {
            input_queue_.consume(static_cast<size_t>(count));
        } else if (errno == EAGAIN) {
            blocked = true;
        } else if (errno != EINTR) {
            input_queue_.clear(); // nobody is left to read it
        }
    }
    input_watch_.set_events(blocked ? EPOLLOUT : 0u);
    update_clients();
}

} // namespace sim
