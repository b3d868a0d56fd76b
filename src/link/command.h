// The command channel: JSON requests and replies on cmd.sck, one command at a time.
#pragma once

#include <stdint.h>

#include "dep/trell.h"
#include "dep/ubox.h"
#include "link/connection.h"

// Receives a command's reply, which is valid during the call only.
using CommandCallback = void (*)(node *reply, void *context);

struct PendingCommand {
    list_head list;
    void *context;            // not owned; handed to callback
    CommandCallback callback; // may be null
    char *text;               // the request as it goes over the socket; owned
};

// A request: an object whose "cmd" is the command's name. Null when memory is short.
[[nodiscard]] node *command_request(const char *name);

// Commands that may wait for their replies. A daemon that never answers must not cost memory for
// every key.
constexpr size_t COMMANDS_MAX = 1000;

// Queues a request and writes it when no other command is in flight. Every command gets one reply,
// in order; callback may be null. Frees the request on success. Returns -1, with a line in the log
// and the request left to the caller, when memory is short, request is null or COMMANDS_MAX wait.
[[nodiscard]] int send_command(DaemonConnection &connection, node *request, void *context,
                               CommandCallback callback);

// send_command of the bare request name, which is freed when it cannot be queued.
[[nodiscard]] int send_bare_command(DaemonConnection &connection, const char *name, void *context,
                                    CommandCallback callback);

// Prepares the channel's own records; before the socket is connected.
void command_channel_init(DaemonConnection &connection);

// Read callback of cmd_stream.
void cmd_notify_read(ustream *stream, int available);
