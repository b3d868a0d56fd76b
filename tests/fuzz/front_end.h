// A front end for fuzz entries: the real one, connected to a daemon that the entry plays.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <string_view>

#include "unit/support/connected.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

// The terminal UI on a pty of its own.
struct TerminalUi {
    Connected daemon;
    int terminal = -1; // the user's end

    TerminalUi(int columns, int rows);
    ~TerminalUi();
    TerminalUi(const TerminalUi &) = delete;
    TerminalUi &operator=(const TerminalUi &) = delete;

    void type(std::string_view bytes);
    void resize(int columns, int rows);
    // What the terminal was sent is thrown away.
    void turn();
};

// The basic interface with its standard input on a socket or a pty, its standard output thrown
// away; what the test itself prints goes to the output that the process was started with.
struct BasicInterface {
    Connected daemon;
    int keyboard = -1; // the user's end

    explicit BasicInterface(bool on_terminal = false);
    ~BasicInterface();
    BasicInterface(const BasicInterface &) = delete;
    BasicInterface &operator=(const BasicInterface &) = delete;

    void type(std::string_view bytes);
    void turn();
};

// A few turns of the event loop: enough for one chunk to come through.
void run_turns();

// Reads what has come, and forgets it.
void discard(int descriptor);

// Takes the requests that have come and answers each with this text.
void answer_requests(Connected &daemon, std::string_view reply);
