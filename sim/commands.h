// The daemon's commands: what a port knows about itself and its sessions, and the reply to each
// request. Nothing here knows of sockets.
#pragma once

#include "sim/history.h"
#include "sim/json.h"
#include "sim/loop.h"

#include <functional>
#include <list>
#include <string>
#include <vector>

namespace sim {

// The modem lines as the port sees them.
struct Signals {
    bool dcd = false;
    bool dsr = false;
    bool ri = false;
    bool cts = false;
};

struct SignalName {
    const char *name;
    bool Signals::*line;
};
constexpr SignalName SIGNAL_NAMES[] = {
    {"dcd", &Signals::dcd},
    {"dsr", &Signals::dsr},
    {"ri", &Signals::ri},
    {"cts", &Signals::cts},
};

// One attached user.
struct Session {
    bool attached = false;  // has a data connection
    bool announced = false; // has sent SET_USER
    bool leaving = false;   // is being hung up
    std::string username;
    std::string right;
    std::string protocol;
    std::string remote_address; // empty: unknown
    Clock::time_point since = Clock::now();

    // A connection that only asks, without data and without a name, is nobody's session.
    bool counts() const { return !leaving && (attached || announced); }
    std::string display_name() const { return announced ? username : "unknown"; }
};

struct PortState {
    explicit PortState(size_t history_limit) : history(history_limit) {}

    std::string label;
    std::string info;
    uint8_t escape = 5;
    Signals signals;
    std::vector<std::string> outlets;
    History history;
    std::list<Session> sessions;
};

// What commands set off outside the state; each may be empty.
struct PortActions {
    std::function<void()> read_signals;
    std::function<void()> send_break;
    std::function<void(Session &)> disconnect;
};

int64_t now_milliseconds();

// Sets the signals and writes each change to the history.
void change_signals(PortState &port, const Signals &signals);

// Does what is asked and returns the reply, a compact JSON object: the empty one for a command
// without an answer, an unknown command, and for anything that is no command, null included.
std::string answer(PortState &port, Session &asker, const json_object *request,
                   const PortActions &actions);

} // namespace sim
