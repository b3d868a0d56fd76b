#include "front/sessions.h"

#include <string.h>

#include "front/front_end.h"
#include "link/command.h"
#include "link/connection.h"
#include "link/owned.h"

const char *access_right = "access";

namespace {

constexpr char no_permission_text[] =
    "Your current access rights on this port\r\n"
    "do not give you permission to list or disconnect sessions\r\n";
constexpr char no_sessions_text[] = "There are no other sessions on this port\r\n";
constexpr char sessions_header[] = "\t\t==== Sessions ====\r\n"
                                   "The following sessions are active on this port\r\n\r\n";
constexpr char sessions_footer[] = "\nPress 'Y' to disconnect these sessions\r\n"
                                   " or any other key to exit this menu\r\n";

Text member_text(node *session, const char *name)
{
    return Text(front_end->field_copy(node_get_string(node_object_get(session, name))));
}

void append_session(string_list *lines, node *session)
{
    const Text username = member_text(session, "username");
    const Text protocol = member_text(session, "protocol");
    if (username && protocol) {
        (void)sl_append_printf(lines, "\t%s: %s ", username.get(), protocol.get());
    }
    if (node_object_get(session, "remote_addr") != nullptr) {
        if (const Text address = member_text(session, "remote_addr")) {
            (void)sl_append_printf(lines, "(%s) ", address.get());
        }
    }
    (void)sl_append_printf(lines, "- Session length %.f second(s)\r\n",
                           node_get_real(node_object_get(session, "session_time")));
}

// The text of a list that is not empty; null when memory is short.
Text sessions_text(node *sessions)
{
    const StringList lines(_sl_new(sessions_header));
    for (node *session = node_array_first(sessions); session != nullptr;
         session = node_array_next(session)) {
        append_session(lines.get(), session);
    }
    (void)_sl_append(lines.get(), sessions_footer);
    return Text(sl_join(lines.get(), ""));
}

} // namespace

void sessions_request()
{
    if (strcmp(access_right, "admin") == 0) {
        send_list_sessions();
    } else {
        front_end->show_notice(no_permission_text);
    }
}

void send_list_sessions()
{
    if (send_bare_command(zorvad, "LIST_SESSIONS", nullptr, sessions_reply) != 0) {
        ulog(LOG_ERR, "Could not send list sessions command\n");
    }
}

void send_disconnect_sessions()
{
    if (send_bare_command(zorvad, "DISCONNECT_SESSIONS", nullptr, nullptr) != 0) {
        ulog(LOG_ERR, "Could not send disconnect command\n");
    }
}

void sessions_reply(node *reply, void *)
{
    node *sessions = node_object_get(reply, "sessions");
    if (sessions == nullptr) {
        ulog(LOG_ERR, "Could not retrieve sessions list\n");
        return;
    }
    if (node_array_count(sessions) == 0) {
        front_end->show_notice(no_sessions_text);
        return;
    }
    const Text text = sessions_text(sessions);
    if (!text) {
        ulog(LOG_ERR, "Could not allocate sessions text\n");
        return;
    }
    front_end->show_sessions(text.get());
}

void sessions_answer(const char *answer)
{
    if (strcmp(answer, "Y") == 0) {
        send_disconnect_sessions();
    }
}
