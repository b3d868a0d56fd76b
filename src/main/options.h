// The command line.
#pragma once

#include <stdint.h>

// The basic interface is in use: asked for, or the terminal UI could not start. Only main asks.
extern uint8_t use_basic_interface;

// Why the program ends, or not.
enum class CommandLine {
    RUN,
    HELP,  // the usage was printed
    WRONG, // an error was printed
};

// The argument table is built by options_init (false when memory is short), read by options_parse
// (which sets use_basic_interface and access_right) and freed by options_free, after which
// access_right is no longer valid.
[[nodiscard]] bool options_init();
[[nodiscard]] CommandLine options_parse(int argument_count, char **arguments);
const char *options_port();
void options_free();
