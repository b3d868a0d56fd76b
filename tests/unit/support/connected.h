// A daemon link for unit tests: the process's connection, connected to two sockets of the test's
// own, whose other ends the test reads and writes.
#pragma once

#include <functional>
#include <string>

#include "link/connection.h"

// Runs the event loop until the condition holds; false after five seconds.
bool run_until(const std::function<bool()> &condition);

// What is received until the text has the given size, or less after five seconds.
std::string receive(int descriptor, size_t size);

void send_all(int descriptor, const std::string &bytes);

struct Connected {
    int cmd = -1; // the daemon's ends
    int data = -1;
    // Errors go to standard error, as log lines do with ULOG_STDIO.
    static inline bool log_errors = false;

    // Where a process has the sockets of its number-th link, counted from 0.
    static std::string directory_of(int process, int number);

    // Makes the sockets, connects and accepts.
    Connected();
    // Closes everything and leaves the connection as it was at the start.
    ~Connected();
    Connected(const Connected &) = delete;
    Connected &operator=(const Connected &) = delete;

    // The next request, which has to be just this text.
    bool expect_request(const std::string &text);
    void reply(const std::string &text) { send_all(cmd, text); }

private:
    std::string directory;
};
