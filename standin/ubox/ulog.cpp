#include "dep/ubox.h"

namespace {

int log_channels = ULOG_SYSLOG;
const char *log_ident;
int log_threshold = LOG_DEBUG;

} // namespace

void ulog_open(int channels, int facility, const char *ident)
{
    log_channels = channels;
    log_ident = ident;
    openlog(ident, 0, facility);
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
    va_start(arguments, format);
    if (log_channels & ULOG_STDIO) {
        (void)fprintf(stderr, "%s: ", log_ident);
        (void)vfprintf(stderr, format, arguments);
    } else {
        vsyslog(priority, format, arguments);
    }
    va_end(arguments);
}
