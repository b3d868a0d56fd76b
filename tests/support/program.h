// A program run on a pseudo-terminal, or with its standard streams elsewhere, with everything it
// writes collected and everything a user or a shell would notice afterwards at hand.
#pragma once

#include "support/loop.h"
#include "support/outbox.h"
#include "support/screen.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <termios.h>
#include <vector>

namespace support {

// Where a standard stream leads: the program's terminal, a pipe of its own, or a file by its path.
struct Stream {
    enum Kind { TERMINAL, PIPE, FILE } kind = TERMINAL;
    std::string path{};
};

struct Launch {
    // Beginning with the program's path. In place of a zorvad-client the one that ZORVAD_CLIENT
    // names in the tests' own environment is run, where that is set.
    std::vector<std::string> arguments;
    // On top of PATH, HOME, LANG, TERM and USER; without a value the variable is unset.
    std::map<std::string, std::optional<std::string>> environment{};
    Stream input{}, output{};
    int rows = 24, columns = 80;
    // Whether /dev/tty opens the terminal.
    bool controlling = true;
    std::vector<int> ignored_signals{};
    // Run in the child just before the program is.
    std::function<void()> before_exec{};
};

class Program {
public:
    explicit Program(Launch setup);
    // Kills what still runs.
    ~Program();
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;

    // To standard input. Queued, and sent as the terminal or pipe takes it.
    void send(std::string_view bytes);
    void wait_until_taken();
    // Until the program has read it all, so that what is sent next comes in a read of its own.
    void wait_until_read();
    size_t untaken() const { return unsent.size(); }
    // The end of a piped standard input, after what was sent.
    void end_input();

    // What /dev/tty is to the program.
    const std::string &terminal_name() const { return terminal_path; }

    // Everything written to the terminal or, with a piped standard output, to that pipe. Only the
    // terminal's bytes are shown on the screen.
    const std::string &output() const { return written; }
    const std::string &error_output() const { return error_written; }
    // Output is left in the terminal or pipe while this is false.
    bool reading = true;
    // How much of it is read in one round of the loop.
    size_t read_size = 65536;
    // Output is thrown away instead of collected, after being counted.
    bool counting_only = false;
    size_t output_size = 0;
    // The reader of a piped standard output goes away.
    void close_output();

    // The terminal's screen.
    Screen &screen() { return *emulator; }
    void resize(int rows, int columns);
    // Both ends are closed, as when a connection drops: SIGHUP, then errors on every use.
    void take_terminal_away();

    void wait_until(const std::function<bool()> &condition, const std::string &what);
    void wait_for(std::string_view text);           // in the output
    void wait_for_output(std::string_view exactly); // the whole output so far
    void wait_for_screen(std::string_view text);
    void wait_for_error(std::string_view text);

    void signal(int number) const;
    // Waits for the end: the exit status, or 128 and the signal's number.
    int wait_for_exit();
    bool running() const { return !status; }

    bool has_terminal() const { return slave >= 0; } // until it is taken away
    // Terminal settings, and the open flags of a standard stream (0 or 1), now.
    termios settings() const;
    int stream_flags(int stream) const;
    // As another program may that has the same stream.
    void make_blocking(int stream) const;
    // A line of /proc/PID/status in its unit ("VmRSS", "voluntary_ctxt_switches").
    long status_value(std::string_view name) const;
    // Bytes that the terminal holds for whoever reads it next.
    int waiting_input() const;
    // User and system time used so far, in clock ticks.
    long cpu_ticks() const;
    // What it has logged, one message a line: "zorvad-client 24.3 text".
    std::string log() const;

    // What a failing wait or comparison shows.
    std::string description() const;

private:
    void open_terminal(const Launch &setup);
    void open_streams(const Launch &setup);
    [[noreturn]] void run_child(const Launch &setup);
    void watch(int fd, std::function<short()> wanted);
    void stop_watching(int fd);
    void collect(int fd, short events);
    void take(std::string_view bytes);
    void reap();
    // By any means, in its whole life; a large number where the system does not tell.
    long bytes_read() const;

    pid_t child = -1;
    int pidfd = -1;
    int master = -1, slave = -1;
    // Our ends, the terminal's or a pipe's, and the program's own, which keep their open file
    // descriptions alive so that flags can be read after the program has ended.
    int input_end = -1, output_end = -1, error_end = -1;
    int program_ends[3] = {-1, -1, -1};
    Outbox unsent;
    // What bytes_read has to reach: a terminal passes bytes on in its own time, so that nothing
    // left to read does not say that all has been read.
    long read_goal = 0;
    std::string written, error_written;
    bool input_ending = false;
    std::optional<int> status;
    std::unique_ptr<Screen> emulator;
    std::map<int, Loop::Handle> watches;
    std::string terminal_path, log_path;
};

// All of them as one text, to compare.
std::string describe(const termios &settings);

} // namespace support
