#include "sim/control.h"
#include "sim/daemon.h"

#include <fcntl.h>

#include <cstdio>
#include <exception>

namespace {

constexpr int STATUS_FAILED = 1;
constexpr int STATUS_USAGE = 2;

// Goes on in a child of its own session; the parent waits until that is ready, prints its process
// id and ends. Returns the descriptor for the word "ready", -1 where there was no fork.
int to_background()
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) < 0) {
        return -1;
    }
    pid_t child = fork();
    if (child < 0) {
        return -1;
    }
    if (child > 0) {
        close(ends[1]);
        char word[8];
        bool ready = read(ends[0], word, sizeof word) > 0;
        if (ready) {
            printf("%d\n", static_cast<int>(child));
        }
        fflush(stdout);
        _exit(ready ? 0 : STATUS_FAILED);
    }
    setsid();
    int null = open("/dev/null", O_RDWR);
    dup2(null, STDIN_FILENO);
    dup2(null, STDOUT_FILENO);
    close(null);
    return ends[1];
}

void tell_ready(const sim::Options &options)
{
    constexpr std::string_view ready = "ready\n";
    if (options.ready_fd >= 0) {
        (void)!write(options.ready_fd, ready.data(), ready.size()); // nobody may listen
        close(options.ready_fd);
        return;
    }
    for (const sim::PortOptions &port : options.ports) {
        printf("serving %s/%s\n", options.run_directory.c_str(), port.key.c_str());
    }
    fputs(ready.data(), stdout);
    fflush(stdout);
}

int serve(sim::Options &options)
{
    if (options.background && (options.ready_fd = to_background()) < 0) {
        perror("zorvad-sim");
        return STATUS_FAILED;
    }
    // A program behind a port must not keep it open.
    if (options.ready_fd >= 0) {
        fcntl(options.ready_fd, F_SETFD, FD_CLOEXEC);
    }
    sim::Daemon daemon(options);
    std::string error;
    if (!daemon.open(error)) {
        fprintf(stderr, "zorvad-sim: %s\n", error.c_str());
        return STATUS_FAILED;
    }
    tell_ready(options);
    daemon.run();
    return 0;
}

int run(const std::vector<std::string> &arguments)
{
    sim::Options options;
    std::string error;
    if (!sim::parse_options(arguments, options, error)) {
        fprintf(stderr, "zorvad-sim: %s\nTry 'zorvad-sim --help'.\n", error.c_str());
        return STATUS_USAGE;
    }
    if (options.help) {
        fputs(sim::HELP_TEXT, stdout);
        return 0;
    }
    if (!options.control_key.empty()) {
        return sim::control_main(options.run_directory + "/" + options.control_key,
                                 options.control_lines);
    }
    return serve(options);
}

} // namespace

int main(int argc, char **argv)
{
    try {
        return run(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
    } catch (const std::exception &exception) {
        fprintf(stderr, "zorvad-sim: %s\n", exception.what());
        return STATUS_FAILED;
    }
}
