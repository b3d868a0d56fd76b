// The other end: the sockets of one port, as the daemon offers them. Requests are answered by a
// thread of its own; the data belongs to the caller.
#pragma once

#include <atomic>
#include <chrono>
#include <string>
#include <sys/types.h>
#include <thread>

#include "bench/owned_fd.h"
#include "support/fake_daemon.h"

using Clock = std::chrono::steady_clock;

class Port {
public:
    Port();
    ~Port();
    Port(const Port &) = delete;
    Port &operator=(const Port &) = delete;

    const std::string &key() const { return daemon.key(); }
    std::string path(const std::string &name) const { return daemon.directory() + "/" + name; }
    int data_listener() const { return data.get(); }
    int pane_listener() const { return pane.get(); }

    // The client that has come to data.sck.
    Fd accept_data() const;
    // The terminal that bench-pane hands over, the socket that ends it, and its parent.
    struct Pane {
        Fd terminal;
        Fd control;
        pid_t parent = 0;
    };
    Pane accept_pane() const;

    // The reply to SCROLLBACK; set before it is asked for.
    std::string history;
    // When the reply to SCROLLBACK was written to its end, in nanoseconds of Clock; 0 before.
    std::atomic<int64_t> history_sent{0};

private:
    void serve();

    support::Loop loop; // run by the thread
    support::FakeDaemon daemon;
    Fd data, pane, stop_reader, stop_writer;
    bool stopped = false; // by the thread
    std::thread server;
};
