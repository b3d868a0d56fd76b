#include "tui/history_format.h"

#include <inttypes.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

namespace {

constexpr const char *history_line_types[] = {"LOGIN", "KICK", "TX", "RX", "SIGNAL"};

// Where the milliseconds stand in a timestamp.
constexpr size_t MILLISECONDS_AT = 21;

} // namespace

const char *history_line_type(uint32_t type)
{
    constexpr size_t count = sizeof history_line_types / sizeof *history_line_types;
    return type < count ? history_line_types[type] : "";
}

char *format_timestamp(const PortHistoryLine *line, char *buffer, size_t size)
{
    const time_t seconds = static_cast<time_t>(line->timestamp / 1000);
    struct tm local;
    if (line->timestamp < 0 || localtime_r(&seconds, &local) == nullptr ||
        strftime(buffer, size, "[%Y-%m-%dT%H:%M:%S.000%z]", &local) != TIMESTAMP_LENGTH) {
        snprintf(buffer, size, "[%" PRId64 "]", line->timestamp);
        return buffer;
    }
    char digits[4];
    snprintf(digits, sizeof digits, "%03u", static_cast<unsigned>(line->timestamp % 1000));
    memcpy(buffer + MILLISECONDS_AT, digits, 3);
    return buffer;
}
