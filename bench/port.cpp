#include "bench/port.h"

#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <string.h>
#include <sys/socket.h>

namespace {

constexpr const char *PORT_INFO = R"({"label":"bench","users":"bench","info":"115200 8N1",)"
                                  R"("escape":5,"signals":{"dcd":true,"cts":true}})";

} // namespace

Port::Port()
    : daemon({.listen_data = false}, loop), data(support::listen_at(path("data.sck"))),
      pane(support::listen_at(path("pane.sck")))
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    stop_reader = Fd(ends[0]);
    stop_writer = Fd(ends[1]);
    daemon.answer("SET_USER", "{}");
    daemon.answer("PORT_INFO", PORT_INFO);
    loop.watch({ends[0], [] { return short(POLLIN); }, [this](short) { stopped = true; }});
    server = std::thread([this] { serve(); });
}

Port::~Port()
{
    stop_writer.close();
    server.join();
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
    while (!stopped) {
        loop.run_once(-1);
        if (daemon.commands_waiting() > 0) {
            daemon.expect_command("SCROLLBACK");
            daemon.reply(history);
            history_sent = Clock::now().time_since_epoch().count();
        }
    }
}
