// Loaded in front of the C library (LD_PRELOAD): what the program logs, by vsyslog as libubox does,
// is appended to the file that ZORVAD_CAPTURED_LOG names, as lines "ident facility.priority text".
// With ZORVAD_STOPPED_LINE the terminal is a serial line that has stopped since the program's first
// settings: waiting until it has sent what it holds takes for ever.
// With ZORVAD_LATE_HANDLERS a handler begins late, as one of a program that waits for a processor,
// and so does raise(). With ZORVAD_ENDED_CONNECTING a SIGTERM comes just before connect().
#include <cstdarg>
#include <cstdio>
#include <csignal>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <syslog.h>
#include <termios.h>
#include <unistd.h>

extern "C" void __vsyslog_chk(int priority, int flag, const char *format, va_list arguments);

namespace {

const char *log_ident = "?";
int log_facility = LOG_USER;

void (*late_handlers[NSIG])(int);

void call_late(int number)
{
    usleep(300);
    late_handlers[number](number);
}

template <typename Function>
Function *next(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

} // namespace

void openlog(const char *ident, int, int facility)
{
    log_ident = ident;
    log_facility = facility;
}

void vsyslog(int priority, const char *format, va_list arguments)
{
    char line[8192];
    int length = snprintf(line, sizeof line, "%s %d.%d ", log_ident, log_facility, priority & 7);
    length += vsnprintf(line + length, sizeof line - size_t(length) - 1, format, arguments);
    if (length > int(sizeof line) - 2) {
        length = sizeof line - 2;
    }
    if (line[length - 1] != '\n') {
        line[length++] = '\n';
    }
    const char *path = getenv("ZORVAD_CAPTURED_LOG");
    const int fd = path == nullptr ? -1 : open(path, O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd >= 0) {
        [[maybe_unused]] const ssize_t written = write(fd, line, size_t(length));
        close(fd);
    }
}

void __vsyslog_chk(int priority, int, const char *format, va_list arguments)
{
    vsyslog(priority, format, arguments);
}

int tcsetattr(int fd, int when, const termios *settings)
{
    static int calls;
    if (getenv("ZORVAD_STOPPED_LINE") != nullptr && calls++ > 0 && when != TCSANOW) {
        for (;;) {
            pause();
        }
    }
    return next<int(int, int, const termios *)>("tcsetattr")(fd, when, settings);
}

int sigaction(int number, const struct sigaction *action, struct sigaction *old) noexcept
{
    const auto real = next<int(int, const struct sigaction *, struct sigaction *)>("sigaction");
    const auto before = late_handlers[number];
    struct sigaction late;
    if (action != nullptr && getenv("ZORVAD_LATE_HANDLERS") != nullptr &&
        (action->sa_flags & SA_SIGINFO) == 0 && action->sa_handler != SIG_DFL &&
        action->sa_handler != SIG_IGN) {
        late_handlers[number] = action->sa_handler;
        late = *action;
        late.sa_handler = call_late;
        action = &late;
    }
    const int result = real(number, action, old);
    if (old != nullptr && old->sa_handler == call_late) {
        old->sa_handler = before;
    }
    return result;
}

// As musl has it: with all signals blocked.
int raise(int number) noexcept
{
    const auto real = next<int(int)>("raise");
    if (getenv("ZORVAD_LATE_HANDLERS") == nullptr) {
        return real(number);
    }
    sigset_t all, before;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, &before);
    usleep(300);
    const int result = real(number);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    return result;
}

int connect(int fd, const sockaddr *name, socklen_t size)
{
    if (getenv("ZORVAD_ENDED_CONNECTING") != nullptr) {
        raise(SIGTERM);
    }
    return next<int(int, const sockaddr *, socklen_t)>("connect")(fd, name, size);
}
