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

constexpr milliseconds KICK_PATIENCE{2000};
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

bool read_file(const std::string &path, std::string &text)
{
    Fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    char buffer[1 << 16];
    ssize_t count = -1;
    while (file && (count = read(file.get(), buffer, sizeof buffer)) > 0) {
        text.append(buffer, static_cast<size_t>(count));
    }
    return count == 0;
}

} // namespace

Port::Port(Loop &loop, const Options &options, const PortOptions &port_options,
           std::function<void()> on_finished)
    : loop_(loop), program_options_(options), options_(port_options),
      on_finished_(std::move(on_finished)), state_(port_options.history),
      accept_timer_(loop,
                    [this] {
                        data_listener_.set_events(EPOLLIN);
                        command_listener_.set_events(EPOLLIN);
                        control_listener_.set_events(EPOLLIN);
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
    struct Listener {
        const char *name;
        Fd &socket;
        Watch &watch;
        Sockets which;
    };
    const Listener listeners[] = {
        {"ctl.sck", control_socket_, control_listener_, Sockets::None},
        {"cmd.sck", command_socket_, command_listener_, Sockets::Command},
        {"data.sck", data_socket_, data_listener_, Sockets::Data},
    };
    for (const Listener &listener : listeners) {
        // Whoever may set a port's signals may also hang up its users: the mode is not for it.
        bool control = listener.which == Sockets::None;
        listener.socket =
            endpoint_.listen(listener.name, control ? 0600 : program_options_.socket_mode, error);
        if (!listener.socket ||
            !listener.watch.start(loop_, listener.socket.get(), EPOLLIN,
                                  [this, which = listener.which](uint32_t) { accept(which); })) {
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
    if (options_.kind == PortKind::Source &&
        !source_.open(options_.target, options_.repeat, error)) {
        return false;
    }
    if (!options_.capture.empty()) {
        capture_.reset(
            ::open(options_.capture.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
        if (!capture_) {
            error = "cannot write " + options_.capture + ": " + strerror(errno);
            return false;
        }
    }
    // A program waits for its first client, who then sees all of its output.
    if ((options_.kind != PortKind::Program || options_.start_now) && !open_device(error)) {
        return false;
    }
    return listen(error);
}

bool Port::accept(Sockets which)
{
    int listener = which == Sockets::None   ? control_socket_.get()
                   : which == Sockets::Data ? data_socket_.get()
                                            : command_socket_.get();
    Fd fd(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!fd) {
        if (errno != EMFILE && errno != ENFILE && errno != ENOMEM && errno != ENOBUFS) {
            return false;
        }
        data_listener_.set_events(0);
        command_listener_.set_events(0);
        control_listener_.set_events(0);
        accept_timer_.start(ACCEPT_RETRY);
        return false;
    }
    if (which == Sockets::None) {
        controls_.push_back(std::make_unique<ControlConnection>(*this, loop_, std::move(fd)));
    } else {
        attach(which, std::move(fd));
    }
    return true;
}

Client &Port::client_of(Sockets which, pid_t process)
{
    for (auto &client : clients_) {
        if (client->lacks(which, process)) {
            return *client;
        }
    }
    Session &session = state_.sessions.emplace_back();
    return *clients_.emplace_back(std::make_unique<Client>(*this, loop_, process, session));
}

void Port::attach(Sockets which, Fd fd)
{
    Client &client = client_of(which, peer_process(fd.get()));
    if (which == Sockets::Command) {
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
    if (!running() && (finished_ || !open_device(error))) {
        if (!error.empty()) {
            fprintf(stderr, "zorvad-sim: port %s: %s\n", options_.key.c_str(), error.c_str());
        }
        client.hang_up(KICK_PATIENCE);
    }
}

void Port::disconnect(Session &session)
{
    for (auto &client : clients_) {
        if (&client->session() == &session) {
            client->hang_up(KICK_PATIENCE);
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

void Port::shut_down(milliseconds patience)
{
    finished_ = true;
    // Those who have connected but were not seen yet get an end of file, not an error.
    while (accept(Sockets::Data) || accept(Sockets::Command)) {
    }
    data_listener_.stop();
    command_listener_.stop();
    control_listener_.stop();
    accept_timer_.stop();
    close_device();
    for (auto &client : clients_) {
        client->hang_up(patience);
    }
}

bool Port::can_finish() const
{
    return options_.kind == PortKind::Program || options_.kind == PortKind::Source;
}

void Port::source_sent(Client &client)
{
    if (options_.stay) {
        return;
    }
    client.hang_up(std::nullopt);
    finished_ = program_options_.once;
    if (finished_) {
        on_finished_();
    }
}

std::string Port::answer_request(Client &client, const json_object *request)
{
    counts_.commands++;
    std::string reply = answer(state_, client.session(), request, actions_);
    std::string own;
    return reply_from_file(command_name(request), own) ? own : reply;
}

bool Port::reply_from_file(const std::string &command, std::string &reply)
{
    auto found = options_.replies.find(command);
    if (found == options_.replies.end()) {
        return false;
    }
    if (read_file(found->second, reply)) {
        return true;
    }
    fprintf(stderr, "zorvad-sim: cannot read %s\n", found->second.c_str());
    return false;
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

void Port::hang_up_all(Sockets which)
{
    for (auto &client : clients_) {
        if (which == Sockets::Both) {
            client->hang_up(KICK_PATIENCE);
        } else {
            client->hang_up(which);
        }
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
