// The sessions dialogue: lists the other sessions on the port and disconnects them on "Y". Shared
// by both front ends: the basic interface prints, the terminal UI opens popups.
#pragma once

#include <stdint.h>

#include "dep/trell.h"
#include "tui/widget/widget.h"

extern const char no_permission_text[];

// True when the user's access right allows listing and disconnecting sessions.
bool may_manage_sessions();

// The command of the basic interface: lists the sessions or tells that this is not permitted.
void sessions_request();

// Asks the daemon for the other sessions; sessions_reply shows them.
void send_list_sessions();

// Asks the daemon to disconnect them.
void send_disconnect_sessions();

// Callback of LIST_SESSIONS: prints the list, or opens a popup with it, and asks about it.
void sessions_reply(node *reply, void *context);

// Key handler of the terminal UI's popup: the same question.
void confirm_disconnect_key(const char *input, WidgetList *list, Widget *widget);

// Input hook of the basic interface: the next chunk, whatever it is, answers the question.
void confirm_disconnect_hook(const char *chunk, int32_t length);
