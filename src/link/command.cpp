#include "link/command.h"

#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "link/owned.h"

namespace {

constexpr const char *UNEXPECTED_DATA =
    "unexpected data on command socket - no scheduled command\n";

bool read_buffer_is_full(const ustream &stream)
{
    return stream.r.data_bytes >= stream.r.buffer_len;
}

void pending_command_free(PendingCommand *command)
{
    free(command->text);
    free(command);
}

void write_head(DaemonConnection &connection)
{
    PendingCommand *head = list_first_entry(&connection.commands, PendingCommand, list);
    ustream &stream = connection.cmd_stream.stream;
    (void)ustream_write(&stream, head->text, static_cast<int>(strlen(head->text)), false);
    connection.command_in_flight = 1;
    // A stream whose buffer is full reads nothing more, so the reply would never be noticed.
    if (read_buffer_is_full(stream)) {
        uloop_timeout_set(&connection.cmd_backlog, 0);
    }
}

void on_command_reply(node *reply, void *context)
{
    DaemonConnection &connection = *static_cast<DaemonConnection *>(context);
    const Node owned(reply);
    if (list_empty(&connection.commands)) {
        ulog(LOG_ERR, "%s", UNEXPECTED_DATA);
        return;
    }
    PendingCommand *head = list_first_entry(&connection.commands, PendingCommand, list);
    if (head->callback != nullptr) {
        head->callback(reply, head->context);
    }
    list_del(&head->list);
    connection.command_count--;
    pending_command_free(head);
    connection.command_in_flight = 0;
    if (!list_empty(&connection.commands)) {
        write_head(connection);
    }
}

void parse_replies(DaemonConnection &connection, const char *bytes, int length)
{
    if (connection.reply_parser == nullptr) {
        connection.reply_parser = json_stream_new(on_command_reply, &connection);
    }
    if (connection.reply_parser == nullptr ||
        !json_stream_parse(connection.reply_parser, bytes, static_cast<size_t>(length))) {
        ulog(LOG_ERR, "Error occurred with command response\n");
    }
}

void cmd_hangup_notify(uloop_fd *fd, unsigned int)
{
    DaemonConnection *connection = container_of(fd, DaemonConnection, cmd_hangup);
    if (fd->eof || fd->error) {
        ulog(LOG_INFO, "Zorvad hung-up (cmd socket)\n");
        uloop_fd_delete(fd);
        connection_hung_up(*connection);
    }
}

// The loop does not watch a stream whose buffer is full, and would not notice a hang-up: that is
// watched for on a second descriptor of the socket.
void watch_hangup(DaemonConnection &connection)
{
    uloop_fd &watch = connection.cmd_hangup;
    if (watch.registered) {
        return;
    }
    if (watch.cb == nullptr) {
        watch.fd = fcntl(connection.cmd_stream.fd.fd, F_DUPFD_CLOEXEC, 0);
        if (watch.fd < 0) {
            return;
        }
        watch.cb = cmd_hangup_notify;
    }
    (void)uloop_fd_add(
        &watch, ULOOP_READ | ULOOP_EDGE_TRIGGER); // where it fails, only the hang-up goes unnoticed
}

void parse_backlog(uloop_timeout *timer)
{
    DaemonConnection *connection = container_of(timer, DaemonConnection, cmd_backlog);
    ustream &stream = connection->cmd_stream.stream;
    if (connection->command_in_flight && read_buffer_is_full(stream)) {
        cmd_notify_read(&stream, stream.r.data_bytes);
    }
}

} // namespace

void command_channel_init(DaemonConnection &connection)
{
    connection.cmd_backlog.cb = parse_backlog;
}

node *command_request(const char *name)
{
    Node request(node_new_object());
    if (!request || !node_object_add(request.get(), "cmd", node_new_string(name))) {
        return nullptr;
    }
    return request.release();
}

int send_command(DaemonConnection &connection, node *request, void *context,
                 CommandCallback callback)
{
    const bool room = connection.command_count < COMMANDS_MAX;
    PendingCommand *command = room ? zalloc<PendingCommand>() : nullptr;
    Text text(request != nullptr ? json_stringify(request, 1) : nullptr);
    if (command == nullptr || !text) {
        ulog(LOG_ERR, "Could not allocate command\n");
        free(command);
        return -1;
    }
    command->context = context;
    command->callback = callback;
    command->text = text.release();
    list_add_tail(&command->list, &connection.commands);
    connection.command_count++;
    node_free(request); // only its text is needed
    if (!connection.command_in_flight) {
        write_head(connection);
    }
    return 0;
}

int send_bare_command(DaemonConnection &connection, const char *name, void *context,
                      CommandCallback callback)
{
    Node request(command_request(name));
    if (send_command(connection, request.get(), context, callback) != 0) {
        return -1;
    }
    (void)request.release(); // send_command has freed it
    return 0;
}

void cmd_notify_read(ustream *stream, int)
{
    DaemonConnection *connection = container_of(stream, DaemonConnection, cmd_stream.stream);
    if (!connection->command_in_flight) {
        ulog(LOG_ERR, "%s", UNEXPECTED_DATA);
        if (read_buffer_is_full(*stream)) {
            watch_hangup(*connection);
        }
        return;
    }
    read_gate_enter(connection->replies);
    int length = 0;
    while (const char *bytes = ustream_get_read_buf(stream, &length)) {
        if (!list_empty(&connection->commands)) {
            parse_replies(*connection, bytes, length);
        }
        ustream_consume(stream, length);
        read_gate_count(connection->replies, length);
    }
}
