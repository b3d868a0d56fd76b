#include "sim/control.h"

#include "sim/port.h"
#include "sim/values.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace sim {
namespace {

constexpr size_t MAXIMUM_LINE = 4096;
constexpr std::string_view ERROR = "error: ";

std::string statistics(const Port &port)
{
    const PortCounts &counts = port.counts();
    return "clients " + std::to_string(port.client_count()) + "\ninput " +
           std::to_string(counts.input) + "\noutput " + std::to_string(counts.output) +
           "\ncommands " + std::to_string(counts.commands) + "\ndropped " +
           std::to_string(counts.dropped) + "\nrunning " + (port.running() ? "yes" : "no") + "\n";
}

// Sends one line and prints its reply. False with a sentence in error.
bool ask(FILE *connection, const std::string &line, std::string &error)
{
    std::string text = line + "\n";
    bool answered = send(fileno(connection), text.data(), text.size(), MSG_NOSIGNAL) >= 0;
    char reply[MAXIMUM_LINE];
    while (answered && fgets(reply, sizeof reply, connection) != nullptr) {
        if (strcmp(reply, "ok\n") == 0) {
            return true;
        }
        if (strncmp(reply, ERROR.data(), ERROR.size()) == 0) {
            error = std::string(reply, strcspn(reply, "\n"));
            return false;
        }
        fputs(reply, stdout);
    }
    error = "the port is gone";
    return false;
}

// Does what a line asks for and returns the whole reply.
std::string run_control_line(Port &port, std::string_view line)
{
    auto blank = std::min(line.find(' '), line.size());
    auto command = line.substr(0, blank);
    auto text = line.substr(std::min(blank + 1, line.size()));
    std::string error = "bad value '" + std::string(text) + "' for " + std::string(command);
    std::string lines;
    Signals signals;
    ScreenSize size;
    bool good = true;
    if (command == "signals") {
        if ((good = parse_signals(text, signals))) {
            change_signals(port.state(), signals);
        }
    } else if (command == "size") {
        if ((good = parse_size(text, size))) {
            port.resize(size);
        }
    } else if (command == "label") {
        port.state().label = text;
    } else if (command == "escape") {
        good = parse_escape(text, port.state().escape);
    } else if (command == "hangup") {
        port.hang_up_all();
    } else if (command == "say") {
        port.say(text);
    } else if (command == "stats") {
        lines = statistics(port);
    } else {
        good = false;
        error = "unknown command '" + std::string(command) + "'";
    }
    return good ? lines + "ok\n" : std::string(ERROR) + error + "\n";
}

} // namespace

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
    fcntl(fd.get(), F_SETFL, 0); // to wait for the replies
    FILE *connection = fdopen(fd.release(), "r");
    std::string error;
    bool good = std::ranges::all_of(
        lines, [&](const std::string &line) { return ask(connection, line, error); });
    if (!good) {
        fprintf(stderr, "zorvad-sim: %s\n", error.c_str());
    }
    fclose(connection);
    return good ? 0 : 1;
}

} // namespace sim
