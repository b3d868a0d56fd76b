// The command line.
#pragma once

#include "sim/fault.h"
#include "sim/values.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace sim {

enum class PortKind { Unknown, Program, Serial, LoopBack, Source, Sink };

struct PortOptions {
    std::string key;
    PortKind kind = PortKind::Unknown;
    std::string target; // the command, device or file behind the port
    ScreenSize size;
    std::string term = "xterm";
    bool start_now = false;
    LineSettings line;
    uint64_t repeat = 1; // times that a source is sent; 0: for ever
    bool stay = false;   // keep the connection after a source's last byte
    std::string capture; // file that gets what clients send
    std::string label;
    std::string info;
    uint8_t escape = 5;
    Signals signals;
    std::vector<std::string> outlets;
    size_t history = 1000;
    size_t client_buffer = 8 << 20;
    Faults faults;
    std::map<std::string, std::string> replies; // file of each command's own reply
};

struct Options {
    std::string run_directory = "/var/run/zorvad";
    std::optional<mode_t> socket_mode;
    int ready_fd = -1;
    bool background = false;
    bool once = false;
    bool help = false;
    std::vector<PortOptions> ports;
    std::string control_key; // set: only talk to the control socket of this port
    std::vector<std::string> control_lines;
};

// Reads the arguments after the program's name. False with a sentence in error.
bool parse_options(const std::vector<std::string> &arguments, Options &options, std::string &error);

extern const char HELP_TEXT[];

} // namespace sim
