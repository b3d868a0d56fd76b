// The command line.
#pragma once

#include "sim/values.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace sim {

// What is behind a port.
enum class PortKind { Unknown, Program, Serial, LoopBack };

struct PortOptions {
    std::string key;
    PortKind kind = PortKind::Unknown;
    int kinds = 0;      // how often that was said
    std::string target; // the command or the device
    ScreenSize size;
    std::string term = "xterm";
    LineSettings line;
    std::string label;
    std::string info;
    uint8_t escape = 5;
    Signals signals;
    std::vector<std::string> outlets;
    size_t history = 1000;
    std::map<std::string, PortKind> bound; // the given options that fit only one kind
};

struct Options {
    std::string run_directory = "/var/run/zorvad";
    std::optional<mode_t> socket_mode;
    bool background = false;
    bool help = false;
    bool version = false;
    std::vector<PortOptions> ports;
    std::string control_key; // set: only talk to the control socket of this port
    std::vector<std::string> control_lines;
};

// Reads the arguments after the program's name. False with a sentence in error.
bool parse_options(const std::vector<std::string> &arguments, Options &options, std::string &error);

extern const char HELP_TEXT[];

} // namespace sim
