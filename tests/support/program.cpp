#include "support/program.h"

#include "support/text.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <poll.h>
#include <sstream>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace support {

namespace {

void set_size(int terminal, int rows, int columns)
{
    winsize size{};
    size.ws_row = static_cast<unsigned short>(rows);
    size.ws_col = static_cast<unsigned short>(columns);
    ioctl(terminal, TIOCSWINSZ, &size);
}

void close_end(int &fd)
{
    if (fd >= 0) {
        close(fd);
        fd = -1;
    }
}

// A pipe whose end of ours does not block.
void make_pipe(int &ours, int &theirs, bool we_read)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw Failure("no pipe");
    }
    ours = ends[we_read ? 0 : 1];
    theirs = ends[we_read ? 1 : 0];
    fcntl(ours, F_SETFL, O_NONBLOCK);
}

std::string make_log_file()
{
    std::string path = std::filesystem::temp_directory_path() / "zorvad-log-XXXXXX";
    const int fd = mkstemp(path.data());
    if (fd < 0) {
        throw Failure("no file at " + path);
    }
    close(fd);
    return path;
}

std::map<std::string, std::string> make_environment(const Launch &setup,
                                                    const std::string &log_path)
{
    const char *given = getenv("ASAN_OPTIONS");
    // Freed memory is kept for checking, up to 256 MB by default: resident memory would tell
    // nothing.
    constexpr const char *ASAN_OPTIONS = ":verify_asan_link_order=0:quarantine_size_mb=16";
    std::map<std::string, std::string> variables{
        {"PATH", "/usr/local/bin:/usr/bin:/bin"},
        {"HOME", "/"},
        {"LANG", "C.UTF-8"},
        {"TERM", "xterm-256color"},
        {"USER", "tester"},
        {"LD_PRELOAD", ZORVAD_SYSLOG_CAPTURE},
        {"ZORVAD_CAPTURED_LOG", log_path},
        {"ASAN_OPTIONS", std::string(given == nullptr ? "" : given) + ASAN_OPTIONS},
    };
    for (const auto &[name, value] : setup.environment) {
        variables.erase(name);
        if (value) {
            variables[name] = *value;
        }
    }
    return variables;
}

} // namespace

Program::Program(Launch setup)
    : emulator(std::make_unique<Screen>(setup.rows, setup.columns)), log_path(make_log_file())
{
    const char *other_build = getenv("ZORVAD_CLIENT");
    const auto program = std::filesystem::path(setup.arguments.front()).filename();
    if (other_build != nullptr && program == "zorvad-client") {
        setup.arguments.front() = other_build;
    }
    open_terminal(setup);
    open_streams(setup);
    const auto variables = make_environment(setup, log_path);
    child = fork();
    if (child == 0) {
        clearenv();
        for (const auto &[name, value] : variables) {
            setenv(name.c_str(), value.c_str(), 1);
        }
        run_child(setup);
    }
    pidfd = int(syscall(SYS_pidfd_open, child, 0));
    fcntl(pidfd, F_SETFD, FD_CLOEXEC);
    watch(pidfd, [this] { return short(status ? 0 : POLLIN); });
}

Program::~Program()
{
    if (!status) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    for (const auto &[fd, watch] : watches) {
        loop().forget(watch);
    }
    if (input_end != master) {
        close_end(input_end);
    }
    if (output_end != master) {
        close_end(output_end);
    }
    for (int *fd : {&master, &error_end, &pidfd, &slave, &program_ends[0], &program_ends[1],
                    &program_ends[2]}) {
        close_end(*fd);
    }
    std::filesystem::remove(log_path);
}

void Program::watch(int fd, std::function<short()> wanted)
{
    watches[fd] = loop().watch({fd, std::move(wanted), [this, fd](short events) {
                                    fd == pidfd ? reap() : collect(fd, events);
                                }});
}

void Program::stop_watching(int fd)
{
    loop().forget(watches.at(fd));
    watches.erase(fd);
}

void Program::open_terminal(const Launch &setup)
{
    master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    char path[64];
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0 ||
        ptsname_r(master, path, sizeof path) != 0) {
        throw Failure("no pseudo-terminal");
    }
    terminal_path = path;
    set_size(master, setup.rows, setup.columns);
    slave = open(path, O_RDWR | O_NOCTTY | O_CLOEXEC);
}

