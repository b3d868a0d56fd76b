// What is behind a port: a program on a pty, a serial device or a pipe that leads back.
#pragma once

#include "sim/fd.h"
#include "sim/options.h"

#include <memory>
#include <optional>
#include <string>

#include <termios.h>

namespace sim {

struct Device {
    Device() = default;
    Device(const Device &) = delete;
    Device &operator=(const Device &) = delete;
    // Hangs up the program, or gives the serial device its settings back.
    ~Device();

    Fd output; // the port's output is read here
    Fd input;  // what clients send is written here; may be none
    pid_t program = -1;
    std::optional<termios> settings_before;
};

// Each opens the device with non-blocking descriptors and returns none with a sentence in error.
std::unique_ptr<Device> start_program(const PortOptions &options, ScreenSize size,
                                      std::string &error);
std::unique_ptr<Device> open_serial(const PortOptions &options, std::string &error);
std::unique_ptr<Device> open_loop_back(std::string &error);

// The text that PORT_INFO gives as "info".
std::string device_info(const PortOptions &options, ScreenSize size);

// The modem lines; false where the device has none, as a pty.
bool read_signals(const Device &device, Signals &signals);
// Begins or ends a break; without effect where the device has no line.
void set_break(const Device &device, bool on);
void set_size(const Device &device, ScreenSize size);

} // namespace sim
