// A program under test, between a port and a user's terminal, both held by the benchmark.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

#include "bench/port.h"
#include "bench/terminal.h"

enum class Program { RELAY, SOCAT, DTACH, PICOCOM, TMUX, SCREEN, BASIC, TUI };
enum class Output { TERMINAL, PIPE };

const char *program_name(Program program);

class Session {
public:
    // Starts the program, which connects to the port. connected() is to be called next.
    explicit Session(Program program, Output output = Output::TERMINAL, Size size = SMALL);
    // Kills what still runs.
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    // Waits for the program to come to the port. Whatever it shows meanwhile is added to seen.
    void connect(std::string &seen);
    // Until a mark that was sent to the port is on the terminal and all before it has been read.
    void settle();

    Program program;
    // The ends that the benchmark holds, all non-blocking.
    Fd port, keyboard, screen_pipe;
    int screen() const { return screen_pipe.get() >= 0 ? screen_pipe.get() : keyboard.get(); }
    // Its processes: one, or a multiplexer's client and server.
    std::vector<pid_t> processes;

    Port daemon;
    unsigned int marks = 0; // made so far

private:
    bool connects_by_pane() const;
    std::vector<std::string> command();
    void spawn(const std::string &terminal, Output output);

    Fd pane_control, device;
    std::string name_of_device;
};

// Bytes that are there now; empty when there are none. Throws at the end of the descriptor.
std::string_view read_some(int fd, size_t limit = 1 << 16);
// As many as are taken now.
size_t write_some(int fd, std::string_view bytes);

// Of all the session's processes: processor time in seconds, resident bytes now, the highest
// since reset_peak, voluntary context switches.
double processor_time(const Session &session);
size_t resident(const Session &session);
size_t peak_resident(const Session &session);
void reset_peak(const Session &session);
long context_switches(const Session &session);
