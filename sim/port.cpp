#include "sim/port.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace sim {
namespace {

// How long a client that reads nothing may hold up its end.
constexpr milliseconds PATIENCE{2000};
constexpr milliseconds ACCEPT_RETRY{100};
constexpr milliseconds SIGNAL_INTERVAL{200};
constexpr milliseconds BREAK_LENGTH{250};

pid_t peer_process(int fd)
{
    ucred credentials{};
    socklen_t size = sizeof credentials;
    getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size);
    return credentials.pid;
}

} // namespace

Port::Port(Loop &loop, const Options &options, const PortOptions &port_options)
    : loop_(loop), program_options_(options), options_(port_options), state_(port_options.history),
      accept_timer_(loop,
                    [this] {
                        for (Listener &listener : listeners_) {
                            listener.watch.set_events(EPOLLIN);
                        }
                    }),
      lag_timer_(loop, [this] { update_flow(); }),
      end_timer_(loop, [this] { check_program_end(); }),
      break_timer_(loop, [this] { set_break(*device_, false); }),
      signal_timer_(loop, [this] { poll_signals(); })
{
    state_.label = options_.label.empty() ? options_.key : options_.label;
    state_.info = device_info(options_, options_.size);
    state_.escape = options_.escape;
    state_.signals = options_.signals;
    state_.outlets = options_.outlets;
    actions_.read_signals = [this] { poll_signals(); };
    actions_.send_break = [this] { send_break(); };
    actions_.disconnect = [this](Session &session) { disconnect(session); };
}

bool Port::listen(std::string &error)
{
    constexpr const char *names[] = {"ctl.sck", "cmd.sck", "data.sck"};
    for (Listener &listener : listeners_) {
        // Whoever may set a port's signals may also hang up its users: the mode is not for it.
        auto mode = listener.which == Socket::Control ? 0600 : program_options_.socket_mode;
        listener.fd = endpoint_.listen(names[static_cast<size_t>(listener.which)], mode, error);
        if (!listener.fd || !listener.watch.start(loop_, listener.fd.get(), EPOLLIN,
                                                  [&](uint32_t) { accept(listener); })) {
            return false;
        }
    }
    return true;
}

bool Port::open(std::string &error)
{
    if (!endpoint_.open(program_options_.run_directory + "/" + options_.key, error)) {
        return false;
    }
    // A program waits for its first client, who then sees all of its output.
    if (options_.kind != PortKind::Program && !open_device(error)) {
        return false;
    }
    return listen(error);
}

bool Port::accept(const Listener &listener)
{
    Fd fd(accept4(listener.fd.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!fd) {
        if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS) {
            for (Listener &resting : listeners_) {
                resting.watch.set_events(0);
            }
            accept_timer_.start(ACCEPT_RETRY);
        }
        return false;
    }
    if (listener.which == Socket::Control) {
        controls_.push_back(std::make_unique<ControlConnection>(*this, loop_, std::move(fd)));
    } else {
        attach(listener.which, std::move(fd));
    }
    return true;
}

Client &Port::client_of(Socket which, pid_t process)
{
    for (auto &client : clients_) {
        if (client->lacks(which, process)) {
            return *client;
        }
    }
    Session &session = state_.sessions.emplace_back();
    return *clients_.emplace_back(std::make_unique<Client>(*this, loop_, process, session));
}

void Port::attach(Socket which, Fd fd)
{
    Client &client = client_of(which, peer_process(fd.get()));
    if (which == Socket::Command) {
        if (!client.attach_command(std::move(fd))) {
            client.drop();
        }
        return;
    }
    if (!client.attach_data(std::move(fd))) {
        client.drop();
        return;
    }
    std::string error;
    if (!running() && (shutting_down_ || !open_device(error))) {
        if (!error.empty()) {
            fprintf(stderr, "zorvad-sim: port %s: %s\n", options_.key.c_str(), error.c_str());
        }
        client.hang_up(PATIENCE);
    }
}

void Port::disconnect(Session &session)
{
    for (auto &client : clients_) {
        if (&client->session() == &session) {
            client->hang_up(PATIENCE);
        }
    }
}

void Port::sweep()
{
    for (auto next = clients_.begin(); next != clients_.end();) {
        auto client = next++;
        (*client)->sweep();
        if (!(*client)->finished()) {
            continue;
        }
        Session *session = &(*client)->session();
        clients_.erase(client);
        state_.sessions.remove_if([&](const Session &other) { return &other == session; });
    }
    std::erase_if(controls_, [](auto &control) { return control->closed(); });
    // The reader that was waited for may have left.
    if (paused_) {
        update_flow();
    }
}

void Port::shut_down()
{
    shutting_down_ = true;
    // Those who have connected but were not seen yet get an end of file, not an error.
    for (Listener &listener : listeners_) {
        while (listener.which != Socket::Control && accept(listener)) {
        }
        listener.watch.stop();
    }
    accept_timer_.stop();
    close_device();
    hang_up_all();
}

std::string Port::answer_request(Client &client, const json_object *request)
{
    counts_.commands++;
    return answer(state_, client.session(), request, actions_);
}

void Port::poll_signals()
{
    Signals signals;
    if (device_ == nullptr || !read_signals(*device_, signals)) {
        return;
    }
    change_signals(state_, signals);
    signal_timer_.start(SIGNAL_INTERVAL);
}

void Port::send_break()
{
    if (device_ == nullptr) {
        return;
    }
    set_break(*device_, true);
    break_timer_.start(BREAK_LENGTH);
}

size_t Port::client_count() const
{
    auto counts = [](const Session &session) { return session.counts(); };
    return static_cast<size_t>(std::ranges::count_if(state_.sessions, counts));
}

void Port::resize(ScreenSize size)
{
    options_.size = size;
    state_.info = device_info(options_, size);
    if (device_ != nullptr) {
        set_size(*device_, size);
    }
}

void Port::hang_up_all()
{
    for (auto &client : clients_) {
        client->hang_up(PATIENCE);
    }
}

void Port::say(std::string_view bytes)
{
    for (auto &client : clients_) {
        if (client->command() != nullptr) {
            client->command()->send(bytes);
        }
    }
}

} // namespace sim
