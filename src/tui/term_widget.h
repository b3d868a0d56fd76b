// Shows what the port prints: runs it through libvterm and paints the changed cells.
#pragma once

#include <stdint.h>

#include "dep/vterm.h"
#include "link/connection.h"
#include "tui/guard/guard.h"
#include "tui/row_damage.h"
#include "tui/widget/widget.h"

struct TermContext {
    DaemonConnection *conn;
    VTerm *vt;                      // owned
    VTermScreenCallbacks callbacks; // their user data is the Widget
    list_head scrollback;           // ScrollbackLine records, newest first; owned
    int32_t scrollback_count;
    uint16_t fg; // of every cell
    uint16_t bg;

    VTermPos cursor; // the emulator's, shown with the next painting
    bool cursor_shown;
    bool cursor_moved; // since it was hidden
    Guard guard;       // between the port's output and libvterm
    RowDamage damage;  // since the screen was painted
    int damaged_again; // how often a damaged row was reported
};

// A widget with the emulator behind it, at the screen's origin (x0 and y0 are 0). Null, with a line
// in the log, when memory is short.
[[nodiscard]] Widget *term_widget_new(DaemonConnection *conn, int x0, int y0, int x1, int y1);
