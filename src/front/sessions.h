// The sessions dialogue: lists the other sessions on the port and disconnects them on "Y".
#pragma once

#include "dep/trell.h"

// The user's access right as given on the command line, "access" without one; "admin" unlocks the
// dialogue.
extern const char *access_right;

// The command behind the key: asks for the list, or tells that this is not permitted.
void sessions_request();

// Asks the daemon for the other sessions; sessions_reply shows them.
void send_list_sessions();

// Asks the daemon to disconnect them.
void send_disconnect_sessions();

// Callback of LIST_SESSIONS: shows the list and asks about it.
void sessions_reply(node *reply, void *context);

// The user's answer to the list: just "Y" has the sessions disconnected.
void sessions_answer(const char *answer);
