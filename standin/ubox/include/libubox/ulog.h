// Logging to syslog or to standard error.
#pragma once

#include <syslog.h>

enum {
    ULOG_SYSLOG = 2,
    ULOG_STDIO = 4, // "ident: text" on standard error
};

// Chooses one of the channels, the syslog facility and the ident, which must outlive the logging.
// Until then messages go to syslog.
void ulog_open(int channels, int facility, const char *ident);
// Drops messages of a priority number above `threshold`; none are dropped at first.
void ulog_threshold(int threshold);
void ulog(int priority, const char *format, ...) __attribute__((format(printf, 2, 3)));
