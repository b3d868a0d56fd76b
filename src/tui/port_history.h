// The port history: a tall popup with what the daemon has kept of the port's past, the newest line
// at the bottom.
#pragma once

#include <stdint.h>

#include "dep/trell.h"
#include "link/connection.h"
#include "tui/history_format.h"
#include "tui/widget/widget.h"

struct PortHistoryContext {
    DaemonConnection *conn;
    bool requested;         // SCROLLBACK was queued
    bool loaded;            // its reply has come
    list_head lines;        // PortHistoryLine records in the reply's order; owned
    int32_t count;          // of lines
    int32_t position;       // lines skipped at the bottom, 0 to count
    int32_t timestamp_mode; // 0: hidden, 1: shown
    uint16_t bg;
    uint16_t fg;

    PortHistoryLine *bottom; // the line at position, or the last one; null while there is none
    bool orphaned;           // the widget is gone, and the reply frees the context
};

// Null, with a line in the log, when memory is short.
[[nodiscard]] Widget *port_history_new(DaemonConnection *conn, int x0, int y0, int x1, int y1);

// Callback of its SCROLLBACK request; the context is the PortHistoryContext.
void port_history_on_reply(node *reply, void *context);
