// Typed input: the escape-character state machine of the basic interface and the commands behind
// it.

#include <stdlib.h>
#include <string.h>
#include <string_view>

#include "basic/console.h"
#include "basic/power.h"
#include "front/escape.h"
#include "front/help.h"
#include "front/sessions.h"
#include "link/connection.h"
#include "link/owned.h"
#include "text/printable.h"

namespace {

void show_help()
{
    const Text text(help_text());
    const Text shown(text ? printable_latin1(text.get()) : nullptr);
    if (shown) {
        console_print(shown.get());
    }
}

void quit_session()
{
    read_gate_hold(typed_input, HOLD_END);
    connection_quit(zorvad);
}

constexpr int NO_COMMAND = -1;

// The commands that print something.
bool is_answered(char key)
{
    return key == 'd' || key == '?' || key == 'p';
}

// Runs the command key; the test for a command comes before the test for a doubled escape.
// Returns false when the session is over.
bool run_command(char key, bool more)
{
    if (is_answered(key) && console_is_stuck()) {
        escape_pending = 0;
        return true;
    }
    switch (connection_is_ending(zorvad) ? NO_COMMAND : key) {
    case 'q':
        quit_session();
        return false;
    case 'b':
        send_break();
        break;
    case 'd':
        sessions_request();
        break;
    case '?':
        show_help();
        break;
    case 'p':
        power_menu_open();
        break;
    default:
        if (static_cast<unsigned char>(key) == zorvad.escape_char) {
            port_send(zorvad, &key, 1, more);
        }
        break;
    }
    escape_pending = 0;
    return true;
}

// Writes the bytes up to the next escape character as one piece and returns how many these are.
size_t write_plain_run(std::string_view bytes)
{
    const void *escape = memchr(bytes.data(), zorvad.escape_char, bytes.size());
    const size_t length =
        escape == nullptr ? bytes.size()
                          : static_cast<size_t>(static_cast<const char *>(escape) - bytes.data());
    if (length > 0) {
        port_send(zorvad, bytes.data(), length, length < bytes.size());
    }
    return length;
}

// Takes a chunk through the state machine. Returns false when the session is over.
bool walk_chunk(std::string_view bytes)
{
    while (!bytes.empty()) {
        if (escape_pending) {
            const char key = bytes[0];
            bytes.remove_prefix(1);
            if (!run_command(key, !bytes.empty())) {
                return false;
            }
            continue;
        }
        bytes.remove_prefix(write_plain_run(bytes));
        if (!bytes.empty()) {
            escape_pending = 1;
            bytes.remove_prefix(1);
        }
    }
    return true;
}

void write_whole_chunk(std::string_view bytes)
{
    port_send(zorvad, bytes.data(), bytes.size(), false);
    if (zorvad.data_stream.stream.write_error) {
        ulog(LOG_ERR, "Error writing to data\n");
    }
}

} // namespace

void basic_stdin_read_cb(ustream *stream, int available)
{
    ulog(LOG_INFO, "Read (from stdin) callback %d bytes available\n", available);
    read_gate_enter(typed_input);
    bool escape_seen = false; // in a chunk of this notification
    int length = 0;
    while (const char *chunk = ustream_get_read_buf(stream, &length)) {
        const std::string_view bytes(chunk, static_cast<size_t>(length));
        if (input_hook != nullptr) {
            if (!connection_is_ending(zorvad)) {
                input_hook(chunk, length);
            }
        } else {
            escape_seen |= memchr(chunk, zorvad.escape_char, bytes.size()) != nullptr;
            if (!escape_seen && !escape_pending) {
                write_whole_chunk(bytes);
            } else if (!walk_chunk(bytes)) {
                ustream_consume(stream, length);
                return;
            }
        }
        ustream_consume(stream, length);
        read_gate_count(typed_input, length);
        console_take_flags();
        if (port_is_stuck(zorvad)) {
            read_gate_hold(typed_input, HOLD_SINK);
        }
    }
}
