#include "tui/history_format.h"

#include <inttypes.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

namespace {

constexpr struct {
    HistoryLineType type;
    const char *name;
} history_line_types[] = {{LINE_LOGIN, "LOGIN"},
                          {LINE_KICK, "KICK"},
                          {LINE_TX, "TX"},
                          {LINE_RX, "RX"},
                          {LINE_SIGNAL, "SIGNAL"}};

// Where the milliseconds stand in a timestamp.
constexpr size_t MILLISECONDS_AT = 21;

} // namespace

const char *history_line_type(uint32_t type)
{
    for (const auto &known : history_line_types) {
        if (known.type == type) {
            return known.name;
        }
    }
    return "";
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
