#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <initializer_list>
#include <utility>

#include "dep/trell.h"
#include "string_list.h"

namespace {

// Descriptors, -1 where there is none.
struct Pipe {
    int read_end = -1;
    int write_end = -1;
};

// The pipes of one call: the child's standard input and output, and the one that brings the errno
// of a child that could not exec. The exec closes it.
struct Pipes {
    Pipe in;
    Pipe out;
    Pipe status;
};

void close_end(int &end)
{
    if (end >= 0) {
        const int saved = errno;
        close(end);
        errno = saved;
        end = -1;
    }
}

void close_pipe(Pipe &pipe)
{
    close_end(pipe.read_end);
    close_end(pipe.write_end);
}

// Moves an end off the standard streams, where it lands when the caller has them closed: there the
// child would overwrite it.
bool lift(int &end)
{
    if (end > STDERR_FILENO) {
        return true;
    }
    int low = end;
    end = fcntl(low, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    close_end(low);
    return end >= 0;
}

bool open_pipe(Pipe &pipe)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return false;
    }
    pipe = {ends[0], ends[1]};
    return lift(pipe.read_end) && lift(pipe.write_end);
}

bool is_named(const char *entry, const char *name)
{
    const size_t length = strlen(name);
    return strncmp(entry, name, length) == 0 && entry[length] == '=';
}

// The caller's environment with the pairs in the place of entries of their names.
struct string_list *make_environment(const char *const *pairs)
{
    struct string_list *list = _sl_new(nullptr);
    bool complete = list != nullptr;
    for (char **entry = environ; complete && entry != nullptr && *entry != nullptr; ++entry) {
        bool replaced = false;
        for (const char *const *pair = pairs; pair != nullptr && *pair != nullptr; pair += 2) {
            replaced = replaced || is_named(*entry, *pair);
        }
        complete = replaced || _sl_append(list, *entry);
    }
    for (const char *const *pair = pairs; complete && pair != nullptr && *pair != nullptr;
         pair += 2) {
        complete = sl_append_printf(list, "%s=%s", pair[0], pair[1]);
    }
    if (!complete) {
        sl_free(list);
        return nullptr;
    }
    return list;
}

// The limit may be a billion, the descriptors of this program are few.
void mark_close_on_exec()
{
    const long limit = sysconf(_SC_OPEN_MAX);
    const int end = limit < 0 || limit > 65536 ? 65536 : static_cast<int>(limit);
    for (int descriptor = STDERR_FILENO + 1; descriptor < end; ++descriptor) {
        fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    }
}

void reset_signals()
{
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; ++number) {
        sigaction(number, &action, nullptr);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

// Between fork and exec: no allocation, no handlers of the caller's. Returns only on failure.
void run(Pipes &pipes, char **arguments, char **environment)
{
    reset_signals();
    if (dup2(pipes.in.read_end, STDIN_FILENO) >= 0 &&
        dup2(pipes.out.write_end, STDOUT_FILENO) >= 0) {
        mark_close_on_exec();
        execve(arguments[0], arguments, environment);
    }
}

// Waits until the child has started its program, or for its errno; 0 when it has.
int wait_for_exec(int status)
{
    int error = 0;
    ssize_t got;
    do {
        got = read(status, &error, sizeof(error));
    } while (got < 0 && errno == EINTR);
    return got == sizeof(error) ? error : 0;
}

// Signals stay blocked until a child that failed is reaped, so that no SIGCHLD handler meets it.
pid_t start(Pipes &pipes, char **arguments, char **environment)
{
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, &before);
    pid_t child = fork();
    int error = child < 0 ? errno : 0;
    if (child == 0) {
        run(pipes, arguments, environment);
        error = errno;
        const ssize_t told = write(pipes.status.write_end, &error, sizeof(error));
        _exit(told < 0 ? 126 : 127);
    }
    if (child > 0) {
        close_end(pipes.status.write_end);
        error = wait_for_exec(pipes.status.read_end);
    }
    if (child > 0 && error != 0) {
        // Fails where the caller has children reaped by the system.
        (void)waitpid(child, nullptr, 0);
    }
    sigprocmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return error == 0 ? child : -1;
}

} // namespace

pid_t process_spawn_pipe(const struct string_list *arguments, const char *const *environment,
                         const char *directory, int *in, int *out, int *error)
{
    if (sl_len(arguments) == 0 || directory != nullptr || error != nullptr) {
        errno = EINVAL;
        return -1;
    }
    struct string_list *variables = make_environment(environment);
    Pipes pipes;
    pid_t child = -1;
    if (variables != nullptr && open_pipe(pipes.status) && open_pipe(pipes.in) &&
        open_pipe(pipes.out)) {
        child = start(pipes, arguments->texts, variables->texts);
    }
    if (child > 0) {
        *in = std::exchange(pipes.in.write_end, -1);
        *out = std::exchange(pipes.out.read_end, -1);
    }
    for (Pipe *pipe : {&pipes.in, &pipes.out, &pipes.status}) {
        close_pipe(*pipe);
    }
    sl_free(variables);
    return child;
}
