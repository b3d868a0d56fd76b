// Runs the built simulator in a directory of its own and talks to it as clients do. Every wait has
// a deadline; bytes that are late give an empty or short result, which the test then reports.
#pragma once

#include "sim/fd.h"
#include "support/program.h"

#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

namespace sim_test {

// A directory that is removed with all that is in it.
class Directory {
public:
    Directory();
    Directory(const Directory &) = delete;
    ~Directory();

    std::string path(const std::string &name) const { return path_ + "/" + name; }
    std::string write(const std::string &name, std::string_view bytes) const;

private:
    std::string path_;
};

struct Simulator {
    Directory directory;
    support::Program program;

    // Returns once its sockets listen, or at once where it is not to serve.
    explicit Simulator(const std::vector<std::string> &arguments, bool serves = true);

    std::string path(const std::string &name) const { return directory.path("run/" + name); }
    // Runs a control line; the text it printed, or its error.
    std::string control(const std::string &port, const std::string &line) const;
    // Asks until the port's figures contain the text.
    void wait_for_stats(const std::string &port, const std::string &text) const;
};

class Connection {
public:
    explicit Connection(const std::string &path);

    bool connected() const { return static_cast<bool>(fd_); }
    int fd() const { return fd_.get(); }
    bool send(std::string_view bytes);
    // Exactly so many bytes.
    std::string receive(size_t count);
    // Everything up to and with the text.
    std::string receive_until(std::string_view text);
    // Everything up to the end of file; ended() tells whether it came.
    std::string receive_all();
    bool ended() const { return ended_; }
    // The end comes next.
    bool ends() { return receive_all() == "" && ended_; }

private:
    bool more(size_t limit);

    sim::Fd fd_;
    std::string received_;
    bool ended_ = false;
};

struct Client {
    Client(const Simulator &simulator, const std::string &port);

    // Sends the request and returns the reply, which is one whole JSON value.
    std::string ask(const std::string &request);
    std::string command(const std::string &name) { return ask("{\"cmd\":\"" + name + "\"}"); }
    std::string login(const std::string &user);

    Connection command_socket;
    Connection data;
};

} // namespace sim_test
