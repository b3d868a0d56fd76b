// How the port history shows its lines: pure functions of a line.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "dep/ubox.h"

enum HistoryLineType : uint32_t { LINE_LOGIN, LINE_KICK, LINE_TX, LINE_RX, LINE_SIGNAL };

// One line of the port's past; the text stands behind the record.
struct PortHistoryLine {
    list_head list;
    uint32_t type;          // a HistoryLineType, or what else the daemon sent
    int64_t timestamp;      // milliseconds since the Unix epoch
    int64_t scrollback_idx; // the daemon's number of the line
    uint32_t length;        // bytes of text
    char text[];            // and a NUL
};

// Name of a line type; empty for a type that there is none for.
const char *history_line_type(uint32_t type);

constexpr char TIMESTAMP_PLACEHOLDER[] = "[YYYY-MM-ddTHH:mm:ss.SSS+0000]";
constexpr size_t TIMESTAMP_LENGTH = sizeof TIMESTAMP_PLACEHOLDER - 1;

// Writes the line's timestamp as local time into buffer, in the form of TIMESTAMP_PLACEHOLDER, and
// returns buffer. A time that does not fit the form (before 1970 or after 9999) is written as its
// number of milliseconds instead. size is at least TIMESTAMP_LENGTH + 1.
char *format_timestamp(const PortHistoryLine *line, char *buffer, size_t size);