void Program::open_streams(const Launch &setup)
{
    const auto input_wanted = [this] { return short(unsent.size() > 0 ? POLLOUT : 0); };
    const auto output_wanted = [this] { return short(reading ? POLLIN : 0); };
    input_end = output_end = master;
    for (const int stream : {0, 1}) {
        const auto &[kind, path] = stream == 0 ? setup.input : setup.output;
        int &end = stream == 0 ? input_end : output_end;
        if (kind == Stream::PIPE) {
            make_pipe(end, program_ends[stream], stream == 1);
            stream == 0 ? watch(end, input_wanted) : watch(end, output_wanted);
        } else if (kind == Stream::FILE) {
            const int flags = stream == 0 ? O_RDONLY : O_WRONLY | O_CREAT | O_TRUNC;
            program_ends[stream] = open(path.c_str(), flags | O_CLOEXEC, 0600);
        } else {
            program_ends[stream] = dup(slave);
        }
    }
    const auto master_wanted = [this] {
        return short((reading ? POLLIN : 0) |
                     (input_end == master && unsent.size() > 0 ? POLLOUT : 0));
    };
    watch(master, master_wanted);
    make_pipe(error_end, program_ends[2], true);
    watch(error_end, [] { return short(POLLIN); });
    for (int fd : program_ends) {
        fcntl(fd, F_SETFD, FD_CLOEXEC);
    }
}

