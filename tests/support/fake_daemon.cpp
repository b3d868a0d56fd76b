#include "support/fake_daemon.h"

#include "support/text.h"

#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace support {

namespace {

std::string unique_key()
{
    static int count = 0;
    return "e2e-" + std::to_string(getpid()) + "-" + std::to_string(++count);
}

// The length of the complete JSON object that text begins with, 0 when it is not complete yet.
size_t object_length(std::string_view text)
{
    int depth = 0;
    bool quoted = false;
    for (size_t index = 0; index < text.size(); ++index) {
        const char c = text[index];
        if (quoted) {
            index += c == '\\';
            quoted = c != '"';
        } else if (c == '"') {
            quoted = true;
        } else if (c == '{' || c == '[') {
            ++depth;
        } else if ((c == '}' || c == ']') && --depth == 0) {
            return index + 1;
        }
    }
    return 0;
}

} // namespace

std::string command_name(std::string_view request)
{
    constexpr std::string_view HEAD = R"({"cmd":")";
    if (!request.starts_with(HEAD)) {
        throw Failure("not a request: " + visible(request));
    }
    request.remove_prefix(HEAD.size());
    return std::string(request.substr(0, request.find('"')));
}

int listen_at(const std::string &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        listen(listener, 4) != 0) {
        throw Failure("cannot listen at " + path);
    }
    return listener;
}

FakeDaemon::FakeDaemon(DaemonOptions given, Loop &runs_in)
    : options(given), own_loop(runs_in), port_key(unique_key())
{
    std::filesystem::remove_all(directory()); // of a test that was killed, under the same number
    std::filesystem::create_directories(directory());
    cmd.path = directory() + "/cmd.sck";
    data.path = directory() + "/data.sck";
    listen(cmd);
    if (options.listen_data) {
        listen(data);
    }
}

FakeDaemon::~FakeDaemon()
{
    for (Socket *socket : {&cmd, &data}) {
        hang_up(*socket);
        if (socket->listener >= 0) {
            own_loop.forget(*socket->listener_watch);
            close(socket->listener);
        }
    }
    std::filesystem::remove_all(directory());
}

std::string FakeDaemon::directory() const
{
    return "/var/run/zorvad/" + port_key;
}

void FakeDaemon::listen(Socket &socket)
{
    socket.listener = listen_at(socket.path);
    socket.listener_watch =
        own_loop.watch({socket.listener, [&socket] { return short(socket.fd < 0 ? POLLIN : 0); },
                        [this, &socket](short) { accept_client(socket); }});
}

void FakeDaemon::accept_client(Socket &socket)
{
    socket.fd = accept4(socket.listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (socket.fd < 0) {
        return;
    }
    if (&socket == &data && options.data_buffer > 0) {
        const int size = options.data_buffer;
        setsockopt(socket.fd, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
        setsockopt(socket.fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    }
    auto wanted = [this, &socket] {
        const bool read = !socket.ended && (&socket == &cmd || reading);
        return short((read ? POLLIN : 0) | (socket.unsent.size() > 0 ? POLLOUT : 0));
    };
    socket.watch = own_loop.watch(
        {socket.fd, wanted, [this, &socket](short events) { serve(socket, events); }});
}

void FakeDaemon::serve(Socket &socket, short events)
{
    if ((events & POLLOUT) != 0 && socket.unsent.size() > 0) {
        const std::string_view piece = socket.unsent.next(1 << 18);
        const ssize_t sent = ::send(socket.fd, piece.data(), piece.size(), MSG_NOSIGNAL);
        if (sent > 0) {
            socket.unsent.took(size_t(sent));
        }
    }
    if ((events & (POLLIN | POLLHUP | POLLERR)) == 0 || (&socket == &data && !reading)) {
        return;
    }
    char bytes[65536];
    const ssize_t count = recv(socket.fd, bytes, std::min(read_size, sizeof bytes), 0);
    if (count == 0 || (count < 0 && errno != EAGAIN)) {
        socket.ended = true;
        socket.unsent.clear();
    } else if (count > 0 && &socket == &cmd) {
        take_command_bytes({bytes, size_t(count)});
    } else if (count > 0) {
        port_input.append(bytes, size_t(count));
    }
}

void FakeDaemon::take_command_bytes(std::string_view bytes)
{
    command_bytes += bytes;
    while (const size_t length = object_length(command_bytes)) {
        const std::string text = command_bytes.substr(0, length);
        command_bytes.erase(0, length);
        take_command(text);
    }
}

void FakeDaemon::take_command(const std::string &text)
{
    const std::string name = command_name(text);
    ++counts[name];
    texts[name] = text;
    if (auto found = answers.find(name); found != answers.end()) {
        cmd.unsent.add(found->second);
    } else {
        commands.push_back(text);
    }
}

void FakeDaemon::expect_connected()
{
    const auto connected = [this] { return cmd.fd >= 0 && (data.fd >= 0 || !options.listen_data); };
    if (!own_loop.run_until(connected)) {
        throw Failure("no client has connected to port " + port_key);
    }
}

std::string FakeDaemon::next_command()
{
    if (!own_loop.run_until([this] { return !commands.empty(); })) {
        throw Failure("no request has come; on cmd.sck: " + visible(command_bytes));
    }
    std::string text = commands.front();
    commands.pop_front();
    return text;
}

std::string FakeDaemon::expect_command(std::string_view name)
{
    std::string text = next_command();
    if (command_name(text) != name) {
        throw Failure("expected the request " + std::string(name) + ", got " + visible(text));
    }
    return text;
}

void FakeDaemon::reply(std::string_view bytes)
{
    expect_connected();
    cmd.unsent.add(bytes);
    if (!own_loop.run_until([this] { return cmd.unsent.size() == 0; })) {
        throw Failure("the client does not take replies");
    }
}

void FakeDaemon::answer(const std::string &name, std::optional<std::string> text)
{
    answers.erase(name);
    if (text) {
        answers[name] = *text;
    }
}

size_t FakeDaemon::command_count(const std::string &name) const
{
    const auto found = counts.find(name);
    return found == counts.end() ? 0 : found->second;
}

void FakeDaemon::send(std::string_view bytes)
{
    data.unsent.add(bytes);
}

void FakeDaemon::wait_until_sent()
{
    expect_connected();
    if (!own_loop.run_until([this] { return data.unsent.size() == 0; })) {
        throw Failure("the client does not take port output");
    }
}

void FakeDaemon::expect_received(std::string_view expected)
{
    const auto enough = [&] { return port_input.size() >= expected.size() || data.ended; };
    if (!own_loop.run_until(enough) || port_input != expected) {
        throw Failure("the port got " + describe_difference(expected, port_input));
    }
}

void FakeDaemon::hang_up(Socket &socket)
{
    if (socket.fd >= 0) {
        if (socket.watch) {
            own_loop.forget(*socket.watch);
            socket.watch.reset();
        }
        close(socket.fd);
        socket.fd = -1;
        socket.ended = true;
        socket.unsent.clear();
    }
}

void FakeDaemon::hang_up_cmd()
{
    hang_up(cmd);
}

void FakeDaemon::hang_up_data()
{
    wait_until_sent();
    hang_up(data);
}

} // namespace support
