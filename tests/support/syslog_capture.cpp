// Loaded in front of the C library (LD_PRELOAD): what the program logs, by vsyslog as libubox does,
// is appended to the file that ZORVAD_CAPTURED_LOG names, as lines "ident facility.priority text".
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <syslog.h>
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
