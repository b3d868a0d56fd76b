#include "main/identity.h"

#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "front/sessions.h"
#include "link/command.h"
#include "link/connection.h"
#include "link/owned.h"
#include "text/printable.h"

namespace {

// The environment may hold any bytes, a request holds UTF-8.
bool add_text(node *object, const char *name, const char *text)
{
    const Text copy(strdup(text));
    if (!copy) {
        return false;
    }
    replace_bad_bytes(copy.get());
    return node_object_add(object, name, node_new_string(copy.get()));
}

// "client-address client-port server-port" becomes "client-address:client-port"; any other text
// stays as it is. Null when memory is short.
Text ssh_address(const char *ssh_client)
{
    const StringList words(sl_split(ssh_client, ' '));
    if (sl_len(words.get()) != 3) {
        return Text(strdup(ssh_client));
    }
    const StringList client(sl_copyn(words.get(), 2));
    return Text(client ? sl_join(client.get(), ":") : nullptr);
}

bool add_way_in(node *arguments)
{
    if (const char *ssh = getenv("SSH_CLIENT")) {
        const Text address = ssh_address(ssh);
        return address && add_text(arguments, "remote_addr", address.get()) &&
               add_text(arguments, "protocol", "SSH");
    }
    if (const char *telnet = getenv("TELNET_CLIENT")) {
        return add_text(arguments, "remote_addr", telnet) &&
               add_text(arguments, "protocol", "Telnet");
    }
    if (const char *web = getenv("WEB_CLIENT")) {
        return add_text(arguments, "remote_addr", web) && add_text(arguments, "protocol", "Web");
    }
    if (!add_text(arguments, "protocol", "Console")) {
        return false;
    }
    const char *terminal = ttyname(STDIN_FILENO);
    return terminal == nullptr || add_text(arguments, "remote_addr", terminal);
}

// The whole request; null when memory is short.
node *set_user_request(const char *username)
{
    Node request(command_request("SET_USER"));
    Node arguments(node_new_object());
    if (!request || !arguments || !add_text(arguments.get(), "username", username) ||
        !add_text(arguments.get(), "right", access_right) || !add_way_in(arguments.get()) ||
        !node_object_add(request.get(), "args", arguments.release())) {
        return nullptr;
    }
    return request.release();
}

} // namespace

void announce_user()
{
    const char *username = getenv("USER");
    if (username == nullptr) {
        ulog(LOG_ERR, "No username in environment\n");
        return;
    }
    node *request = set_user_request(username);
    if (send_command(zorvad, request, nullptr, nullptr) != 0) {
        ulog(LOG_ERR, "Could not send username command\n");
        node_free(request);
    }
}
