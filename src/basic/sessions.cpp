#include "basic/sessions.h"

#include <string.h>

#include "basic/console.h"
#include "basic/escape.h"
#include "link/command.h"
#include "link/connection.h"
#include "link/owned.h"
#include "main/options.h"
#include "text/printable.h"
#include "tui/popup.h"
#include "tui/widget/widget_list.h"

const char no_permission_text[] = "Your current access rights on this port\r\n"
                                  "do not give you permission to list or disconnect sessions\r\n";

namespace {

constexpr char no_sessions_text[] = "There are no other sessions on this port\r\n";
constexpr char sessions_header[] = "\t\t==== Sessions ====\r\n"
                                   "The following sessions are active on this port\r\n\r\n";
constexpr char sessions_footer[] = "\nPress 'Y' to disconnect these sessions\r\n"
                                   " or any other key to exit this menu\r\n";

// A text member as it may be shown: what is printed on the terminal carries no control characters,
// while a popup looks after its bytes itself.
Text member_text(node *session, const char *name)
{
    const char *text = node_get_string(node_object_get(session, name));
    return Text(use_basic_interface ? printable_copy(text, false) : strdup(text));
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

void show_no_sessions()
{
    if (use_basic_interface) {
        console_print(no_sessions_text);
        return;
    }
    popup_open(no_sessions_text, 3 * (widget_list->width / 4), 2 * (widget_list->height / 4),
               nullptr);
}

void show_sessions(const char *text)
{
    if (use_basic_interface) {
        console_print(text);
        input_hook = confirm_disconnect_hook;
        return;
    }
    popup_open(text, 7 * (widget_list->width / 8), 3 * (widget_list->height / 4),
               confirm_disconnect_key);
}

bool is_yes(const char *answer)
{
    return strcmp(answer, "Y") == 0;
}

} // namespace

bool may_manage_sessions()
{
    return strcmp(access_right, "admin") == 0;
}

void sessions_request()
{
    if (may_manage_sessions()) {
        send_list_sessions();
    } else {
        console_print(no_permission_text);
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
    if (use_basic_interface && console_is_stuck()) {
        return; // asked for before, maybe many times
    }
    node *sessions = node_object_get(reply, "sessions");
    if (sessions == nullptr) {
        ulog(LOG_ERR, "Could not retrieve sessions list\n");
        return;
    }
    if (node_array_count(sessions) == 0) {
        show_no_sessions();
        return;
    }
    const Text text = sessions_text(sessions);
    if (!text) {
        ulog(LOG_ERR, "Could not allocate sessions text\n");
        return;
    }
    show_sessions(text.get());
}

void confirm_disconnect_key(const char *input, WidgetList *list, Widget *widget)
{
    if (is_yes(input)) {
        send_disconnect_sessions();
    }
    widget_list_remove(list, widget);
}

void confirm_disconnect_hook(const char *chunk, int32_t)
{
    if (is_yes(chunk)) {
        send_disconnect_sessions();
    }
    input_hook = nullptr;
}
