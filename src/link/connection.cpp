#include "link/connection.h"

#include <algorithm>
#include <libgen.h>
#include <stdio.h>
#include <string.h>
#include <sys/un.h>
#include <unistd.h>

#include "link/command.h"
#include "link/mkdir_p.h"
#include "link/owned.h"

DaemonConnection zorvad;

namespace {

// What was typed is written in pieces of this size at most: the system tells only of whole pieces
// that the daemon has read, and the end of a session waits as long as it reads. At 9600 baud one
// takes a second. A paste is about as fast as with 64 KiB (scripts/bench basic-paste).
constexpr int TYPED_PIECE = 1024;

void data_notify_read(ustream *stream, int available)
{
    DaemonConnection *connection = container_of(stream, DaemonConnection, data_stream.stream);
    ulog(LOG_INFO, "Read callback %d bytes available\n", available);
    ReadGate &gate = connection->port_output;
    read_gate_enter(gate);
    int length = 0;
    while (const char *bytes = ustream_get_read_buf(stream, &length)) {
        const int piece =
            connection->piece_length == nullptr ? length : connection->piece_length(bytes, length);
        connection->output_sink(bytes, piece);
        ustream_consume(stream, piece);
        read_gate_count(gate, piece);
        if (gate.holds != 0) {
            return; // the rest is handed on when the gate is released
        }
    }
}

void data_notify_write(ustream *stream, int length)
{
    DaemonConnection *connection = container_of(stream, DaemonConnection, data_stream.stream);
    ulog(LOG_INFO, "Successfully written %d bytes to port %s\n", length, connection->port);
    if (connection->on_port_drained != nullptr && stream->w.data_bytes <= TYPED_RESUME) {
        connection->on_port_drained();
    }
}

void data_notify_state(ustream *stream)
{
    DaemonConnection *connection = container_of(stream, DaemonConnection, data_stream.stream);
    ulog(LOG_INFO, "State callback: zorvad data socket\n");
    if (stream->eof) {
        ulog(LOG_INFO, "Zorvad hung-up (data socket)\n");
        connection_hung_up(*connection);
    }
    // What was waiting for the port is dropped, so nothing more will be reported as written.
    if (stream->write_error && connection->on_port_drained != nullptr) {
        connection->on_port_drained();
    }
}

void cmd_notify_write(ustream *, int) {}

void cmd_notify_state(ustream *stream)
{
    DaemonConnection *connection = container_of(stream, DaemonConnection, cmd_stream.stream);
    if (stream->eof) {
        ulog(LOG_INFO, "Zorvad hung-up (cmd socket)\n");
        connection_hung_up(*connection);
    }
}

} // namespace

int open_daemon_socket(ustream_fd &stream, const char *format, const char *port)
{
    char path[4096];
    snprintf(path, sizeof path - 1, format, port);
    if (strlen(path) < sizeof sockaddr_un::sun_path) {
        (void)mkdir_p(dirname(path));                  // a missing directory shows when connecting
        snprintf(path, sizeof path - 1, format, port); // dirname has cut it
    }
    const int descriptor = usock(USOCK_UNIX, path, nullptr);
    if (descriptor < 0) {
        ulog(LOG_ERR, "Could not create socket connection to %s\n", path);
        return -1;
    }
    ustream_fd_init(&stream, descriptor);
    ulog(LOG_INFO, "Created socket connection to %s\n", path);
    return 0;
}

int daemon_connect(DaemonConnection &connection, const char *port)
{
    connection.port = port;
    INIT_LIST_HEAD(&connection.commands);
    connection.command_in_flight = 0;
    command_channel_init(connection);
    ustream &commands = connection.cmd_stream.stream;
    commands.notify_read = cmd_notify_read;
    commands.notify_write = cmd_notify_write;
    commands.notify_state = cmd_notify_state;
    commands.string_data = true;
    if (open_daemon_socket(connection.cmd_stream, "/var/run/zorvad/%s/cmd.sck", port) != 0) {
        ulog(LOG_ERR, "Could not create command connection\n");
        return -1;
    }
    read_gate_init(connection.replies, connection.cmd_stream);
    ustream &data = connection.data_stream.stream;
    data.notify_read = data_notify_read;
    data.notify_write = data_notify_write;
    data.notify_state = data_notify_state;
    data.string_data = true;
    data.r.buffer_len = STREAM_BUFFER;
    data.w.buffer_len = TYPED_PIECE;
    if (open_daemon_socket(connection.data_stream, "/var/run/zorvad/%s/data.sck", port) != 0) {
        ulog(LOG_ERR, "Could not create data socket connection\n");
        ustream_free(&commands);
        close(connection.cmd_stream.fd.fd);
        return -1;
    }
    read_gate_init(connection.port_output, connection.data_stream);
    gettimeofday(&connection.connected_at, nullptr);
    connection.escape_char = DEFAULT_ESCAPE_CHAR;
    return 0;
}

bool connection_is_ending(const DaemonConnection &connection)
{
    return connection.ending || connection.told_to_end || uloop_cancelled;
}

void connection_quit(DaemonConnection &connection)
{
    connection.quit = 1;
    uloop_cancelled = true;
}

void connection_hung_up(DaemonConnection &connection)
{
    connection.hung_up = 1;
    connection_quit(connection);
}

void connection_take_escape(DaemonConnection &connection, const node *reply)
{
    const node *escape = node_object_get(reply, "escape");
    const Text text(json_stringify(escape, 1)); // the getter makes 0 of everything but a number
    if (text && strchr("-0123456789", text.get()[0]) != nullptr) {
        connection.escape_char = static_cast<unsigned char>(node_get_integer(escape));
    }
}

void port_send(DaemonConnection &connection, const char *bytes, size_t length, bool more)
{
    ustream &port = connection.data_stream.stream;
    while (length > 0) {
        const size_t piece = std::min<size_t>(length, TYPED_PIECE);
        (void)ustream_write(&port, bytes, static_cast<int>(piece), more || piece < length);
        bytes += piece;
        length -= piece;
    }
}

bool port_is_stuck(const DaemonConnection &connection)
{
    return connection.data_stream.stream.w.data_bytes > TYPED_LIMIT;
}
