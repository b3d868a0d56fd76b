#include "bench/session.h"

#include <errno.h>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <signal.h>
#include <stdexcept>
#include <sys/wait.h>

#include "bench/measure.h"

namespace {

std::string status_line(pid_t process, const char *name)
{
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    const std::string start = std::string(name) + ":";
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(start)) {
            return line.substr(start.size());
        }
    }
    throw std::runtime_error("no " + start + " process " + std::to_string(process) + " is gone");
}

long sum_status(const Session &session, const char *name)
{
    long sum = 0;
    for (pid_t process : session.processes) {
        sum += std::stol(status_line(process, name));
    }
    return sum;
}

} // namespace

const char *program_name(Program program)
{
    constexpr const char *names[] = {"relay", "socat",  "dtach", "picocom",
                                     "tmux",  "screen", "basic", "terminal UI"};
    return names[static_cast<size_t>(program)];
}

Session::Session(Program which, Output output, Size size) : program(which)
{
    if (program == Program::PICOCOM) {
        device = open_terminal(name_of_device, size);
        make_raw(device.get());
    }
    std::string terminal;
    keyboard = open_terminal(terminal, size);
    spawn(terminal, output);
}

Session::~Session()
{
    pane_control.close(); // ends the pane, and the multiplexer with its last one
    keyboard.close();
    for (pid_t process : processes) {
        kill(process, SIGKILL);
    }
    waitpid(processes[0], nullptr, 0);
}

bool Session::connects_by_pane() const
{
    return program == Program::TMUX || program == Program::SCREEN || program == Program::DTACH;
}

std::vector<std::string> Session::command()
{
    const std::string pane = daemon.path("pane.sck");
    switch (program) {
    case Program::RELAY:
        return {BENCH_RELAY, daemon.path("data.sck")};
    case Program::SOCAT:
        return {"socat", "STDIN,raw,echo=0!!STDOUT", "UNIX-CONNECT:" + daemon.path("data.sck")};
    case Program::DTACH:
        return {"dtach", "-c", daemon.path("dtach.sck"), "-z", "-E", BENCH_PANE, pane};
    case Program::PICOCOM:
        return {"picocom", "--noinit", "--noreset", "--nolock", name_of_device};
    case Program::TMUX:
        return {"tmux",        "-u",       "-f", "/dev/null", "-S", daemon.path("tmux.sck"),
                "new-session", BENCH_PANE, pane};
    case Program::SCREEN:
        return {"screen",     "-c", "/dev/null", "-U",       "-S",
                daemon.key(), "-h", "1000",      BENCH_PANE, pane};
    case Program::BASIC:
        return {BENCH_CLIENT, daemon.key(), "--basic-interface"};
    case Program::TUI:
        return {BENCH_CLIENT, daemon.key()};
    }
    return {};
}

void Session::spawn(const std::string &terminal, Output output)
{
    int ends[2] = {-1, -1};
    if (output == Output::PIPE && pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    processes.push_back(spawn_on_terminal(command(), terminal, "xterm-256color", ends[1]));
    if (output == Output::PIPE) {
        close(ends[1]);
        screen_pipe = Fd(ends[0]);
        fcntl(ends[0], F_SETFL, O_NONBLOCK);
    }
}

void Session::connect(std::string &seen)
{
    if (program == Program::PICOCOM) {
        port = std::move(device);
        return;
    }
    const int listener = connects_by_pane() ? daemon.pane_listener() : daemon.data_listener();
    const Deadline deadline("connecting", *this);
    pollfd watched[] = {{listener, POLLIN, 0}, {screen(), POLLIN, 0}};
    while (watched[0].revents == 0) {
        deadline.wait(watched);
        if (watched[1].revents != 0) {
            seen += read_some(screen());
        }
    }
    if (!connects_by_pane()) {
        port = daemon.accept_data();
        return;
    }
    Port::Pane pane = daemon.accept_pane();
    port = std::move(pane.terminal);
    pane_control = std::move(pane.control);
    processes.push_back(pane.parent);
}

std::string_view read_some(int fd, size_t limit)
{
    static char bytes[1 << 16];
    const ssize_t count = read(fd, bytes, std::min(limit, sizeof bytes));
    if (count == 0 || (count < 0 && errno != EAGAIN)) {
        throw std::runtime_error("the program under test has ended");
    }
    return {bytes, static_cast<size_t>(std::max<ssize_t>(count, 0))};
}

size_t write_some(int fd, std::string_view bytes)
{
    const ssize_t count = write(fd, bytes.data(), bytes.size());
    if (count < 0 && errno != EAGAIN) {
        throw std::runtime_error("the program under test takes no more");
    }
    return static_cast<size_t>(std::max<ssize_t>(count, 0));
}

double processor_time(const Session &session)
{
    double nanoseconds = 0;
    for (pid_t process : session.processes) {
        std::ifstream file("/proc/" + std::to_string(process) + "/schedstat");
        double running = 0;
        file >> running;
        nanoseconds += running;
    }
    return nanoseconds / 1e9;
}

size_t resident(const Session &session)
{
    return static_cast<size_t>(sum_status(session, "VmRSS")) * 1024;
}

size_t peak_resident(const Session &session)
{
    return static_cast<size_t>(sum_status(session, "VmHWM")) * 1024;
}

void reset_peak(const Session &session)
{
    for (pid_t process : session.processes) {
        std::ofstream("/proc/" + std::to_string(process) + "/clear_refs") << "5";
    }
}

long context_switches(const Session &session)
{
    return sum_status(session, "voluntary_ctxt_switches");
}
