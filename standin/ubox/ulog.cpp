#include "dep/ubox.h"

namespace {

int log_channels = ULOG_SYSLOG;
int log_facility = LOG_DAEMON;
const char *log_ident;
int log_threshold = LOG_DEBUG;
bool syslog_is_open;

void log_to_syslog(int priority, const char *format, va_list arguments)
{
    if (!syslog_is_open) {
        openlog(log_ident, 0, log_facility);
        syslog_is_open = true;
    }
    vsyslog(priority, format, arguments);
}

void log_to_stderr(const char *format, va_list arguments)
{
    if (log_ident) {
        (void)fprintf(stderr, "%s: ", log_ident);
    }
    (void)vfprintf(stderr, format, arguments);
}

} // namespace

void ulog_open(int channels, int facility, const char *ident)
{
    ulog_close();
    log_channels = channels;
    log_facility = facility;
    log_ident = ident;
}

void ulog_close(void)
{
    if (syslog_is_open) {
        closelog();
    }
    syslog_is_open = false;
}

void ulog_threshold(int threshold)
{
    log_threshold = threshold;
}

void ulog(int priority, const char *format, ...)
{
    if (priority > log_threshold) {
        return;
    }
    va_list arguments;
    if (log_channels & ULOG_SYSLOG) {
        va_start(arguments, format);
        log_to_syslog(priority, format, arguments);
        va_end(arguments);
    }
    if (log_channels & ULOG_STDIO) {
        va_start(arguments, format);
        log_to_stderr(format, arguments);
        va_end(arguments);
    }
}
