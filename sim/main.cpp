#include "sim/control.h"
#include "sim/daemon.h"

#include <fcntl.h>

#include <cstdio>
#include <exception>
#include <filesystem>

namespace {

constexpr int STATUS_FAILED = 1;
constexpr int STATUS_USAGE = 2;

// Goes on in a child of its own session; the parent waits until that is ready, prints its process
// id and ends. Returns the descriptor that tells it, -1 where there was no fork.
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
        char byte;
        bool ready = read(ends[0], &byte, 1) == 1;
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

// The client has no option for another place.
void warn_of_place(const std::string &run_directory)
{
    constexpr const char *client_looks_in = "/var/run/zorvad";
    std::error_code ignored;
    if (!std::filesystem::equivalent(run_directory, client_looks_in, ignored)) {
        fprintf(stderr, "zorvad-sim: zorvad-client looks in %s alone, not in %s\n", client_looks_in,
                run_directory.c_str());
    }
}

int serve(const sim::Options &options)
{
    sim::Fd parent;
    if (options.background) {
        parent.reset(to_background());
        if (!parent) {
            perror("zorvad-sim");
            return STATUS_FAILED;
        }
    }
    sim::Daemon daemon(options);
    std::string error;
    if (!daemon.open(error)) {
        fprintf(stderr, "zorvad-sim: %s\n", error.c_str());
        return STATUS_FAILED;
    }
    warn_of_place(options.run_directory);
    for (const sim::PortOptions &port : options.ports) {
        printf("serving %s/%s\n", options.run_directory.c_str(), port.key.c_str());
    }
    puts("ready");
    fflush(stdout);
    (void)!write(parent.get(), "", parent ? 1 : 0); // the parent may have been killed
    parent.reset();
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
    if (options.version) {
        puts("zorvad-sim " ZORVAD_VERSION);
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
