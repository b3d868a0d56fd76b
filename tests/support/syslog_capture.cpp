// Loaded in front of the C library (LD_PRELOAD): what the program logs, by vsyslog as libubox does,
// is appended to the file that ZORVAD_CAPTURED_LOG names, as lines "ident facility.priority text".
// With ZORVAD_STOPPED_LINE the terminal is a serial line that has stopped since the program's first
// settings: waiting until it has sent what it holds takes for ever.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <syslog.h>
#include <termios.h>
#include <unistd.h>

extern "C" void __vsyslog_chk(int priority, int flag, const char *format, va_list arguments);

namespace {

const char *log_ident = "?";
int log_facility = LOG_USER;

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
    const auto real =
        reinterpret_cast<int (*)(int, int, const termios *)>(dlsym(RTLD_NEXT, "tcsetattr"));
    return real(fd, when, settings);
}
