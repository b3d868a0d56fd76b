// The record of the link to the daemon: its two sockets, the data channel and what is known of the
// port.
#pragma once

#include <signal.h>
#include <stddef.h>
#include <stdint.h>

#include "dep/trell.h"
#include "dep/ubox.h"
#include "link/read_gate.h"

// Receives the port's output. The bytes are valid during the call only.
using OutputSink = void (*)(const char *bytes, int32_t length);

struct DaemonConnection {
    const char *port;          // the port's key; not owned
    timeval connected_at;      // wall-clock time at which both sockets were connected
    unsigned char escape_char; // the port's escape character
    char **outlets;            // the port's power outlets; owned, and so is every name
    size_t outlet_count;
    uint8_t quit;              // the session is over
    list_head commands;        // PendingCommand records, the oldest first; owned
    uint8_t command_in_flight; // the head of commands was written and awaits its reply
    json_stream *reply_parser; // made with the first reply, never freed
    ustream_fd cmd_stream;
    ustream_fd data_stream;
    OutputSink output_sink; // set once, by the front end

    uint8_t hung_up;                   // the daemon closed one of the sockets
    volatile sig_atomic_t told_to_end; // by a signal; quit follows when the loop sees it
    uint8_t ending;                    // what is on its way is finished, nothing new begins
    ReadGate port_output;              // when data_stream may read
    ReadGate replies;                  // when cmd_stream may read
    // How many of the bytes output_sink is to get in one call; null for all of them.
    int32_t (*piece_length)(const char *bytes, int32_t length);
    void (*on_port_drained)(void); // what was typed is on its way to the port; set by the front end
    uloop_fd cmd_hangup;       // watches cmd.sck for a hang-up while cmd_stream's buffer is full
    size_t command_count;      // the length of commands
    uloop_timeout cmd_backlog; // parses that full buffer once a command is in flight
};

// The one connection of the process.
extern DaemonConnection zorvad;

constexpr unsigned char DEFAULT_ESCAPE_CHAR = 5; // Ctrl-E

// What may wait for the port before the keyboard is not read any more, and where reading starts
// again. A person in front of a port that takes nothing never types this much.
constexpr int TYPED_LIMIT = 1024 * 1024;
constexpr int TYPED_RESUME = 512 * 1024;

// Buffer sizes of the other streams that carry port and terminal bytes: with 64 KiB a chunk costs
// one read and one write. (libubox's own are 4096 and 256.)
constexpr int STREAM_BUFFER = 64 * 1024;

// Connects both sockets of the port, whose directory is made when missing. Blocks until the daemon
// accepts or refuses. Returns 0, or -1 with the reason in the log.
[[nodiscard]] int daemon_connect(DaemonConnection &connection, const char *port);

// Connects one socket and hands its descriptor to the stream, whose callbacks are set already.
// format holds one %s, the port key. Returns 0, or -1 with the reason in the log.
[[nodiscard]] int open_daemon_socket(ustream_fd &stream, const char *format, const char *port);

// True from the signal or the call on that ends the session: typed bytes still go to the port, but
// no command is run any more.
bool connection_is_ending(const DaemonConnection &connection);

// Ends the session: the main loop returns.
void connection_quit(DaemonConnection &connection);

// The same after a hang-up.
void connection_hung_up(DaemonConnection &connection);

// Takes the escape character over from a PORT_INFO reply. One without a number keeps the old one:
// there must be a way out.
void connection_take_escape(DaemonConnection &connection, const node *reply);

// Sends what was typed to the port; what it does not take yet is queued. `more` says that further
// bytes follow at once. A port that is gone ends the session by itself.
void port_send(DaemonConnection &connection, const char *bytes, size_t length, bool more);

// True while more has been typed than the port takes: the front end stops reading keys until
// on_port_drained.
bool port_is_stuck(const DaemonConnection &connection);
