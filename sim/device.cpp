#include "sim/device.h"

#include <fcntl.h>
#include <pty.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <utmp.h>

#include <cerrno>
#include <cstring>

namespace sim {
namespace {

std::unique_ptr<Device> failed(std::string &error, const std::string &what)
{
    error = what + ": " + strerror(errno);
    return nullptr;
}

bool set_non_blocking(int fd)
{
    return fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK) == 0;
}

// Two descriptors of the same device, since each direction is watched by itself.
bool split(Device &device)
{
    device.input.reset(fcntl(device.output.get(), F_DUPFD_CLOEXEC, 3));
    return device.input && set_non_blocking(device.output.get());
}

[[noreturn]] void become_program(int terminal, const PortOptions &options)
{
    // What this process ignores, or a script that started it, the program must not.
    for (int number = 1; number < SIGRTMIN; number++) {
        signal(number, SIG_DFL);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    if (login_tty(terminal) == 0) {
        setenv("TERM", options.term.c_str(), 1);
        unsetenv("LINES");
        unsetenv("COLUMNS");
        execl("/bin/sh", "sh", "-c", options.target.c_str(), nullptr);
    }
    _exit(127);
}

bool apply_settings(const LineSettings &line, termios &settings)
{
    constexpr tcflag_t bits[] = {CS5, CS6, CS7, CS8};
    cfmakeraw(&settings);
    settings.c_cflag &= ~static_cast<tcflag_t>(CSIZE | PARENB | PARODD | CSTOPB | CRTSCTS);
    settings.c_cflag |= CLOCAL | CREAD | bits[line.data_bits - 5];
    if (line.parity != 'N') {
        settings.c_cflag |= PARENB;
    }
    if (line.parity == 'O') {
        settings.c_cflag |= PARODD;
    }
    if (line.stop_bits == 2) {
        settings.c_cflag |= CSTOPB;
    }
    if (line.flow == FlowControl::Hardware) {
        settings.c_cflag |= CRTSCTS;
    }
    settings.c_iflag &= ~static_cast<tcflag_t>(IXON | IXOFF | IXANY);
    if (line.flow == FlowControl::Software) {
        settings.c_iflag |= IXON | IXOFF;
    }
    settings.c_cc[VMIN] = 1;
    settings.c_cc[VTIME] = 0;
    return cfsetspeed(&settings, termios_speed(line.baud)) == 0;
}

} // namespace

Device::~Device()
{
    if (program > 0) {
        kill(program, SIGHUP);
    }
    if (settings_before && output) {
        tcsetattr(output.get(), TCSANOW, &*settings_before);
    }
}

std::unique_ptr<Device> start_program(const PortOptions &options, ScreenSize size,
                                      std::string &error)
{
    winsize window{.ws_row = size.rows, .ws_col = size.columns};
    int controller = -1;
    int terminal = -1;
    if (openpty(&controller, &terminal, nullptr, nullptr, &window) < 0) {
        return failed(error, "no pty for " + options.target);
    }
    auto device = std::make_unique<Device>();
    device->output.reset(controller);
    Fd program_side(terminal);
    fcntl(controller, F_SETFD, FD_CLOEXEC);
    fcntl(terminal, F_SETFD, FD_CLOEXEC);
    termios settings;
    if (tcgetattr(terminal, &settings) == 0) {
        settings.c_iflag |= IUTF8;
        tcsetattr(terminal, TCSANOW, &settings);
    }
    if (!split(*device)) {
        return failed(error, "no pty for " + options.target);
    }
    device->program = fork();
    if (device->program < 0) {
        return failed(error, "cannot start " + options.target);
    }
    if (device->program == 0) {
        become_program(program_side.release(), options);
    }
    return device;
}

std::unique_ptr<Device> open_serial(const PortOptions &options, std::string &error)
{
    const std::string &path = options.target;
    auto device = std::make_unique<Device>();
    device->output.reset(open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (!device->output) {
        return failed(error, "cannot open " + path);
    }
    termios settings;
    if (tcgetattr(device->output.get(), &settings) < 0) {
        error = path + " is not a serial device";
        return nullptr;
    }
    if (flock(device->output.get(), LOCK_EX | LOCK_NB) < 0) {
        error = path + " is in use by another process";
        return nullptr;
    }
    device->settings_before = settings;
    if (!apply_settings(options.line, settings) ||
        tcsetattr(device->output.get(), TCSANOW, &settings) < 0 || !split(*device)) {
        return failed(error, "cannot set up " + path);
    }
    return device;
}

std::unique_ptr<Device> open_loop_back(std::string &error)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) < 0) {
        return failed(error, "cannot make a loop-back");
    }
    auto device = std::make_unique<Device>();
    device->output.reset(ends[0]);
    device->input.reset(ends[1]);
    return device;
}

std::string device_info(const PortOptions &options, ScreenSize size)
{
    if (!options.info.empty()) {
        return options.info;
    }
    switch (options.kind) {
    case PortKind::Program:
        return options.target + " " + std::to_string(size.columns) + "x" +
               std::to_string(size.rows);
    case PortKind::Serial:
        return options.target + " " + describe(options.line);
    default:
        return "loop-back";
    }
}

bool read_signals(const Device &device, Signals &signals)
{
    int lines = 0;
    if (!device.output || ioctl(device.output.get(), TIOCMGET, &lines) < 0) {
        return false;
    }
    signals.dcd = (lines & TIOCM_CD) != 0;
    signals.dsr = (lines & TIOCM_DSR) != 0;
    signals.ri = (lines & TIOCM_RI) != 0;
    signals.cts = (lines & TIOCM_CTS) != 0;
    return true;
}

void set_break(const Device &device, bool on)
{
    // A pty refuses both, and has no line that could show a break.
    if (device.output) {
        ioctl(device.output.get(), on ? TIOCSBRK : TIOCCBRK);
    }
}

void set_size(const Device &device, ScreenSize size)
{
    winsize window{.ws_row = size.rows, .ws_col = size.columns};
    if (device.program > 0) {
        ioctl(device.output.get(), TIOCSWINSZ, &window);
    }
}

} // namespace sim
