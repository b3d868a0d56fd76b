#include "bench/port.h"

#include <errno.h>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <stdexcept>
#include <string.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

constexpr const char *PORT_INFO = R"({"label":"bench","users":"bench","info":"115200 8N1",)"
                                  R"("escape":5,"signals":{"dcd":true,"cts":true}})";

Fd listen_at(const std::string &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    Fd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (bind(listener.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        listen(listener.get(), 4) != 0) {
        throw std::runtime_error("cannot listen at " + path + ": " + strerror(errno));
    }
    return listener;
}

void write_all(int fd, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t sent = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) {
            return; // the client is gone
        }
        bytes.remove_prefix(static_cast<size_t>(sent));
    }
}

bool has_command(std::string_view request, const char *name)
{
    return request.find(name) != std::string_view::npos;
}

} // namespace

Port::Port()
{
    static int count;
    port_key = "bench-" + std::to_string(getpid()) + "-" + std::to_string(++count);
    directory = "/var/run/zorvad/" + port_key;
    std::filesystem::create_directories(directory);
    commands = listen_at(path("cmd.sck"));
    data = listen_at(path("data.sck"));
    pane = listen_at(path("pane.sck"));
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    stop_reader = Fd(ends[0]);
    stop_writer = Fd(ends[1]);
    server = std::thread([this] { serve(); });
}

Port::~Port()
{
    stop_writer.close();
    server.join();
    std::filesystem::remove_all(directory);
}

Fd Port::accept_data() const
{
    return Fd(accept4(data.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
}

Port::Pane Port::accept_pane() const
{
    Pane accepted;
    accepted.control = Fd(accept4(pane.get(), nullptr, nullptr, SOCK_CLOEXEC));
    iovec text = {&accepted.parent, sizeof accepted.parent};
    int terminal = -1;
    alignas(cmsghdr) char space[CMSG_SPACE(sizeof terminal)] = {};
    msghdr message{};
    message.msg_iov = &text;
    message.msg_iovlen = 1;
    message.msg_control = space;
    message.msg_controllen = sizeof space;
    if (recvmsg(accepted.control.get(), &message, MSG_CMSG_CLOEXEC) <= 0 ||
        CMSG_FIRSTHDR(&message) == nullptr) {
        throw std::runtime_error("the pane handed no terminal over");
    }
    memcpy(&terminal, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof terminal);
    fcntl(terminal, F_SETFL, fcntl(terminal, F_GETFL) | O_NONBLOCK);
    accepted.terminal = Fd(terminal);
    return accepted;
}

void Port::serve()
{
    Fd client;
    for (;;) {
        pollfd watched[] = {{stop_reader.get(), POLLIN, 0},
                            {client.get() < 0 ? commands.get() : client.get(), POLLIN, 0}};
        poll(watched, 2, -1);
        if (watched[0].revents != 0) {
            return;
        }
        if (watched[1].revents == 0) {
            continue;
        }
        if (client.get() < 0) {
            client = Fd(accept4(commands.get(), nullptr, nullptr, SOCK_CLOEXEC));
        } else if (!answer_requests(client.get())) {
            client.close();
        }
    }
}

// The client waits for each reply and writes each request at once: what is read is one request.
bool Port::answer_requests(int client)
{
    char bytes[4096];
    const ssize_t count = recv(client, bytes, sizeof bytes, 0);
    if (count <= 0) {
        return false;
    }
    const std::string_view request(bytes, static_cast<size_t>(count));
    if (has_command(request, "SCROLLBACK")) {
        write_all(client, history);
        history_sent = Clock::now().time_since_epoch().count();
    } else {
        write_all(client, has_command(request, "PORT_INFO") ? PORT_INFO : "{}");
    }
    return true;
}