void Program::run_child(const Launch &setup)
{
    setsid();
    if (setup.controlling) {
        ioctl(slave, TIOCSCTTY, 0);
    }
    for (int stream = 0; stream < 3; ++stream) {
        dup2(program_ends[stream], stream);
    }
    ::signal(SIGPIPE, SIG_DFL);
    for (int number : setup.ignored_signals) {
        ::signal(number, SIG_IGN);
    }
    if (setup.before_exec) {
        setup.before_exec();
    }
    std::vector<char *> arguments;
    for (const std::string &argument : setup.arguments) {
        arguments.push_back(const_cast<char *>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    execv(arguments[0], arguments.data());
    dprintf(2, "cannot run %s\n", arguments[0]);
    _exit(126);
}

void Program::take(std::string_view bytes)
{
    output_size += bytes.size();
    if (!counting_only) {
        written += bytes;
        if (output_end == master) {
            emulator->feed(bytes);
        }
    }
}

void Program::collect(int fd, short events)
{
    if ((events & POLLOUT) != 0 && fd == input_end && unsent.size() > 0) {
        const std::string_view piece = unsent.next(65536);
        const ssize_t count = write(fd, piece.data(), piece.size());
        if (count > 0) {
            unsent.took(size_t(count));
        }
        if (unsent.size() == 0 && input_ending) {
            stop_watching(input_end);
            close_end(input_end);
            return;
        }
    }
    if ((events & (POLLIN | POLLHUP | POLLERR)) == 0 || (fd == input_end && fd != master)) {
        return;
    }
    char bytes[65536];
    const ssize_t count = read(fd, bytes, std::min(read_size, sizeof bytes));
    if (count <= 0) {
        return;
    }
    const std::string_view piece(bytes, size_t(count));
    if (fd == error_end) {
        error_written += piece;
    } else if (fd == output_end) {
        take(piece);
    } else { // the terminal, while standard output is elsewhere
        emulator->feed(piece);
    }
}

void Program::reap()
{
    int result = 0;
    if (waitpid(child, &result, WNOHANG) == child) {
        status = WIFSIGNALED(result) ? 128 + WTERMSIG(result) : WEXITSTATUS(result);
    }
}

long Program::bytes_read() const
{
    const std::string counters = read_file("/proc/" + std::to_string(child) + "/io");
    return counters.starts_with("rchar: ") ? atol(counters.c_str() + 7) : LONG_MAX;
}

void Program::send(std::string_view bytes)
{
    if (unsent.size() == 0) {
        read_goal = bytes_read();
        read_goal = read_goal == LONG_MAX ? 0 : read_goal;
    }
    read_goal += long(bytes.size());
    unsent.add(bytes);
}

void Program::wait_until_taken()
{
    wait_until([this] { return unsent.size() == 0; }, "its input to be taken");
}

void Program::wait_until_read()
{
    // Bytes on their way through the kernel are neither in the terminal nor read, and what else the
    // program reads counts as well: it has to stay like this for a while.
    constexpr std::chrono::milliseconds WHILE{40};
    auto since = std::chrono::steady_clock::now();
    wait_until(
        [&] {
            int left = 0;
            const auto now = std::chrono::steady_clock::now();
            if (unsent.size() > 0 || ioctl(program_ends[0], FIONREAD, &left) != 0 || left > 0 ||
                bytes_read() < read_goal) {
                since = now;
            }
            return now - since >= WHILE;
        },
        "its input to be read");
}

void Program::end_input()
{
    input_ending = true;
    if (unsent.size() == 0) {
        stop_watching(input_end);
        close_end(input_end);
    }
}

void Program::close_output()
{
    stop_watching(output_end);
    close_end(output_end);
}

void Program::resize(int rows, int columns)
{
    emulator->resize(std::min(rows, 512), std::min(columns, 1024)); // no client draws more
    set_size(master, rows, columns);
}

void Program::take_terminal_away()
{
    stop_watching(master);
    for (int *fd : {&slave, &program_ends[0], &program_ends[1], &master}) {
        close_end(*fd);
    }
    input_end = output_end = -1;
}

void Program::wait_until(const std::function<bool()> &condition, const std::string &what)
{
    bool met = false; // a condition need not stay
    (void)loop().run_until([&] {
        met = condition();
        return met || (status && what != "its end");
    });
    if (!met) {
        throw Failure("waited in vain for " + what + "\n" + description());
    }
}

void Program::wait_for(std::string_view text)
{
    wait_until([&] { return written.find(text) != std::string::npos; }, visible(text));
}

void Program::wait_for_output(std::string_view exactly)
{
    if (!loop().run_until([&] { return written.size() >= exactly.size(); }) || written != exactly) {
        throw Failure("the output is " + describe_difference(exactly, written) + "\n" +
                      description());
    }
}

void Program::wait_for_screen(std::string_view text)
{
    wait_until([&] { return emulator->text().find(text) != std::string::npos; },
               "\"" + std::string(text) + "\" on the screen");
}

void Program::wait_for_error(std::string_view text)
{
    wait_until([&] { return error_written.find(text) != std::string::npos; },
               visible(text) + " on standard error");
}

void Program::signal(int number) const
{
    kill(child, number);
}

int Program::wait_for_exit()
{
    wait_until([this] { return status.has_value(); }, "its end");
    // What it wrote last may still be on its way.
    for (int fd : {master, output_end, error_end}) {
        for (size_t before = size_t(-1); fd >= 0 && reading;) {
            const size_t now = output_size + error_written.size();
            if (now == before) {
                break;
            }
            before = now;
            collect(fd, POLLIN);
        }
    }
    return *status;
}

termios Program::settings() const
{
    termios now{};
    tcgetattr(slave, &now);
    return now;
}

int Program::stream_flags(int stream) const
{
    return fcntl(program_ends[stream], F_GETFL);
}

void Program::make_blocking(int stream) const
{
    fcntl(program_ends[stream], F_SETFL, stream_flags(stream) & ~O_NONBLOCK);
}

long Program::status_value(std::string_view name) const
{
    std::istringstream lines(read_file("/proc/" + std::to_string(child) + "/status"));
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(std::string(name) + ":")) {
            return atol(line.c_str() + name.size() + 1);
        }
    }
    return -1;
}

int Program::waiting_input() const
{
    int count = 0;
    ioctl(slave, FIONREAD, &count);
    return count;
}

long Program::cpu_ticks() const
{
    std::string line = read_file("/proc/" + std::to_string(child) + "/stat");
    std::istringstream fields(line.substr(line.rfind(')') + 1));
    std::vector<std::string> values{std::istream_iterator<std::string>(fields), {}};
    return values.size() < 13 ? -1 : atol(values[11].c_str()) + atol(values[12].c_str());
}

std::string Program::log() const
{
    return read_file(log_path);
}

std::string Program::description() const
{
    return "--- screen\n" + emulator->text() + "--- output\n" + visible(written) +
           "\n--- standard error\n" + visible(error_written) + "\n--- log\n" + log() +
           "--- status: " + (status ? std::to_string(*status) : "running") + "\n";
}

std::string describe(const termios &settings)
{
    std::string text = std::to_string(settings.c_iflag) + " " + std::to_string(settings.c_oflag) +
                       " " + std::to_string(settings.c_cflag) + " " +
                       std::to_string(settings.c_lflag);
    for (const cc_t key : settings.c_cc) {
        text += " " + std::to_string(key);
    }
    return text;
}

} // namespace support
