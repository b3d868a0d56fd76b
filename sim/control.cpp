#include "sim/control.h"

#include "sim/port.h"
#include "sim/values.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace sim {
namespace {

constexpr size_t MAXIMUM_LINE = 4096;

std::string statistics(const Port &port)
{
    const PortCounts &counts = port.counts();
    return "clients " + std::to_string(port.client_count()) + "\ninput " +
           std::to_string(counts.input) + "\noutput " + std::to_string(counts.output) +
           "\ncommands " + std::to_string(counts.commands) + "\ndropped " +
           std::to_string(counts.dropped) + "\nrunning " + (port.running() ? "yes" : "no") + "\n";
}

bool set_fault(Port &port, std::string_view text, std::string &error)
{
    auto blank = std::min(text.find(' '), text.size());
    return parse_fault(port.faults(), text.substr(0, blank),
                       text.substr(std::min(blank + 1, text.size())), error);
}

bool hang_up(Port &port, std::string_view text)
{
    Sockets which = text.empty() ? Sockets::Both : parse_sockets(text);
    if (which == Sockets::None) {
        return false;
    }
    port.hang_up_all(which);
    return true;
}

bool change_size(Port &port, std::string_view text)
{
    ScreenSize size;
    if (!parse_size(text, size)) {
        return false;
    }
    port.resize(size);
    return true;
}

bool send_all(int fd, std::string_view bytes)
{
    while (!bytes.empty()) {
        ssize_t count = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        pollfd wait{fd, POLLOUT, 0};
        if (count < 0 && (errno != EAGAIN || poll(&wait, 1, -1) < 0)) {
            return false;
        }
        bytes.remove_prefix(count < 0 ? 0 : static_cast<size_t>(count));
    }
    return true;
}

// Reads until a whole reply is there; false where the connection ends before.
bool receive_reply(int fd, std::string &reply)
{
    auto whole = [&] {
        return reply == "ok\n" || reply.ends_with("\nok\n") ||
               (reply.starts_with("error: ") && reply.ends_with("\n"));
    };
    while (!whole()) {
        char buffer[4096];
        pollfd wait{fd, POLLIN, 0};
        poll(&wait, 1, -1);
        ssize_t count = recv(fd, buffer, sizeof buffer, 0);
        if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) {
            return false;
        }
        reply.append(buffer, count < 0 ? 0 : static_cast<size_t>(count));
    }
    return true;
}

} // namespace

std::string run_control_line(Port &port, std::string_view line)
{
    auto blank = std::min(line.find(' '), line.size());
    auto command = line.substr(0, blank);
    auto text = line.substr(std::min(blank + 1, line.size()));
    std::string error = "bad value '" + std::string(text) + "' for " + std::string(command);
    std::string lines;
    bool good = true;
    if (command == "signals") {
        Signals signals;
        good = parse_signals(text, signals);
        if (good) {
            change_signals(port.state(), signals);
        }
    } else if (command == "size") {
        good = change_size(port, text);
    } else if (command == "label") {
        port.state().label = text;
    } else if (command == "escape") {
        good = parse_escape(text, port.state().escape);
    } else if (command == "hangup") {
        good = hang_up(port, text);
    } else if (command == "say") {
        port.say(text);
    } else if (command == "fault") {
        good = set_fault(port, text, error);
    } else if (command == "stats") {
        lines = statistics(port);
    } else {
        good = false;
        error = "unknown command '" + std::string(command) + "'";
    }
    return good ? lines + "ok\n" : "error: " + error + "\n";
}

ControlConnection::ControlConnection(Port &port, Loop &loop, Fd fd)
    : port_(port), fd_(std::move(fd))
{
    if (!watch_.start(loop, fd_.get(), EPOLLIN, [this](uint32_t) { on_input(); })) {
        fd_.reset();
    }
}

void ControlConnection::on_input()
{
    char buffer[MAXIMUM_LINE];
    ssize_t count = recv(fd_.get(), buffer, sizeof buffer, 0);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
        return;
    }
    line_.append(buffer, count > 0 ? static_cast<size_t>(count) : 0);
    for (size_t end; (end = line_.find('\n')) != std::string::npos; line_.erase(0, end + 1)) {
        std::string reply = run_control_line(port_, std::string_view(line_).substr(0, end));
        // Replies are short: one that does not fit was never read.
        if (send(fd_.get(), reply.data(), reply.size(), MSG_NOSIGNAL) < 0) {
            count = -1;
        }
    }
    if (count <= 0 || line_.size() > MAXIMUM_LINE) {
        watch_.stop();
        fd_.reset();
    }
}

int control_main(const std::string &directory, const std::vector<std::string> &lines)
{
    std::string path = directory + "/ctl.sck";
    Fd fd = connect_to(path);
    if (!fd) {
        fprintf(stderr, "zorvad-sim: cannot connect to %s: %s\n", path.c_str(), strerror(errno));
        return 1;
    }
    for (const std::string &line : lines) {
        std::string reply;
        if (!send_all(fd.get(), line + "\n") || !receive_reply(fd.get(), reply)) {
            fprintf(stderr, "zorvad-sim: the port is gone\n");
            return 1;
        }
        if (reply.starts_with("error: ")) {
            fprintf(stderr, "zorvad-sim: %s", reply.c_str());
            return 1;
        }
        fputs(reply.substr(0, reply.size() - std::string("ok\n").size()).c_str(), stdout);
    }
    return 0;
}

} // namespace sim
