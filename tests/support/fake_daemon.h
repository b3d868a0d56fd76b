// A daemon of the test's or benchmark's own behind the two sockets of one port, driven by explicit
// calls. One client; what it sends is collected whenever the loop runs.
#pragma once

#include "support/loop.h"
#include "support/outbox.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace support {

struct DaemonOptions {
    bool listen_data = true;
    // Send and receive buffers of the data socket in bytes; 0 leaves the system's.
    int data_buffer = 0;
};

class FakeDaemon {
public:
    explicit FakeDaemon(DaemonOptions options = {}, Loop &runs_in = loop());
    // Hangs up and removes the sockets and their directory.
    ~FakeDaemon();
    FakeDaemon(const FakeDaemon &) = delete;
    FakeDaemon &operator=(const FakeDaemon &) = delete;

    const std::string &key() const { return port_key; }
    std::string directory() const;
    void expect_connected();

    // The next request as received, one JSON text; waits for it.
    std::string next_command();
    // The same, and its "cmd" has to be name.
    std::string expect_command(std::string_view name);
    // Requests received and not yet taken.
    size_t commands_waiting() const { return commands.size(); }
    // Bytes on cmd.sck as they are.
    void reply(std::string_view bytes);
    // From now on every request of that name is answered at once and not handed out; without a
    // reply it is handed out again.
    void answer(const std::string &name, std::optional<std::string> text);
    // How many requests of that name have come, answered ones included, and the last of them.
    size_t command_count(const std::string &name) const;
    const std::string &last_command(const std::string &name) const { return texts.at(name); }

    // Port output: queued, and sent as the client takes it.
    void send(std::string_view bytes);
    void wait_until_sent();
    size_t unsent() const { return data.unsent.size(); }
    // Everything the client has sent to the port.
    const std::string &received() const { return port_input; }
    // Waits until as many bytes have come; they have to be exactly these.
    void expect_received(std::string_view expected);
    // A port that does not read leaves the client's bytes in the socket.
    bool reading = true;
    // How much of a socket is read in one round of the loop.
    size_t read_size = 65536;

    void hang_up_cmd();
    void hang_up_data();

private:
    struct Socket {
        std::string path;
        int listener = -1;
        int fd = -1;
        bool ended = false;
        Outbox unsent;
        std::optional<Loop::Handle> listener_watch, watch;
    };
    void listen(Socket &socket);
    void accept_client(Socket &socket);
    void serve(Socket &socket, short events);
    void take_command_bytes(std::string_view bytes);
    void take_command(const std::string &text);
    void hang_up(Socket &socket);

    DaemonOptions options;
    Loop &own_loop;
    std::string port_key;
    Socket cmd, data;
    std::string command_bytes;
    std::list<std::string> commands;
    std::map<std::string, std::string> answers, texts;
    std::map<std::string, size_t> counts;
    std::string port_input;
};

// The value of "cmd" in a request.
std::string command_name(std::string_view request);

// A new non-blocking socket, listening at the path.
int listen_at(const std::string &path);

} // namespace support
