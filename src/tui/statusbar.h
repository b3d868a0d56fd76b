// The bottom row: the port's label, the connected time, its users and signals and the key that
// opens the help, kept fresh with PORT_INFO.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "dep/trell.h"
#include "link/connection.h"
#include "tui/widget/widget.h"

struct StatusbarContext {
    DaemonConnection *conn;
    uint16_t fg;
    uint16_t bg;
    bool loaded;  // the fields below hold a reply
    bool pending; // a PORT_INFO of this widget is queued or awaits its reply
    char *label;  // own copies
    char *users;
    char *info;
    bool dcd, dsr, ri, cts; // modem signals that are up
};

// Null, with a line in the log, when memory is short.
[[nodiscard]] Widget *statusbar_new(DaemonConnection *conn, int x0, int y0, int x1, int y1);

// Callback of its PORT_INFO requests; the context is the StatusbarContext.
void statusbar_on_port_info(node *reply, void *context);

// Builds the bar's text, of at most size - 2 bytes, into buffer and returns buffer. Printable: no
// control characters, whole UTF-8 characters only.
char *statusbar_format(Widget *widget, char *buffer, size_t size);
