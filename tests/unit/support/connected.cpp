#include "unit/support/connected.h"

#include <chrono>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "link/command.h"
#include "link/owned.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto PATIENCE = std::chrono::seconds(5);

int listen_at(const std::string &path)
{
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (bind(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        listen(descriptor, 4) != 0) {
        throw std::runtime_error("cannot listen at " + path);
    }
    return descriptor;
}

} // namespace

bool run_until(const std::function<bool()> &condition)
{
    const auto deadline = Clock::now() + PATIENCE;
    while (!condition()) {
        if (Clock::now() > deadline) {
            return false;
        }
        uloop_run_timeout(20);
    }
    return true;
}

std::string receive(int descriptor, size_t size)
{
    std::string bytes;
    const auto deadline = Clock::now() + PATIENCE;
    while (bytes.size() < size && Clock::now() < deadline) {
        uloop_run_timeout(0);
        char chunk[65536];
        const ssize_t length = recv(descriptor, chunk, sizeof chunk, MSG_DONTWAIT);
        if (length == 0) {
            break;
        }
        if (length > 0) {
            bytes.append(chunk, static_cast<size_t>(length));
        }
    }
    return bytes;
}

void send_all(int descriptor, const std::string &bytes)
{
    for (size_t sent = 0; sent < bytes.size();) {
        const ssize_t length =
            send(descriptor, bytes.data() + sent, bytes.size() - sent, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (length > 0) {
            sent += static_cast<size_t>(length);
        } else {
            uloop_run_timeout(1);
        }
    }
}

std::string Connected::directory_of(int process, int number)
{
    return "/var/run/zorvad/unit-" + std::to_string(process) + "-" + std::to_string(number);
}

Connected::Connected()
{
    static int number;
    directory = directory_of(getpid(), number++);
    const std::string key = directory.substr(strlen("/var/run/zorvad/"));
    std::filesystem::remove_all(directory); // of a process before that did not end by itself
    std::filesystem::create_directories(directory);
    const int cmd_listener = listen_at(directory + "/cmd.sck");
    const int data_listener = listen_at(directory + "/data.sck");
    ulog_open(ULOG_STDIO, LOG_DAEMON, "unit");
    ulog_threshold(log_errors ? LOG_ERR : LOG_CRIT);
    uloop_init();
    zorvad = {};
    const bool connected = daemon_connect(zorvad, key.c_str()) == 0;
    if (connected) {
        cmd = accept(cmd_listener, nullptr, nullptr);
        data = accept(data_listener, nullptr, nullptr);
    }
    close(cmd_listener);
    close(data_listener);
    if (!connected) {
        std::filesystem::remove_all(directory);
        throw std::runtime_error("cannot connect to " + key);
    }
}

Connected::~Connected()
{
    uloop_timeout_cancel(&zorvad.port_output.next_turn);
    uloop_timeout_cancel(&zorvad.replies.next_turn);
    uloop_timeout_cancel(&zorvad.cmd_backlog);
    if (zorvad.cmd_hangup.registered) {
        uloop_fd_delete(&zorvad.cmd_hangup);
        close(zorvad.cmd_hangup.fd);
    }
    ustream_free(&zorvad.cmd_stream.stream);
    ustream_free(&zorvad.data_stream.stream);
    close(zorvad.cmd_stream.fd.fd);
    close(zorvad.data_stream.fd.fd);
    close(cmd);
    close(data);
    while (!list_empty(&zorvad.commands)) {
        PendingCommand *command = list_first_entry(&zorvad.commands, PendingCommand, list);
        list_del(&command->list);
        free(command->text);
        free(command);
    }
    json_stream_free(zorvad.reply_parser);
    std::filesystem::remove_all(directory);
}

bool Connected::expect_request(const std::string &text)
{
    return receive(cmd, text.size()) == text;
}
