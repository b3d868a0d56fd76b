// The control socket of a port: changes it while it runs. A line asks for one thing; the reply is
// any number of lines and then "ok", or "error: ..." alone.
#pragma once

#include "sim/fd.h"
#include "sim/loop.h"

#include <string>
#include <string_view>
#include <vector>

namespace sim {

class Port;

class ControlConnection {
public:
    ControlConnection(Port &port, Loop &loop, Fd fd);

    bool closed() const { return !fd_; }

private:
    void on_input();

    Port &port_;
    Fd fd_;
    Watch watch_;
    std::string line_;
};

// Sends the lines to the control socket in directory and prints the replies. Returns the exit
// status: 0, or 1 where a line or the connection failed.
int control_main(const std::string &directory, const std::vector<std::string> &lines);

} // namespace sim
