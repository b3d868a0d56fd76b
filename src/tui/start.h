// The terminal UI as a front end.
#pragma once

#include "front/front_end.h"
#include "tui/widget/widget.h"

extern const FrontEnd tui_front_end;

// Starts the terminal UI on a terminal. Returns 0 when it runs; otherwise nothing has changed.
[[nodiscard]] int tui_start_on(const char *terminal, DaemonConnection &connection);

// Gives the terminal back; does nothing when the terminal UI does not run.
void tui_stop();

// Key handler of the sessions popup: any key answers the question and closes the popup.
void confirm_disconnect_key(const char *input, WidgetList *list, Widget *widget);
